// The sensor's image processor (ASIC), reached through one vendor control of
// a UVC extension unit: its registration and the commands sent through it.
#include "legacy_uvc.h"
#include "sensor_internal.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <linux/uvcvideo.h>
#include <sys/ioctl.h>

namespace
{

constexpr int kRetries = 4;

constexpr __u8 kUnitGuid[16] = {0xb0, 0xd0, 0xbb, 0x68, 0xa4, 0x61, 0x83, 0x4b,
                                0x90, 0xb7, 0xa6, 0x21, 0x5f, 0x3c, 0x4f, 0x70};
constexpr __u8 kControlIndex = 5;
constexpr __u8 kUnit = 6;
constexpr __u8 kSelector = 6;
constexpr __u16 kCommandSize = 11;
constexpr __u8 kCommandMark = 0x81;

bool worthRetrying(int error)
{
    return error == EINTR || error == EAGAIN || error == ETIMEDOUT;
}

// One extension-unit request, made again while it fails for a passing reason
// and retries are left: 0, or the failed call's result.  Says so when it
// gives up with the retries used up.
int controlWithRetries(int fd, unsigned long request, void *argument)
{
    int retriesLeft = kRetries;
    for (;;) {
        int result = ioctl(fd, request, argument);
        if (result == 0)
            return 0;
        int error = errno;
        retriesLeft--;
        if (retriesLeft >= 0 && worthRetrying(error))
            continue;
        if (retriesLeft <= 0)
            printf("Sensor: ioctl (%i) retried %i times - giving up: %s)\n", int(request), kRetries,
                   strerror(error));
        errno = error;
        return result;
    }
}

} // namespace

void tarvo::capture::addAsicControl(int fd)
{
    uvc_xu_control_info control{};
    memcpy(control.entity, kUnitGuid, sizeof kUnitGuid);
    control.index = kControlIndex;
    control.selector = kSelector;
    control.size = kCommandSize;
    control.flags = UVC_CTRL_FLAG_SET_CUR | UVC_CTRL_FLAG_GET_CUR;
    controlWithRetries(fd, UVCIOC_CTRL_ADD, &control);
}

extern "C" int SetASICCommand(int fd, int command, int value)
{
    __u8 data[kCommandSize] = {kCommandMark, __u8(command >> 8), __u8(command), __u8(value)};
    uvc_xu_control control{kUnit, kSelector, kCommandSize, data};
    if (controlWithRetries(fd, UVCIOC_CTRL_SET, &control) != 0) {
        puts("Sensor: Set ASIC failed");
        return -1;
    }
    return 0;
}
