// Starting and stopping the sensor's stream, and its frame rate.
#include "sensor_internal.h"

#include <cstdio>
#include <cstring>
#include <sys/ioctl.h>

using tarvo::capture::prepareBuffer;

extern "C" {

int psVideoEnable(SensorDevice *sensor)
{
    if (sensor == nullptr)
        return -1;
    for (uint32_t index = 0; index < PS_BUFFER_COUNT; index++) {
        if (ioctl(sensor->fd, VIDIOC_QBUF, &prepareBuffer(sensor->buffer, index)) < 0) {
            puts("Sensor: Unable to queue buffer!");
            return -1;
        }
    }
    int type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    if (ioctl(sensor->fd, VIDIOC_STREAMON, &type) < 0) {
        puts("Sensor: Unable to start capture!");
        return -1;
    }
    sensor->streaming = 1;
    return 0;
}

int psVideoDisable(SensorDevice *sensor)
{
    if (sensor == nullptr)
        return -1;
    if (!sensor->streaming)
        return 0;
    int type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    if (ioctl(sensor->fd, VIDIOC_STREAMOFF, &type) < 0) {
        puts("Sensor: Unable to stop capture!");
        return -1;
    }
    sensor->streaming = 0;
    return 0;
}

int psSetFramerate(SensorDevice *sensor, int fps)
{
    if (sensor == nullptr)
        return -1;
    v4l2_streamparm &parm = sensor->streamParm;
    memset(&parm, 0, sizeof parm);
    parm.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    parm.parm.capture.timeperframe.numerator = 1;
    parm.parm.capture.timeperframe.denominator = fps;
    if (ioctl(sensor->fd, VIDIOC_S_PARM, &parm) < 0) {
        puts("Sensor: ioctl set Framerate faile!");
        return -1;
    }
    sensor->framerate = fps;
    return 0;
}

} // extern "C"
