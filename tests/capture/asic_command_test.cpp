// Commands to the sensor's image processor through the fake camera.
#include "tarvo/sensor.h"

#include "sensor_test.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

using namespace tarvo::test;

namespace
{

using AsicCommand = SensorTest;

TEST_F(AsicCommand, SendsElevenBytesToUnitSixSelectorSix)
{
    struct Case {
        int command, value;
        uint8_t bytes[11];
    };
    for (const Case &c : {Case{0x1234, 0x56, {0x81, 0x12, 0x34, 0x56}},
                          Case{0x7abcd, 0x1ff, {0x81, 0xab, 0xcd, 0xff}}}) {
        EXPECT_EQ(SetASICCommand(sensor->fd, c.command, c.value), 0);
        EXPECT_EQ(fake->sentControl.unit, 6);
        EXPECT_EQ(fake->sentControl.selector, 6);
        EXPECT_EQ(fake->sentControl.size, 11);
        EXPECT_EQ(memcmp(fake->sentData, c.bytes, sizeof c.bytes), 0) << std::hex << c.command;
    }
}

std::string givingUp(int error)
{
    return "Sensor: ioctl (" + std::to_string(int(UVCIOC_CTRL_SET)) +
           ") retried 4 times - giving up: " + strerror(error) + ")\n";
}

struct RetryCase {
    const char *name;
    std::vector<int> errors;
    int result;
    size_t callsMade;
    std::string lines;
};

class AsicRetry : public SensorTest, public ::testing::WithParamInterface<RetryCase>
{
};

TEST_P(AsicRetry, RetriesPassingFailuresFourTimes)
{
    const RetryCase &c = GetParam();
    failRequest(UVCIOC_CTRL_SET, c.errors);
    EXPECT_EQ(captureStdout([&] { EXPECT_EQ(SetASICCommand(sensor->fd, 1, 2), c.result); }),
              c.lines);
    EXPECT_EQ(calls(), std::vector<FakeCall>(c.callsMade, ioctlCall(UVCIOC_CTRL_SET)));
}

const std::string kFailed = "Sensor: Set ASIC failed\n";

INSTANTIATE_TEST_SUITE_P(
    Errors, AsicRetry,
    ::testing::Values(
        RetryCase{"InterruptedFiveTimes",
                  {EINTR, EINTR, EINTR, EINTR, EINTR},
                  -1,
                  5,
                  givingUp(EINTR) + kFailed},
        RetryCase{"BusyFourTimes", {EAGAIN, EAGAIN, EAGAIN, EAGAIN}, 0, 5, ""},
        RetryCase{"TimedOutOnce", {ETIMEDOUT}, 0, 2, ""},
        RetryCase{"Refused", {EIO}, -1, 1, kFailed},
        RetryCase{"RefusedOnRetry", {EINTR, EIO}, -1, 2, kFailed},
        RetryCase{
            "RefusedWithNoRetryLeft", {EINTR, EINTR, EINTR, EIO}, -1, 4, givingUp(EIO) + kFailed}),
    [](const auto &info) { return info.param.name; });

} // namespace
