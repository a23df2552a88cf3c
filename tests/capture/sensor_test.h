// Base of the sensor cases that start from an initialised sensor on the fake
// camera, with its calls so far forgotten.
#ifndef TARVO_TESTS_CAPTURE_SENSOR_TEST_H
#define TARVO_TESTS_CAPTURE_SENSOR_TEST_H

#include "tarvo/sensor.h"

#include "fake_device_test.h"
#include "support/capture.h"

#include <cstdlib>

namespace tarvo::test
{

inline constexpr int kWidth = 640;
inline constexpr int kHeight = 480;
inline constexpr int kFps = 30;

class SensorTest : public FakeDeviceTest
{
  protected:
    void SetUp() override
    {
        FakeDeviceTest::SetUp();
        if (HasFatalFailure())
            return;
        captureStdout([&] { sensor = psInitial(kWidth, kHeight, kFps); });
        ASSERT_NE(sensor, nullptr);
        forgetCalls();
    }
    void TearDown() override
    {
        captureStdout([&] { psRelease(sensor); });
        free(sensor);
    }

    SensorDevice *sensor = nullptr;
};

} // namespace tarvo::test

#endif
