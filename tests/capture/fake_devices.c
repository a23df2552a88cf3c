/* The C library entry points of the fake devices. */
#define _GNU_SOURCE
#include "fake_devices.h"

#include "legacy_uvc.h"

#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <linux/uvcvideo.h>
#include <stdarg.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/select.h>
#include <sys/soundcard.h>

/* The C library's own function of the same name. */
#define REAL(name) ((__typeof__(&name))dlsym(RTLD_NEXT, #name))

/* The camera's extension-unit control as it must be registered (unit 6). */
static const struct uvc_xu_control_info cameraControl = {
    "\xb0\xd0\xbb\x68\xa4\x61\x83\x4b\x90\xb7\xa6\x21\x5f\x3c\x4f\x70", 5, 6, 11,
    UVC_CTRL_FLAG_SET_CUR | UVC_CTRL_FLAG_GET_CUR};

static FakeDevices fake = {.fds = {-1, -1, -1}};

/* The devices as they come up: closed, with frames of 1000 bytes. */
FakeDevices *fakeDevicesReset(void)
{
    fake = (FakeDevices){.frameBytes = 1000, .fds = {-1, -1, -1}};
    return &fake;
}

static int refuse(int error)
{
    errno = error;
    return -1;
}

/* Whether a test asked this call of `call` to fail; sets errno then. */
static int failing(unsigned long call)
{
    FakeTrouble *trouble = &fake.trouble;
    if (call != trouble->call || trouble->after-- > 0 || fake.failUsed == 8 ||
        trouble->errors[fake.failUsed] == 0)
        return 0;
    errno = trouble->errors[fake.failUsed++];
    return 1;
}

/* Which device fd is: FAKE_CAMERA, FAKE_MICROPHONE or 0. */
static int device(int fd)
{
    if (fd >= 0 && fd == fake.fds[FAKE_CAMERA])
        return FAKE_CAMERA;
    return fd >= 0 && fd == fake.fds[FAKE_MICROPHONE] ? FAKE_MICROPHONE : 0;
}

/* The devices read as /dev/zero. */
int open(const char *path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    int needsMode = (flags & O_CREAT) || (flags & O_TMPFILE) == O_TMPFILE;
    mode_t mode = needsMode ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    int which = strcmp(path, "/dev/video0") == 0 ? FAKE_CAMERA
                : strcmp(path, "/dev/dsp0") == 0 ? FAKE_MICROPHONE
                                                 : 0;
    if (which == 0)
        return REAL(open)(path, flags, mode);
    if (failing(FAKE_OPEN))
        return -1;
    if (which == FAKE_MICROPHONE)
        fake.soundFlags = flags;
    return fake.fds[which] = REAL(open)("/dev/zero", O_RDONLY);
}

/* A queued buffer is the driver's to fill at any time: here at once. */
static int queueBuffer(struct v4l2_buffer *buffer)
{
    uint32_t index = buffer->index;
    if (buffer->memory != V4L2_MEMORY_MMAP || index >= 2 || fake.queued[index])
        return refuse(EINVAL);
    for (uint32_t offset = 0; offset < FAKE_BUFFER_LENGTH; offset++)
        fake.memory[index][offset] = FAKE_BYTE(fake.nextFrame, offset);
    fake.queued[index] = ++fake.nextFrame;
    buffer->length = FAKE_BUFFER_LENGTH;
    return 0;
}

/* Hands out the buffer queued first. */
static int dequeueBuffer(struct v4l2_buffer *buffer)
{
    const uint32_t *queued = fake.queued;
    uint32_t first = queued[1] && (!queued[0] || queued[1] < queued[0]);
    if (!fake.streaming || !queued[first])
        return refuse(EINVAL);
    fake.queued[first] = 0;
    buffer->index = first;
    buffer->length = FAKE_BUFFER_LENGTH;
    buffer->bytesused = fake.frameBytes;
    return 0;
}

static int cameraIoctl(unsigned long request, void *argument)
{
    const FakeTrouble *answer = &fake.trouble;
    struct v4l2_capability *capability = argument;
    struct v4l2_pix_format *format = &((struct v4l2_format *)argument)->fmt.pix;
    struct v4l2_buffer *buffer = argument;
    struct uvc_xu_control *control = argument;
    switch (request) {
    case VIDIOC_QUERYCAP:
        capability->capabilities = ~answer->lacks & (V4L2_CAP_VIDEO_CAPTURE | V4L2_CAP_STREAMING);
        return 0;
    case VIDIOC_S_FMT:
        format->width = answer->width ? answer->width : format->width;
        format->height = answer->height ? answer->height : format->height;
        format->pixelformat = answer->pixelFormat ? answer->pixelFormat : format->pixelformat;
        return 0;
    case VIDIOC_QUERYBUF:
        buffer->length = FAKE_BUFFER_LENGTH;
        buffer->m.offset = buffer->index * FAKE_BUFFER_LENGTH;
        return buffer->index < 2 ? 0 : refuse(EINVAL);
    case VIDIOC_S_PARM:
        fake.timePerFrame = ((struct v4l2_streamparm *)argument)->parm.capture.timeperframe;
        return 0;
    case VIDIOC_QBUF:
        return queueBuffer(buffer);
    case VIDIOC_DQBUF:
        return dequeueBuffer(buffer);
    case VIDIOC_STREAMON:
    case VIDIOC_STREAMOFF:
        fake.streaming = request == VIDIOC_STREAMON;
        return 0;
    case UVCIOC_CTRL_ADD:
        fake.controlAdded = memcmp(argument, &cameraControl, sizeof cameraControl) == 0;
        return fake.controlAdded ? 0 : refuse(EINVAL);
    case UVCIOC_CTRL_SET: /* for the registered control of the unit only */
        if (!fake.controlAdded || control->unit != 6 ||
            control->selector != cameraControl.selector || control->size != cameraControl.size)
            return refuse(ENOENT);
        memcpy(fake.command, control->data, sizeof fake.command);
        return 0;
    }
    return request == VIDIOC_REQBUFS ? 0 : refuse(ENOTTY);
}

/* A reset unsets everything, and a change of channels or format unsets the
 * rate, as on many cards: it is set last. */
static int soundIoctl(unsigned long request, const int *value)
{
    if (request == SNDCTL_DSP_RESET)
        fake.channels = fake.sampleFormat = 0;
    else if (request == SNDCTL_DSP_CHANNELS)
        fake.channels = *value;
    else if (request == SNDCTL_DSP_SETFMT)
        fake.sampleFormat = *value;
    else if (request != SNDCTL_DSP_SPEED)
        return refuse(ENOTTY);
    fake.rate = request == SNDCTL_DSP_SPEED ? *value : 0;
    return 0;
}

int ioctl(int fd, unsigned long request, ...)
{
    va_list arguments;
    va_start(arguments, request);
    void *argument = va_arg(arguments, void *);
    va_end(arguments);
    int which = device(fd);
    if (which == 0)
        return REAL(ioctl)(fd, request, argument);
    if (failing(request))
        return -1;
    return which == FAKE_CAMERA ? cameraIoctl(request, argument) : soundIoctl(request, argument);
}

/* Buffer i lies at offset i * FAKE_BUFFER_LENGTH; the driver maps shared only. */
void *mmap(void *address, size_t length, int prot, int flags, int fd, off_t offset)
{
    size_t index = (size_t)offset / FAKE_BUFFER_LENGTH;
    if (device(fd) != FAKE_CAMERA)
        return REAL(mmap)(address, length, prot, flags, fd, offset);
    if (failing(FAKE_MMAP))
        return MAP_FAILED;
    if (!(flags & MAP_SHARED) || index >= 2) {
        errno = EINVAL;
        return MAP_FAILED;
    }
    fake.mapped[index] = 1;
    return fake.memory[index];
}

/* A shorter length leaves the buffer's tail mapped. */
int munmap(void *address, size_t length)
{
    for (int index = 0; index < 2; index++) {
        if (address != fake.memory[index])
            continue;
        if (failing(FAKE_MUNMAP))
            return -1;
        fake.mapped[index] = length < FAKE_BUFFER_LENGTH;
        return 0;
    }
    return REAL(munmap)(address, length);
}

/* A frame is always ready at once. */
int select(int count, fd_set *readable, fd_set *writable, fd_set *failed, struct timeval *timeout)
{
    int fd = fake.fds[FAKE_CAMERA];
    if (fd < 0 || fd >= count || readable == NULL || !FD_ISSET(fd, readable))
        return REAL(select)(count, readable, writable, failed, timeout);
    if (failing(FAKE_SELECT)) /* ETIMEDOUT: the wait times out */
        return errno == ETIMEDOUT ? 0 : -1;
    fake.wait = *timeout;
    return 1;
}

/* fds[0] stands for every other descriptor. */
int close(int fd)
{
    fake.fds[device(fd)] = -1;
    return REAL(close)(fd);
}
