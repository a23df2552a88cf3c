// Taking frames from the running stream: copied at once, or taken after a
// bounded wait and copied later.
#include "sensor_internal.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <sys/ioctl.h>
#include <sys/select.h>

using tarvo::capture::prepareBuffer;

namespace
{

// Whether the handle can grab; says so when it cannot.
bool ready(const SensorDevice *sensor)
{
    if (sensor == nullptr || !sensor->ready || sensor->fd < 0) {
        puts("Sensor: device not ready");
        return false;
    }
    return true;
}

// Starts the stream unless it runs: false when it would not start.
bool streaming(SensorDevice &sensor)
{
    if (sensor.streaming || psVideoEnable(&sensor) == 0)
        return true;
    puts("Sensor: video not start");
    return false;
}

// The used bytes of the kept buffer, bounded by the buffer's length.
int frameLength(const SensorDevice &sensor)
{
    return int(std::min(sensor.buffer.bytesused, sensor.buffer.length));
}

// Takes the next filled buffer from the driver into the kept record, which
// therefore always names one of the mapped buffers.
bool dequeue(SensorDevice &sensor)
{
    v4l2_buffer buffer;
    if (ioctl(sensor.fd, VIDIOC_DQBUF, &prepareBuffer(buffer, 0)) < 0 ||
        buffer.index >= PS_BUFFER_COUNT) {
        puts("Sensor: Unable to dequeue buffer!");
        return false;
    }
    sensor.buffer = buffer;
    return true;
}

// Copies the kept buffer's frame (unless dest is null) and gives the buffer
// back: the frame's length, or -1.
int copyAndRequeue(SensorDevice &sensor, void *dest)
{
    int length = frameLength(sensor);
    if (dest != nullptr)
        memcpy(dest, sensor.mapped[sensor.buffer.index], length);
    if (ioctl(sensor.fd, VIDIOC_QBUF, &sensor.buffer) < 0) {
        puts("Sensor: Unable to requeue buffer!");
        return -1;
    }
    return length;
}

// Whether a frame is ready within timeout milliseconds: 1, 0, or -1 (also
// for a negative timeout and a descriptor select cannot watch).
int awaitFrame(int fd, int timeout)
{
    if (timeout < 0 || fd >= FD_SETSIZE)
        return -1;
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(fd, &readable);
    timeval wait{timeout / 1000, timeout % 1000 * 1000};
    int result = select(fd + 1, &readable, nullptr, nullptr, &wait);
    if (result <= 0)
        return result;
    return FD_ISSET(fd, &readable) ? 1 : 0;
}

} // namespace

extern "C" {

int psGrabImage(SensorDevice *sensor, void *dest)
{
    if (!ready(sensor))
        return -1;
    if (!streaming(*sensor))
        return PS_NO_FRAME;
    if (!dequeue(*sensor))
        return -1;
    return copyAndRequeue(*sensor, dest);
}

int psSelectGrab(SensorDevice *sensor, int timeout)
{
    if (!ready(sensor))
        return -1;
    if (!streaming(*sensor))
        return PS_NO_FRAME;
    int frame = awaitFrame(sensor->fd, timeout);
    if (frame < 0) {
        puts("Sensor: Grab error!");
        return -1;
    }
    if (frame == 0)
        return PS_NO_FRAME;
    if (!dequeue(*sensor))
        return -1;
    return frameLength(*sensor);
}

int psReadGrab(SensorDevice *sensor, void *dest)
{
    if (!ready(sensor))
        return -1;
    return copyAndRequeue(*sensor, dest);
}

} // extern "C"
