// Base of the suites that run the library against the preloaded fake devices.
#ifndef TARVO_TESTS_CAPTURE_FAKE_DEVICE_TEST_H
#define TARVO_TESTS_CAPTURE_FAKE_DEVICE_TEST_H

#include "fake_devices.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <ostream>
#include <vector>

inline bool operator==(const FakeCall &left, const FakeCall &right)
{
    return left.kind == right.kind && left.request == right.request;
}

inline void PrintTo(const FakeCall &call, std::ostream *out)
{
    static const char *const names[] = {"open",   "ioctl", "mmap", "munmap",
                                        "select", "read",  "close"};
    *out << names[call.kind];
    if (call.kind == FAKE_IOCTL)
        *out << "(0x" << std::hex << call.request << std::dec << ")";
}

namespace tarvo::test
{

inline constexpr FakeCall kOpen{FAKE_OPEN, 0};
inline constexpr FakeCall kMmap{FAKE_MMAP, 0};
inline constexpr FakeCall kMunmap{FAKE_MUNMAP, 0};
inline constexpr FakeCall kSelect{FAKE_SELECT, 0};
inline constexpr FakeCall kRead{FAKE_READ, 0};
inline constexpr FakeCall kClose{FAKE_CLOSE, 0};

inline FakeCall ioctlCall(unsigned long request)
{
    return {FAKE_IOCTL, request};
}

class FakeDeviceTest : public ::testing::Test
{
  protected:
    // Fails every case when the fake is not preloaded: the library would
    // then look for devices that do not exist here.
    void SetUp() override
    {
        auto reset = reinterpret_cast<FakeDevices *(*)()>(dlsym(RTLD_DEFAULT, "fakeDevicesReset"));
        ASSERT_NE(reset, nullptr) << "the fake devices are not preloaded";
        fake = reset();
    }

    std::vector<FakeCall> calls() const { return {fake->calls, fake->calls + fake->callCount}; }
    void forgetCalls() const { fake->callCount = 0; }

    // The calls of `request` after the first `passing` ones fail with `errors`.
    void failRequest(unsigned long request, const std::vector<int> &errors, int passing = 0) const
    {
        fake->failRequest = request;
        int at = 0;
        for (int pass = 0; pass < passing; pass++)
            fake->failErrnos[at++] = FAKE_PASS;
        for (int error : errors)
            fake->failErrnos[at++] = error;
    }

    FakeDevices *fake = nullptr;
};

} // namespace tarvo::test

#endif
