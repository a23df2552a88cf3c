// Recording from the fake sound device.
#include "tarvo/sound.h"

#include "fake_device_test.h"
#include "support/capture.h"
#include "support/child.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/soundcard.h>
#include <vector>

using namespace tarvo::test;

namespace
{

const std::vector<FakeCall> kSetUp = {kOpen, ioctlCall(SNDCTL_DSP_RESET),
                                      ioctlCall(SNDCTL_DSP_CHANNELS), ioctlCall(SNDCTL_DSP_SETFMT),
                                      ioctlCall(SNDCTL_DSP_SPEED)};

using SoundDevice = FakeDeviceTest;

TEST_F(SoundDevice, OpensExclusivelyAndSetsUpInOrder)
{
    int fd = asInitial(2, 22050, AFMT_S16_LE);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(fd, fake->soundFd);
    EXPECT_EQ(fake->soundFlags & O_ACCMODE, O_RDONLY);
    EXPECT_EQ(fake->soundFlags & O_EXCL, O_EXCL);
    EXPECT_EQ(calls(), kSetUp);
    EXPECT_EQ(fake->channels, 2);
    EXPECT_EQ(fake->format, AFMT_S16_LE);
    EXPECT_EQ(fake->rate, 22050);

    uint8_t samples[64] = {};
    EXPECT_EQ(asRead(fd, samples, sizeof samples), int(sizeof samples));
    EXPECT_EQ(samples[63], fakeByte(0, 63));
    EXPECT_EQ(asClose(fd), 0);
    EXPECT_EQ(fake->soundFd, -1);
    EXPECT_EQ(calls().back(), kClose);
}

class RefusedSetUp : public FakeDeviceTest, public ::testing::WithParamInterface<size_t>
{
};

TEST_P(RefusedSetUp, SaysSoAndClosesTheDevice)
{
    size_t refused = GetParam();
    failRequest(kSetUp[refused].request, {EINVAL});
    EXPECT_EQ(captureStdout([] { EXPECT_EQ(asInitial(1, 8000, AFMT_U8), -1); }),
              "Sound: Set Format fail!\n");
    std::vector<FakeCall> made(kSetUp.begin(), kSetUp.begin() + refused + 1);
    made.push_back(kClose);
    EXPECT_EQ(calls(), made);
    EXPECT_EQ(fake->soundFd, -1) << "device left open";
}

// Each request after the open, refused in turn.
INSTANTIATE_TEST_SUITE_P(Requests, RefusedSetUp, ::testing::Range<size_t>(1, 5));

TEST_F(SoundDevice, SecondOpenFailsWhileAnotherProcessRecords)
{
    int fd = asInitial(1, 8000, AFMT_U8);
    ASSERT_GE(fd, 0);
    Child other([] {
        int result = 0;
        std::string printed = captureStdout([&] { result = asInitial(1, 8000, AFMT_U8); });
        return result == -1 && printed == "Sound: Unable to open device file /dev/dsp0\n" ? 0 : 1;
    });
    EXPECT_EQ(other.wait(), 0);
    EXPECT_EQ(asClose(fd), 0);

    fd = asInitial(1, 8000, AFMT_U8);
    EXPECT_GE(fd, 0) << "free again once closed";
    asClose(fd);
}

} // namespace
