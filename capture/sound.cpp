// The microphone through the Open Sound System, named by its descriptor.
#include "tarvo/sound.h"

#include "util/descriptor.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/soundcard.h>
#include <unistd.h>

using tarvo::Descriptor;

namespace
{

// Resets the device and sets channels, sample format and rate, in that order.
bool setFormat(int fd, int channels, int rate, int format)
{
    return ioctl(fd, SNDCTL_DSP_RESET, nullptr) >= 0 &&
           ioctl(fd, SNDCTL_DSP_CHANNELS, &channels) >= 0 &&
           ioctl(fd, SNDCTL_DSP_SETFMT, &format) >= 0 && ioctl(fd, SNDCTL_DSP_SPEED, &rate) >= 0;
}

} // namespace

extern "C" {

int asInitial(int channels, int rate, int format)
{
    Descriptor device(open(AS_DEVICE_PATH, O_RDONLY | O_EXCL));
    if (device.get() < 0) {
        printf("Sound: Unable to open device file %s\n", AS_DEVICE_PATH);
        return -1;
    }
    if (!setFormat(device.get(), channels, rate, format)) {
        puts("Sound: Set Format fail!");
        return -1;
    }
    return device.release();
}

int asRead(int fd, void *buffer, int length)
{
    if (length < 0) {
        errno = EINVAL;
        return -1;
    }
    return int(read(fd, buffer, size_t(length)));
}

int asClose(int fd)
{
    return close(fd);
}

} // extern "C"
