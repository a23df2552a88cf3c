// Initialising the sensor on the fake camera, and releasing it.
#include "tarvo/sensor.h"

#include "fake_device_test.h"
#include "sensor_test.h"
#include "support/capture.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/mman.h>
#include <vector>

using namespace tarvo::test;

namespace
{

constexpr const char *kInitialLine = "Sensor: Initial UVC device!\n";

// Every call of a successful initialisation, in order.
const std::vector<FakeCall> kInitialisation = {
    kOpen,
    ioctlCall(VIDIOC_QUERYCAP),
    ioctlCall(VIDIOC_S_FMT),
    ioctlCall(VIDIOC_REQBUFS),
    ioctlCall(VIDIOC_QUERYBUF),
    kMmap,
    ioctlCall(VIDIOC_QUERYBUF),
    kMmap,
    ioctlCall(VIDIOC_S_PARM),
    ioctlCall(UVCIOC_CTRL_ADD),
};

class SensorSetup : public FakeDeviceTest
{
  protected:
    void TearDown() override
    {
        captureStdout([&] { psRelease(sensor); });
        free(sensor);
    }

    // What psInitial prints; the handle is left in `sensor`.
    std::string initial()
    {
        return captureStdout([&] { sensor = psInitial(kWidth, kHeight, kFps); });
    }

    SensorDevice *sensor = nullptr;
};

TEST_F(SensorSetup, OpensMapsAndSetsUpTheCameraInOrder)
{
    std::string printed = initial();
    ASSERT_NE(sensor, nullptr);
    EXPECT_EQ(printed, kInitialLine);
    EXPECT_EQ(calls(), kInitialisation);

    EXPECT_EQ(fake->videoFlags & O_ACCMODE, O_RDWR);
    EXPECT_EQ(sensor->fd, fake->videoFd);
    EXPECT_EQ(sensor->ready, 1);
    EXPECT_EQ(sensor->streaming, 0);
    EXPECT_EQ(sensor->width, kWidth);
    EXPECT_EQ(sensor->height, kHeight);
    EXPECT_EQ(sensor->framerate, kFps);

    const v4l2_pix_format &asked = fake->askedFormat.fmt.pix;
    EXPECT_EQ(asked.width, uint32_t(kWidth));
    EXPECT_EQ(asked.height, uint32_t(kHeight));
    EXPECT_EQ(asked.pixelformat, V4L2_PIX_FMT_MJPEG);
    EXPECT_EQ(asked.field, uint32_t(V4L2_FIELD_ANY));
    EXPECT_EQ(fake->askedBuffers.count, 2u);
    EXPECT_EQ(fake->askedParm.parm.capture.timeperframe.numerator, 1u);
    EXPECT_EQ(fake->askedParm.parm.capture.timeperframe.denominator, uint32_t(kFps));

    EXPECT_EQ(fake->mapProt, PROT_READ);
    EXPECT_EQ(fake->mapFlags, MAP_SHARED);
    for (int index = 0; index < PS_BUFFER_COUNT; index++)
        EXPECT_EQ(sensor->mapped[index], fake->memory[index]) << index;

    const uvc_xu_control_info &control = fake->addedControl;
    const uint8_t guid[16] = {0xb0, 0xd0, 0xbb, 0x68, 0xa4, 0x61, 0x83, 0x4b,
                              0x90, 0xb7, 0xa6, 0x21, 0x5f, 0x3c, 0x4f, 0x70};
    EXPECT_EQ(memcmp(control.entity, guid, sizeof guid), 0);
    EXPECT_EQ(control.index, 5);
    EXPECT_EQ(control.selector, 6);
    EXPECT_EQ(control.size, 11);
    EXPECT_EQ(control.flags, 3u);
}

TEST_F(SensorSetup, TakesOnTheSizeTheDriverAnswers)
{
    fake->answerWidth = 320;
    fake->answerHeight = 240;
    std::string printed = initial();
    ASSERT_NE(sensor, nullptr);
    EXPECT_EQ(printed, std::string(kInitialLine) + "Sensor: Format asked unavailable: 320 x 240\n");
    EXPECT_EQ(sensor->width, 320);
    EXPECT_EQ(sensor->height, 240);
}

struct RegistrationCase {
    const char *name;
    std::vector<int> errors;
    std::string lines;
};

class ControlRegistration : public SensorSetup,
                            public ::testing::WithParamInterface<RegistrationCase>
{
};

TEST_P(ControlRegistration, FailureLeavesTheSensorUsable)
{
    failRequest(UVCIOC_CTRL_ADD, GetParam().errors);
    std::string printed = initial();
    ASSERT_NE(sensor, nullptr);
    EXPECT_EQ(printed, kInitialLine + GetParam().lines);
    EXPECT_EQ(sensor->ready, 1);
}

INSTANTIATE_TEST_SUITE_P(
    Errors, ControlRegistration,
    ::testing::Values(RegistrationCase{"Known", {EEXIST}, ""},
                      RegistrationCase{"Interrupted",
                                       {EINTR, EINTR, EINTR, EINTR, EINTR},
                                       "Sensor: ioctl (" + std::to_string(int(UVCIOC_CTRL_ADD)) +
                                           ") retried 4 times - giving up: " + strerror(EINTR) +
                                           ")\n"}),
    [](const auto &info) { return info.param.name; });

struct InitialFailure {
    const char *name;
    unsigned long request = 0; // fails with EINVAL after `passing` calls
    int passing = 0;
    uint32_t capabilities = 0; // 0: the fake's default
    uint32_t pixelFormat = 0;  // 0: as asked
    int mmapError = 0;
    size_t callsMade; // of kInitialisation, before the device is closed
    int buffersMapped = 0;
    const char *line;
};

class SensorSetupFailure : public SensorSetup, public ::testing::WithParamInterface<InitialFailure>
{
};

TEST_P(SensorSetupFailure, SaysWhyAndLeavesNothingOpen)
{
    const InitialFailure &c = GetParam();
    if (c.request != 0)
        failRequest(c.request, {EINVAL}, c.passing);
    if (c.capabilities != 0)
        fake->capabilities = c.capabilities;
    fake->answerPixelFormat = c.pixelFormat;
    fake->failMmap = c.mmapError;

    EXPECT_EQ(initial(), std::string(kInitialLine) + c.line + "Sensor: Init v4L2 failed!\n");
    EXPECT_EQ(sensor, nullptr);
    std::vector<FakeCall> made(kInitialisation.begin(), kInitialisation.begin() + c.callsMade);
    made.insert(made.end(), c.buffersMapped, kMunmap);
    made.push_back(kClose);
    EXPECT_EQ(calls(), made);
    EXPECT_EQ(fake->videoFd, -1) << "device left open";
    EXPECT_EQ(fake->mapped[0] + fake->mapped[1], 0) << "buffer left mapped";
}

INSTANTIATE_TEST_SUITE_P(
    Steps, SensorSetupFailure,
    ::testing::Values(InitialFailure{.name = "Query",
                                     .request = VIDIOC_QUERYCAP,
                                     .callsMade = 2,
                                     .line = "Sensor: Unable to query device!\n"},
                      InitialFailure{.name = "NoCapture",
                                     .capabilities = V4L2_CAP_STREAMING,
                                     .callsMade = 2,
                                     .line = "Sensor: Device not support videio capture!\n"},
                      InitialFailure{.name = "NoStreaming",
                                     .capabilities = V4L2_CAP_VIDEO_CAPTURE,
                                     .callsMade = 2,
                                     .line = "Sensor: Device not support streaming i/o!\n"},
                      InitialFailure{.name = "Format",
                                     .request = VIDIOC_S_FMT,
                                     .callsMade = 3,
                                     .line = "Sensor: Unable to set format!\n"},
                      InitialFailure{.name = "NotMjpeg",
                                     .pixelFormat = V4L2_PIX_FMT_YUYV,
                                     .callsMade = 3,
                                     .line = "Sensor: unsupport mjpeg format!\n"},
                      InitialFailure{.name = "Request",
                                     .request = VIDIOC_REQBUFS,
                                     .callsMade = 4,
                                     .line = "Sensor: Unable to request buffers!\n"},
                      InitialFailure{.name = "QuerySecond",
                                     .request = VIDIOC_QUERYBUF,
                                     .passing = 1,
                                     .callsMade = 7,
                                     .buffersMapped = 1,
                                     .line = "Sensor: Unable to query buffer!\n"},
                      InitialFailure{.name = "Map",
                                     .mmapError = ENOMEM,
                                     .callsMade = 6,
                                     .line = "Sensor: Unable to map buffer!\n"},
                      InitialFailure{.name = "Framerate",
                                     .request = VIDIOC_S_PARM,
                                     .callsMade = 9,
                                     .buffersMapped = 2,
                                     .line = "Sensor: ioctl set Framerate faile!\n"}),
    [](const auto &info) { return info.param.name; });

struct ReleaseCase {
    const char *name;
    bool streaming;
    int munmapError;
    std::vector<FakeCall> calls;
    const char *lines;
};

class SensorRelease : public SensorTest, public ::testing::WithParamInterface<ReleaseCase>
{
};

TEST_P(SensorRelease, StopsUnmapsAndCloses)
{
    const ReleaseCase &c = GetParam();
    if (c.streaming) {
        ASSERT_EQ(psVideoEnable(sensor), 0);
        forgetCalls();
    }
    fake->failMunmap = c.munmapError;
    EXPECT_EQ(captureStdout([&] { psRelease(sensor); }), c.lines);
    EXPECT_EQ(calls(), c.calls);
    for (int index = 0; index < FAKE_BUFFER_COUNT; index++)
        EXPECT_EQ(fake->unmapLength[index], size_t(FAKE_BUFFER_LENGTH)) << index;
    EXPECT_EQ(fake->videoFd, -1);
    EXPECT_EQ(sensor->streaming, 0);

    // What is left refuses to grab, and releasing it again does nothing.
    forgetCalls();
    std::string printed = captureStdout([&] {
        EXPECT_EQ(psGrabImage(sensor, nullptr), -1);
        psRelease(sensor);
    });
    EXPECT_EQ(printed, "Sensor: device not ready\n");
    EXPECT_TRUE(calls().empty());
}

INSTANTIATE_TEST_SUITE_P(
    States, SensorRelease,
    ::testing::Values(
        ReleaseCase{
            "Streaming", true, 0, {ioctlCall(VIDIOC_STREAMOFF), kMunmap, kMunmap, kClose}, ""},
        ReleaseCase{"Idle", false, 0, {kMunmap, kMunmap, kClose}, ""},
        ReleaseCase{"UnmapFails",
                    false,
                    EINVAL,
                    {kMunmap, kMunmap, kClose},
                    "Sensor: Can't unmap buffer 0\nSensor: Can't unmap buffer 1\n"}),
    [](const auto &info) { return info.param.name; });

} // namespace
