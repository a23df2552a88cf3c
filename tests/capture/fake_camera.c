/* A UVC camera as its driver answers: two mmap buffers, a queue, MJPEG. */
#include "fake_camera.h"

#include <errno.h>
#include <string.h>

static int refuse(int error)
{
    errno = error;
    return -1;
}

static int isCaptureType(uint32_t type)
{
    return type == V4L2_BUF_TYPE_VIDEO_CAPTURE;
}

/* Fills in what the driver says about buffer `index`. */
static void describeBuffer(struct v4l2_buffer *buffer, uint32_t index)
{
    buffer->index = index;
    buffer->length = FAKE_BUFFER_LENGTH;
    buffer->m.offset = index * FAKE_BUFFER_LENGTH;
    buffer->flags = V4L2_BUF_FLAG_MAPPED;
}

static int setFormat(FakeDevices *fake, struct v4l2_format *format)
{
    if (!isCaptureType(format->type))
        return refuse(EINVAL);
    fake->askedFormat = *format;
    struct v4l2_pix_format *pix = &format->fmt.pix;
    if (fake->answerWidth != 0) {
        pix->width = fake->answerWidth;
        pix->height = fake->answerHeight;
    }
    if (fake->answerPixelFormat != 0)
        pix->pixelformat = fake->answerPixelFormat;
    pix->field = V4L2_FIELD_NONE;
    pix->sizeimage = FAKE_BUFFER_LENGTH;
    return 0;
}

static int queueBuffer(FakeDevices *fake, struct v4l2_buffer *buffer)
{
    if (!isCaptureType(buffer->type) || buffer->memory != V4L2_MEMORY_MMAP ||
        buffer->index >= FAKE_BUFFER_COUNT || fake->queued[buffer->index] != 0)
        return refuse(EINVAL);
    fake->queued[buffer->index] = ++fake->queueTicket;
    describeBuffer(buffer, buffer->index);
    buffer->flags |= V4L2_BUF_FLAG_QUEUED;
    return 0;
}

/* Hands out the buffer queued first, filled with the next frame. */
static int dequeueBuffer(FakeDevices *fake, struct v4l2_buffer *buffer)
{
    if (!isCaptureType(buffer->type) || buffer->memory != V4L2_MEMORY_MMAP || !fake->streaming)
        return refuse(EINVAL);
    int first = -1;
    for (int index = 0; index < FAKE_BUFFER_COUNT; index++) {
        if (fake->queued[index] != 0 && (first < 0 || fake->queued[index] < fake->queued[first]))
            first = index;
    }
    if (first < 0)
        return refuse(EINVAL);
    if (fake->noFrame)
        return refuse(EAGAIN);
    uint32_t filled = fake->frameBytes < FAKE_BUFFER_LENGTH ? fake->frameBytes : FAKE_BUFFER_LENGTH;
    for (uint32_t offset = 0; offset < filled; offset++)
        fake->memory[first][offset] = fakeByte(fake->frames, offset);
    fake->queued[first] = 0;
    describeBuffer(buffer, (uint32_t)first);
    buffer->bytesused = fake->frameBytes;
    buffer->sequence = fake->frames++;
    buffer->flags |= V4L2_BUF_FLAG_DONE;
    return 0;
}

static int setStreaming(FakeDevices *fake, const int *type, int on)
{
    if (!isCaptureType((uint32_t)*type))
        return refuse(EINVAL);
    fake->streaming = on;
    if (!on)
        memset(fake->queued, 0, sizeof fake->queued);
    return 0;
}

static int sendControl(FakeDevices *fake, const struct uvc_xu_control *control)
{
    fake->sentControl = *control;
    size_t size = control->size < sizeof fake->sentData ? control->size : sizeof fake->sentData;
    memcpy(fake->sentData, control->data, size);
    return 0;
}

int fakeCameraIoctl(FakeDevices *fake, unsigned long request, void *argument)
{
    switch (request) {
    case VIDIOC_QUERYCAP: {
        struct v4l2_capability *capability = argument;
        memset(capability, 0, sizeof *capability);
        strcpy((char *)capability->driver, "fakecam");
        capability->capabilities = fake->capabilities | V4L2_CAP_DEVICE_CAPS;
        capability->device_caps = fake->capabilities;
        return 0;
    }
    case VIDIOC_S_FMT:
        return setFormat(fake, argument);
    case VIDIOC_REQBUFS: {
        struct v4l2_requestbuffers *request = argument;
        fake->askedBuffers = *request;
        if (!isCaptureType(request->type) || request->memory != V4L2_MEMORY_MMAP)
            return refuse(EINVAL);
        request->count = FAKE_BUFFER_COUNT;
        return 0;
    }
    case VIDIOC_QUERYBUF: {
        struct v4l2_buffer *buffer = argument;
        if (!isCaptureType(buffer->type) || buffer->index >= FAKE_BUFFER_COUNT)
            return refuse(EINVAL);
        describeBuffer(buffer, buffer->index);
        return 0;
    }
    case VIDIOC_S_PARM:
        fake->askedParm = *(struct v4l2_streamparm *)argument;
        return 0;
    case VIDIOC_QBUF:
        return queueBuffer(fake, argument);
    case VIDIOC_DQBUF:
        return dequeueBuffer(fake, argument);
    case VIDIOC_STREAMON:
        return setStreaming(fake, argument, 1);
    case VIDIOC_STREAMOFF:
        return setStreaming(fake, argument, 0);
    case UVCIOC_CTRL_ADD:
        fake->addedControl = *(struct uvc_xu_control_info *)argument;
        return 0;
    case UVCIOC_CTRL_SET:
        return sendControl(fake, argument);
    default:
        return refuse(ENOTTY);
    }
}
