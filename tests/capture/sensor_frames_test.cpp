// Grabbing frames from the fake camera, and stopping its stream.
#include "tarvo/sensor.h"

#include "sensor_test.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace tarvo::test;

namespace
{

constexpr uint8_t kUntouched = 0x5a;

// A destination larger than any frame, filled with kUntouched.
std::vector<uint8_t> destination()
{
    return std::vector<uint8_t>(FAKE_BUFFER_LENGTH + 64, kUntouched);
}

// Whether dest holds frame number `frame` in its first `length` bytes and is
// untouched after them.
testing::AssertionResult holdsFrame(const std::vector<uint8_t> &dest, uint32_t frame, int length)
{
    for (size_t offset = 0; offset < dest.size(); offset++) {
        uint8_t expected = int(offset) < length ? fakeByte(frame, uint32_t(offset)) : kUntouched;
        if (dest[offset] != expected)
            return testing::AssertionFailure() << "byte " << offset << " of frame " << frame;
    }
    return testing::AssertionSuccess();
}

using SensorFrames = SensorTest;

TEST_F(SensorFrames, FirstGrabStartsStreamingAndEachGrabRequeues)
{
    for (uint32_t frame = 0; frame < 3; frame++) {
        std::vector<uint8_t> dest = destination();
        EXPECT_EQ(psGrabImage(sensor, dest.data()), 1000);
        EXPECT_TRUE(holdsFrame(dest, frame, 1000));
    }
    EXPECT_EQ(sensor->streaming, 1);
    std::vector<FakeCall> expected = {ioctlCall(VIDIOC_QBUF), ioctlCall(VIDIOC_QBUF),
                                      ioctlCall(VIDIOC_STREAMON)};
    for (int frame = 0; frame < 3; frame++) {
        expected.push_back(ioctlCall(VIDIOC_DQBUF));
        expected.push_back(ioctlCall(VIDIOC_QBUF));
    }
    EXPECT_EQ(calls(), expected);
}

TEST_F(SensorFrames, GrabCopiesTheUsedBytesWithinOneBuffer)
{
    struct Case {
        uint32_t used;
        int copied;
    };
    for (Case c : {Case{1, 1}, Case{FAKE_BUFFER_LENGTH, FAKE_BUFFER_LENGTH},
                   Case{FAKE_BUFFER_LENGTH + 1, FAKE_BUFFER_LENGTH}}) {
        fake->frameBytes = c.used;
        uint32_t frame = fake->frames;
        std::vector<uint8_t> dest = destination();
        EXPECT_EQ(psGrabImage(sensor, dest.data()), c.copied) << c.used;
        EXPECT_TRUE(holdsFrame(dest, frame, c.copied)) << c.used;
    }
}

struct GrabFailure {
    const char *name;
    unsigned long request;
    int passing;
    int result;
    const char *lines;
};

class SensorGrabFailure : public SensorTest, public ::testing::WithParamInterface<GrabFailure>
{
};

TEST_P(SensorGrabFailure, SaysWhichStepFailed)
{
    const GrabFailure &c = GetParam();
    failRequest(c.request, {EIO}, c.passing);
    std::vector<uint8_t> dest = destination();
    EXPECT_EQ(captureStdout([&] { EXPECT_EQ(psGrabImage(sensor, dest.data()), c.result); }),
              c.lines);
}

INSTANTIATE_TEST_SUITE_P(
    Steps, SensorGrabFailure,
    ::testing::Values(
        GrabFailure{"Queue", VIDIOC_QBUF, 1, PS_NO_FRAME,
                    "Sensor: Unable to queue buffer!\nSensor: video not start\n"},
        GrabFailure{"Start", VIDIOC_STREAMON, 0, PS_NO_FRAME,
                    "Sensor: Unable to start capture!\nSensor: video not start\n"},
        GrabFailure{"Dequeue", VIDIOC_DQBUF, 0, -1, "Sensor: Unable to dequeue buffer!\n"},
        GrabFailure{"Requeue", VIDIOC_QBUF, 2, -1, "Sensor: Unable to requeue buffer!\n"}),
    [](const auto &info) { return info.param.name; });

TEST_F(SensorFrames, SelectGrabWaitsAsLongAsAskedAndReturnsAtOnceWithoutAFrame)
{
    fake->noFrame = 1;
    struct Case {
        int timeout;
        time_t seconds;
        suseconds_t microseconds;
    };
    for (Case c : {Case{0, 0, 0}, Case{999, 0, 999000}, Case{2500, 2, 500000}}) {
        forgetCalls();
        EXPECT_EQ(psSelectGrab(sensor, c.timeout), PS_NO_FRAME) << c.timeout;
        EXPECT_EQ(fake->selectTimeout.tv_sec, c.seconds) << c.timeout;
        EXPECT_EQ(fake->selectTimeout.tv_usec, c.microseconds) << c.timeout;
        EXPECT_EQ(calls().back(), kSelect) << "no dequeue without a frame";
    }
}

TEST_F(SensorFrames, SelectGrabHoldsTheFrameUntilReadGrab)
{
    EXPECT_EQ(psSelectGrab(sensor, 100), 1000);
    EXPECT_EQ(calls().back(), ioctlCall(VIDIOC_DQBUF));
    std::vector<uint8_t> dest = destination();
    EXPECT_EQ(psReadGrab(sensor, dest.data()), 1000);
    EXPECT_TRUE(holdsFrame(dest, 0, 1000));

    // Without a destination the frame is only given back.
    EXPECT_EQ(psSelectGrab(sensor, 100), 1000);
    forgetCalls();
    EXPECT_EQ(psReadGrab(sensor, nullptr), 1000);
    EXPECT_EQ(calls(), std::vector<FakeCall>{ioctlCall(VIDIOC_QBUF)});
    EXPECT_NE(fake->queued[0], 0u) << "both buffers back in the driver";
    EXPECT_NE(fake->queued[1], 0u) << "both buffers back in the driver";
}

TEST_F(SensorFrames, SelectGrabReportsAFailedWait)
{
    fake->failSelect = EINTR;
    EXPECT_EQ(captureStdout([&] { EXPECT_EQ(psSelectGrab(sensor, 100), -1); }),
              "Sensor: Grab error!\n");
}

TEST_F(SensorFrames, DisableStopsOnlyARunningStream)
{
    EXPECT_EQ(psVideoDisable(sensor), 0);
    EXPECT_TRUE(calls().empty()) << "no driver call when not streaming";

    ASSERT_EQ(psVideoEnable(sensor), 0);
    failRequest(VIDIOC_STREAMOFF, {EIO});
    EXPECT_EQ(captureStdout([&] { EXPECT_EQ(psVideoDisable(sensor), -1); }),
              "Sensor: Unable to stop capture!\n");
    EXPECT_EQ(sensor->streaming, 1);
    EXPECT_EQ(psVideoDisable(sensor), 0);
    EXPECT_EQ(sensor->streaming, 0);
    EXPECT_EQ(fake->streaming, 0);
}

} // namespace
