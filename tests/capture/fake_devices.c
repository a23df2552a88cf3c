/* The C library entry points of the fake devices: calls on the fake camera
 * and sound device are recorded and answered here, all others passed on. */
#define _GNU_SOURCE
#include "fake_devices.h"

#include "fake_camera.h"

#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/select.h>
#include <sys/soundcard.h>
#include <unistd.h>

#define CAMERA_PATH "/dev/video0"
#define SOUND_PATH "/dev/dsp0"

/* The C library's own function of the same name. */
#define REAL(name) ((__typeof__(&name))realFunction(#name))

static FakeDevices *fake;

static void *realFunction(const char *name)
{
    void *function = dlsym(RTLD_NEXT, name);
    if (function == NULL)
        abort();
    return function;
}

FakeDevices *fakeDevicesReset(void)
{
    uint8_t *memory[FAKE_BUFFER_COUNT];
    memcpy(memory, fake->memory, sizeof memory);
    memset(fake, 0, sizeof *fake);
    memcpy(fake->memory, memory, sizeof memory);
    fake->capabilities = V4L2_CAP_VIDEO_CAPTURE | V4L2_CAP_STREAMING;
    fake->frameBytes = 1000;
    fake->videoFd = -1;
    fake->soundFd = -1;
    return fake;
}

/* The state, made on first use: possibly from another object's constructor,
 * at the latest from this object's, before a test forks, so that its
 * children share the devices. */
static FakeDevices *devices(void)
{
    if (fake != NULL)
        return fake;
    FakeDevices *state =
        REAL(mmap)(NULL, sizeof *state, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    uint8_t *memory = REAL(mmap)(NULL, FAKE_BUFFER_COUNT * FAKE_BUFFER_LENGTH,
                                 PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (state == MAP_FAILED || memory == MAP_FAILED)
        abort();
    for (int index = 0; index < FAKE_BUFFER_COUNT; index++)
        state->memory[index] = memory + index * FAKE_BUFFER_LENGTH;
    fake = state;
    return fakeDevicesReset();
}

__attribute__((constructor)) static void createDevices(void)
{
    devices();
}

static int refuse(int error)
{
    errno = error;
    return -1;
}

static void record(int kind, unsigned long request)
{
    if (fake->callCount < FAKE_MAX_CALLS)
        fake->calls[fake->callCount++] = (FakeCall){kind, request};
}

/* The error a test asked this call of `request` to fail with, or 0. */
static int nextFailure(unsigned long request)
{
    if (request != fake->failRequest || fake->failuresUsed >= FAKE_MAX_FAILURES)
        return 0;
    int error = fake->failErrnos[fake->failuresUsed];
    if (error == 0)
        return 0;
    fake->failuresUsed++;
    return error == FAKE_PASS ? 0 : error;
}

static int isCamera(int fd)
{
    return fd >= 0 && fd == devices()->videoFd;
}

static int isSound(int fd)
{
    return fd >= 0 && fd == devices()->soundFd;
}

/* A device opened a second time is busy, as with both drivers. */
static int openDevice(int *fd, int *openFlags, int flags)
{
    record(FAKE_OPEN, 0);
    if (*fd >= 0)
        return refuse(EBUSY);
    *fd = REAL(open)("/dev/null", O_RDWR);
    *openFlags = flags;
    return *fd;
}

int open(const char *path, int flags, ...)
{
    FakeDevices *state = devices();
    if (strcmp(path, CAMERA_PATH) == 0)
        return openDevice(&state->videoFd, &state->videoFlags, flags);
    if (strcmp(path, SOUND_PATH) == 0)
        return openDevice(&state->soundFd, &state->soundFlags, flags);
    mode_t mode = 0;
    if ((flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE) {
        va_list arguments;
        va_start(arguments, flags);
        mode = va_arg(arguments, mode_t);
        va_end(arguments);
    }
    return REAL(open)(path, flags, mode);
}

static int soundIoctl(unsigned long request, void *argument)
{
    switch (request) {
    case SNDCTL_DSP_RESET:
        return 0;
    case SNDCTL_DSP_CHANNELS:
        fake->channels = *(int *)argument;
        return 0;
    case SNDCTL_DSP_SETFMT:
        fake->format = *(int *)argument;
        return 0;
    case SNDCTL_DSP_SPEED:
        fake->rate = *(int *)argument;
        return 0;
    default:
        return refuse(ENOTTY);
    }
}

int ioctl(int fd, unsigned long request, ...)
{
    va_list arguments;
    va_start(arguments, request);
    void *argument = va_arg(arguments, void *);
    va_end(arguments);
    if (!isCamera(fd) && !isSound(fd))
        return REAL(ioctl)(fd, request, argument);
    record(FAKE_IOCTL, request);
    int error = nextFailure(request);
    if (error != 0)
        return refuse(error);
    if (isCamera(fd))
        return fakeCameraIoctl(fake, request, argument);
    return soundIoctl(request, argument);
}

/* Buffer i of the camera lies at offset i * FAKE_BUFFER_LENGTH. */
void *mmap(void *address, size_t length, int prot, int flags, int fd, off_t offset)
{
    if (!isCamera(fd))
        return REAL(mmap)(address, length, prot, flags, fd, offset);
    record(FAKE_MMAP, 0);
    fake->mapProt = prot;
    fake->mapFlags = flags;
    size_t index = (size_t)offset / FAKE_BUFFER_LENGTH;
    if (fake->failMmap != 0 || offset % FAKE_BUFFER_LENGTH != 0 || index >= FAKE_BUFFER_COUNT ||
        length > FAKE_BUFFER_LENGTH) {
        errno = fake->failMmap != 0 ? fake->failMmap : EINVAL;
        return MAP_FAILED;
    }
    fake->mapped[index] = 1;
    return fake->memory[index];
}

int munmap(void *address, size_t length)
{
    FakeDevices *state = devices();
    for (int index = 0; index < FAKE_BUFFER_COUNT; index++) {
        if (address != state->memory[index])
            continue;
        record(FAKE_MUNMAP, 0);
        state->unmapLength[index] = length;
        if (state->failMunmap != 0)
            return refuse(state->failMunmap);
        state->mapped[index] = 0;
        return 0;
    }
    return REAL(munmap)(address, length);
}

/* The camera is readable while it streams with a buffer queued and frames
 * coming.  Without a frame the wait ends at once, as if it had timed out. */
int select(int count, fd_set *readable, fd_set *writable, fd_set *failed, struct timeval *timeout)
{
    int fd = devices()->videoFd;
    if (fd < 0 || fd >= count || readable == NULL || !FD_ISSET(fd, readable))
        return REAL(select)(count, readable, writable, failed, timeout);
    record(FAKE_SELECT, 0);
    if (timeout != NULL)
        fake->selectTimeout = *timeout;
    if (fake->failSelect != 0)
        return refuse(fake->failSelect);
    int frame = fake->streaming && !fake->noFrame && (fake->queued[0] != 0 || fake->queued[1] != 0);
    FD_ZERO(readable);
    if (writable != NULL)
        FD_ZERO(writable);
    if (failed != NULL)
        FD_ZERO(failed);
    if (frame)
        FD_SET(fd, readable);
    return frame;
}

ssize_t read(int fd, void *buffer, size_t count)
{
    if (!isSound(fd))
        return REAL(read)(fd, buffer, count);
    record(FAKE_READ, 0);
    for (size_t offset = 0; offset < count; offset++)
        ((uint8_t *)buffer)[offset] = fakeByte(0, (uint32_t)offset);
    return (ssize_t)count;
}

int close(int fd)
{
    if (isCamera(fd)) {
        record(FAKE_CLOSE, 0);
        fake->videoFd = -1;
        fake->streaming = 0;
        memset(fake->queued, 0, sizeof fake->queued);
    } else if (isSound(fd)) {
        record(FAKE_CLOSE, 0);
        fake->soundFd = -1;
    }
    return REAL(close)(fd);
}
