// The capture calls on the preloaded fake devices: what they return, print and leave open.
#include "tarvo/sensor.h"
#include "tarvo/sound.h"

#include "fake_devices.h"
#include "legacy_uvc.h"
#include "support/capture.h"

#include <gtest/gtest.h>

#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/soundcard.h>
#include <vector>

using tarvo::test::captureStdout;

namespace
{

constexpr int kFps = 30;
const std::string kInitialLine = "Sensor: Initial UVC device!\n";

// The calls a table row makes: kInitial and kSound on closed devices, the
// others on an initialised sensor.
using Call = int (*)(SensorDevice *&sensor);
uint8_t frameSpace[FAKE_BUFFER_LENGTH];
const Call kInitial = [](SensorDevice *&sensor) {
    return (sensor = psInitial(640, 480, kFps)) != nullptr ? 0 : -1;
};
const Call kGrab = [](SensorDevice *&sensor) { return psGrabImage(sensor, frameSpace); };
const Call kSelectGrab = [](SensorDevice *&sensor) { return psSelectGrab(sensor, 100); };
const Call kStop = [](SensorDevice *&sensor) {
    return psVideoEnable(sensor) == 0 ? psVideoDisable(sensor) : -2;
};
const Call kDisable = [](SensorDevice *&sensor) { return psVideoDisable(sensor); };
const Call kFramerate = [](SensorDevice *&sensor) { return psSetFramerate(sensor, kFps + 1); };
const Call kAsic = [](SensorDevice *&sensor) { return SetASICCommand(sensor->fd, 1, 2); };
const Call kSound = [](SensorDevice *&) { return asInitial(1, 8000, AFMT_U8); };
// Every sensor call on a null handle, each failing (-1).
const Call kNull = [](SensorDevice *&) {
    psRelease(nullptr);
    return psVideoEnable(nullptr) + psVideoDisable(nullptr) + psSetFramerate(nullptr, kFps) +
           psGrabImage(nullptr, nullptr) + psSelectGrab(nullptr, 0) + psReadGrab(nullptr, nullptr);
};

// A row: the call, what it returns and prints (kInitial: after its first line).
struct Trouble {
    const char *name;
    Call call;
    int result;
    std::string lines;
    FakeTrouble trouble;
};

class Devices : public ::testing::TestWithParam<Trouble>
{
  protected:
    // Without the fake the library would look for devices that are not here.
    void SetUp() override
    {
        auto reset = reinterpret_cast<FakeDevices *(*)()>(dlsym(RTLD_DEFAULT, "fakeDevicesReset"));
        ASSERT_NE(reset, nullptr) << "the fake devices are not preloaded";
        fake = reset();
    }
    // The sensor record stays the caller's after psRelease.
    void TearDown() override
    {
        captureStdout([&] { psRelease(sensor); });
        free(sensor);
    }

    FakeDevices *fake = nullptr;
    SensorDevice *sensor = nullptr;
};

TEST_P(Devices, SayWhyAndLeaveNothingOpen)
{
    const Trouble &c = GetParam();
    bool onSensor = c.call != kInitial && c.call != kSound;
    ASSERT_EQ(onSensor ? captureStdout([&] { kInitial(sensor); }) : kInitialLine, kInitialLine);
    fake->trouble = c.trouble;
    int result = 0;
    std::string lines = captureStdout([&] { result = c.call(sensor); });
    bool initialFailed = c.call == kInitial && c.result < 0;
    EXPECT_EQ(lines, (c.call == kInitial ? kInitialLine : "") + c.lines +
                         (initialFailed ? "Sensor: Init v4L2 failed!\n" : ""));
    EXPECT_EQ(result, c.result);
    if (sensor != nullptr) {
        EXPECT_EQ(sensor->framerate, kFps) << "changed by a failure";
        EXPECT_EQ(sensor->height, c.trouble.height ? int(c.trouble.height) : 480);
    } else if (c.result != 0) {
        EXPECT_EQ(fake->fds[FAKE_CAMERA], -1) << "camera left open";
        EXPECT_EQ(fake->fds[FAKE_MICROPHONE], -1) << "microphone left open";
        EXPECT_EQ(fake->mapped[0] + fake->mapped[1], 0) << "buffer left mapped";
    }
}

std::string givingUp(unsigned long request, int error)
{
    return "Sensor: ioctl (" + std::to_string(int(request)) +
           ") retried 4 times - giving up: " + strerror(error) + ")\n";
}

const std::string kAsicFailed = "Sensor: Set ASIC failed\n";
const std::string kSoundFailed = "Sound: Set Format fail!\n";

// clang-format off
INSTANTIATE_TEST_SUITE_P(Trouble, Devices, ::testing::Values(
    Trouble{"NoCamera", kInitial, -1, "Sensor: Caon't open device!\n", {.call = FAKE_OPEN, .errors = {ENOENT}}},
    Trouble{"Query", kInitial, -1, "Sensor: Unable to query device!\n", {.call = VIDIOC_QUERYCAP, .errors = {EIO}}},
    Trouble{"NoCapture", kInitial, -1, "Sensor: Device not support videio capture!\n", {.lacks = V4L2_CAP_VIDEO_CAPTURE}},
    Trouble{"NoStreaming", kInitial, -1, "Sensor: Device not support streaming i/o!\n", {.lacks = V4L2_CAP_STREAMING}},
    Trouble{"Format", kInitial, -1, "Sensor: Unable to set format!\n", {.call = VIDIOC_S_FMT, .errors = {EINVAL}}},
    Trouble{"NotMjpeg", kInitial, -1, "Sensor: unsupport mjpeg format!\n", {.pixelFormat = V4L2_PIX_FMT_YUYV}},
    Trouble{"OtherSize", kInitial, 0, "Sensor: Format asked unavailable: 320 x 240\n", {.width = 320, .height = 240}},
    Trouble{"Buffers", kInitial, -1, "Sensor: Unable to request buffers!\n", {.call = VIDIOC_REQBUFS, .errors = {ENOMEM}}},
    Trouble{"QuerySecond", kInitial, -1, "Sensor: Unable to query buffer!\n", {.call = VIDIOC_QUERYBUF, .after = 1, .errors = {EINVAL}}},
    Trouble{"MapSecond", kInitial, -1, "Sensor: Unable to map buffer!\n", {.call = FAKE_MMAP, .after = 1, .errors = {ENOMEM}}},
    Trouble{"Framerate", kInitial, -1, "Sensor: ioctl set Framerate faile!\n", {.call = VIDIOC_S_PARM, .errors = {EINVAL}}},
    Trouble{"ControlBusy", kInitial, 0, givingUp(UVCIOC_CTRL_ADD, EINTR), {.call = UVCIOC_CTRL_ADD, .errors = {EINTR, EINTR, EINTR, EINTR, EINTR}}},
    Trouble{"Queue", kGrab, PS_NO_FRAME, "Sensor: Unable to queue buffer!\nSensor: video not start\n", {.call = VIDIOC_QBUF, .after = 1, .errors = {EIO}}},
    Trouble{"Start", kGrab, PS_NO_FRAME, "Sensor: Unable to start capture!\nSensor: video not start\n", {.call = VIDIOC_STREAMON, .errors = {EIO}}},
    Trouble{"Dequeue", kGrab, -1, "Sensor: Unable to dequeue buffer!\n", {.call = VIDIOC_DQBUF, .errors = {EIO}}},
    Trouble{"Requeue", kGrab, -1, "Sensor: Unable to requeue buffer!\n", {.call = VIDIOC_QBUF, .after = 2, .errors = {EIO}}},
    Trouble{"NoFrame", kSelectGrab, PS_NO_FRAME, "", {.call = FAKE_SELECT, .errors = {ETIMEDOUT}}},
    Trouble{"Wait", kSelectGrab, -1, "Sensor: Grab error!\n", {.call = FAKE_SELECT, .errors = {EINTR}}},
    Trouble{"NotStreaming", kDisable, 0, "", {.call = VIDIOC_STREAMOFF, .errors = {EIO}}},
    Trouble{"Stop", kStop, -1, "Sensor: Unable to stop capture!\n", {.call = VIDIOC_STREAMOFF, .errors = {EIO}}},
    Trouble{"Rate", kFramerate, -1, "Sensor: ioctl set Framerate faile!\n", {.call = VIDIOC_S_PARM, .errors = {EINVAL}}},
    Trouble{"NullSensor", kNull, -6, "Sensor: device not ready\nSensor: device not ready\nSensor: device not ready\n", {}},
    Trouble{"AsicRefused", kAsic, -1, kAsicFailed, {.call = UVCIOC_CTRL_SET, .errors = {EIO}}},
    Trouble{"AsicTimedOutOnce", kAsic, 0, "", {.call = UVCIOC_CTRL_SET, .errors = {ETIMEDOUT}}},
    Trouble{"AsicBusyFourTimes", kAsic, 0, "", {.call = UVCIOC_CTRL_SET, .errors = {EAGAIN, EAGAIN, EAGAIN, EAGAIN}}},
    Trouble{"AsicInterrupted", kAsic, -1, givingUp(UVCIOC_CTRL_SET, EINTR) + kAsicFailed, {.call = UVCIOC_CTRL_SET, .errors = {EINTR, EINTR, EINTR, EINTR, EINTR}}},
    Trouble{"AsicRefusedLast", kAsic, -1, givingUp(UVCIOC_CTRL_SET, EIO) + kAsicFailed, {.call = UVCIOC_CTRL_SET, .errors = {EINTR, EINTR, EINTR, EIO}}},
    Trouble{"NoMicrophone", kSound, -1, "Sound: Unable to open device file /dev/dsp0\n", {.call = FAKE_OPEN, .errors = {ENOENT}}},
    Trouble{"SoundReset", kSound, -1, kSoundFailed, {.call = SNDCTL_DSP_RESET, .errors = {EIO}}},
    Trouble{"SoundChannels", kSound, -1, kSoundFailed, {.call = SNDCTL_DSP_CHANNELS, .errors = {EINVAL}}},
    Trouble{"SoundFormat", kSound, -1, kSoundFailed, {.call = SNDCTL_DSP_SETFMT, .errors = {EINVAL}}},
    Trouble{"SoundRate", kSound, -1, kSoundFailed, {.call = SNDCTL_DSP_SPEED, .errors = {EINVAL}}}),
    [](const auto &info) { return info.param.name; });
// clang-format on

// A destination larger than any frame after a grab of `length` bytes of `frame`.
std::vector<uint8_t> grabbed(uint32_t frame = 0, int length = 0)
{
    std::vector<uint8_t> bytes(FAKE_BUFFER_LENGTH + 64, 0x5a);
    for (int offset = 0; offset < length; offset++)
        bytes[offset] = FAKE_BYTE(frame, uint32_t(offset));
    return bytes;
}

TEST_F(Devices, SensorGrabsWithinOneDriverBufferAndSendsElevenByteCommands)
{
    ASSERT_EQ(captureStdout([&] { kInitial(sensor); }), kInitialLine);
    EXPECT_EQ(fake->timePerFrame.denominator, kFps * fake->timePerFrame.numerator);
    uint32_t frame = 0;
    for (uint32_t used : {1u, uint32_t(FAKE_BUFFER_LENGTH), FAKE_BUFFER_LENGTH + 1u, 1000u}) {
        fake->frameBytes = used;
        int length = int(used < FAKE_BUFFER_LENGTH ? used : FAKE_BUFFER_LENGTH);
        std::vector<uint8_t> dest = grabbed();
        EXPECT_EQ(psGrabImage(sensor, dest.data()), length) << used;
        EXPECT_TRUE(dest == grabbed(frame++, length)) << used;
    }

    // A frame taken by psSelectGrab stays out of the driver until psReadGrab.
    std::vector<uint8_t> dest = grabbed();
    EXPECT_EQ(psSelectGrab(sensor, 2500), 1000);
    EXPECT_EQ(fake->wait.tv_sec * 1000 + fake->wait.tv_usec / 1000, 2500);
    EXPECT_LT(fake->wait.tv_usec, 1000000);
    EXPECT_EQ(psReadGrab(sensor, dest.data()), 1000);
    EXPECT_TRUE(dest == grabbed(frame++, 1000));
    EXPECT_EQ(psSelectGrab(sensor, 0), 1000);
    EXPECT_EQ(psReadGrab(sensor, nullptr), 1000);
    // Refused: a negative timeout, descriptors from FD_SETSIZE on (the fake takes any).
    int fd = sensor->fd, length = 0;
    for (int at : {fd, FD_SETSIZE - 1, FD_SETSIZE}) {
        sensor->fd = fake->fds[FAKE_CAMERA] = at;
        std::string out = captureStdout([&] { length = psSelectGrab(sensor, at == fd ? -1 : 0); });
        EXPECT_EQ(length, at == FD_SETSIZE - 1 ? 1000 : -1) << at;
        EXPECT_EQ(out, length < 0 ? "Sensor: Grab error!\n" : "") << at;
        EXPECT_TRUE(length < 0 || psReadGrab(sensor, nullptr) == 1000);
    }
    sensor->fd = fake->fds[FAKE_CAMERA] = fd;
    EXPECT_TRUE(fake->queued[0] && fake->queued[1]) << "both buffers back with the driver";

    // An ASIC command is eleven bytes: the command's low 16 bits high byte
    // first and the value's low 8 bits.
    EXPECT_EQ(SetASICCommand(sensor->fd, 0x7abcd, 0x1ff), 0);
    const uint8_t bytes[11] = {0x81, 0xab, 0xcd, 0xff};
    EXPECT_EQ(memcmp(fake->command, bytes, sizeof bytes), 0);
}

// Released while streaming, with one buffer that will not unmap: what is
// left refuses to grab, and a second release does nothing.
TEST_F(Devices, SensorReleaseLeavesARecordThatRefusesToGrab)
{
    ASSERT_EQ(captureStdout([&] { kInitial(sensor); }), kInitialLine);
    ASSERT_EQ(psVideoEnable(sensor), 0);
    fake->trouble = {.call = FAKE_MUNMAP, .errors = {EINVAL}};
    EXPECT_EQ(captureStdout([&] { psRelease(sensor); }), "Sensor: Can't unmap buffer 0\n");
    EXPECT_EQ(fake->fds[FAKE_CAMERA], -1) << "camera left open";
    EXPECT_EQ(fake->mapped[1], 0) << "buffer left mapped";
    EXPECT_TRUE(sensor->mapped[0] == nullptr && sensor->mapped[1] == nullptr);
    EXPECT_EQ(captureStdout([&] {
                  EXPECT_EQ(psGrabImage(sensor, nullptr), -1);
                  psRelease(sensor);
              }),
              "Sensor: device not ready\n");
}

TEST_F(Devices, MicrophoneIsOpenedAloneSetUpAsAskedAndReadByDescriptor)
{
    int fd = asInitial(2, 22050, AFMT_S16_LE);
    ASSERT_EQ(fd, fake->fds[FAKE_MICROPHONE]);
    EXPECT_EQ(fake->soundFlags, O_RDONLY | O_EXCL);
    EXPECT_EQ(fake->channels, 2);
    EXPECT_EQ(fake->sampleFormat, AFMT_S16_LE);
    EXPECT_EQ(fake->rate, 22050);
    uint8_t samples[64];
    EXPECT_EQ(asRead(fd, samples, sizeof samples), int(sizeof samples));
    EXPECT_EQ(asRead(fd, samples, -1), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(asClose(fd), 0);
    EXPECT_EQ(fake->fds[FAKE_MICROPHONE], -1);
}

} // namespace
