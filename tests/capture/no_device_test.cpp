// The capture calls on a machine without a camera or sound device, and on
// null sensor handles.
#include "tarvo/sensor.h"
#include "tarvo/sound.h"

#include "support/capture.h"

#include <gtest/gtest.h>

#include <functional>
#include <sys/soundcard.h>
#include <unistd.h>

using tarvo::test::captureStdout;

namespace
{

void skipIfPresent(const char *device)
{
    if (access(device, F_OK) == 0)
        GTEST_SKIP() << device << " exists here; these cases need a machine without it";
}

TEST(NoDevice, SensorInitialSaysWhyAndReturnsNull)
{
    skipIfPresent(PS_DEVICE_PATH);
    SensorDevice *sensor = reinterpret_cast<SensorDevice *>(1);
    EXPECT_EQ(captureStdout([&] { sensor = psInitial(640, 480, 30); }),
              "Sensor: Initial UVC device!\n"
              "Sensor: Caon't open device!\n"
              "Sensor: Init v4L2 failed!\n");
    EXPECT_EQ(sensor, nullptr);
}

TEST(NoDevice, SoundInitialSaysWhyAndFails)
{
    skipIfPresent(AS_DEVICE_PATH);
    int fd = 0;
    EXPECT_EQ(captureStdout([&] { fd = asInitial(1, 8000, AFMT_U8); }),
              "Sound: Unable to open device file /dev/dsp0\n");
    EXPECT_EQ(fd, -1);
}

TEST(NoDevice, NullSensorHandleFailsQuietlyOrSaysNotReady)
{
    struct Case {
        const char *name;
        std::function<int()> call;
        const char *lines;
    };
    const Case cases[] = {
        {"psVideoEnable", [] { return psVideoEnable(nullptr); }, ""},
        {"psVideoDisable", [] { return psVideoDisable(nullptr); }, ""},
        {"psSetFramerate", [] { return psSetFramerate(nullptr, 30); }, ""},
        {"psGrabImage", [] { return psGrabImage(nullptr, nullptr); }, "Sensor: device not ready\n"},
        {"psSelectGrab", [] { return psSelectGrab(nullptr, 0); }, "Sensor: device not ready\n"},
        {"psReadGrab", [] { return psReadGrab(nullptr, nullptr); }, "Sensor: device not ready\n"},
    };
    for (const Case &c : cases) {
        int result = 0;
        EXPECT_EQ(captureStdout([&] { result = c.call(); }), c.lines) << c.name;
        EXPECT_EQ(result, -1) << c.name;
    }
    EXPECT_EQ(captureStdout([] { psRelease(nullptr); }), "");
}

} // namespace
