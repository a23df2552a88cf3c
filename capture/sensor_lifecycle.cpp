// Opening the sensor for memory-mapped MJPEG streaming, and letting it go.
#include "guards.h"
#include "util/descriptor.h"
#include "sensor_internal.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

using tarvo::Descriptor;
using tarvo::capture::Mapping;
using tarvo::capture::prepareBuffer;

namespace
{

// Whether the device captures video by streaming.
bool checkCapabilities(SensorDevice &sensor)
{
    if (ioctl(sensor.fd, VIDIOC_QUERYCAP, &sensor.capability) < 0) {
        puts("Sensor: Unable to query device!");
        return false;
    }
    if (!(sensor.capability.capabilities & V4L2_CAP_VIDEO_CAPTURE)) {
        puts("Sensor: Device not support videio capture!");
        return false;
    }
    if (!(sensor.capability.capabilities & V4L2_CAP_STREAMING)) {
        puts("Sensor: Device not support streaming i/o!");
        return false;
    }
    return true;
}

// Asks for the handle's size in MJPEG; a driver's other size is taken on.
bool setFormat(SensorDevice &sensor)
{
    v4l2_format &format = sensor.format;
    format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    format.fmt.pix.width = sensor.width;
    format.fmt.pix.height = sensor.height;
    format.fmt.pix.pixelformat = V4L2_PIX_FMT_MJPEG;
    format.fmt.pix.field = V4L2_FIELD_ANY;
    if (ioctl(sensor.fd, VIDIOC_S_FMT, &format) < 0) {
        puts("Sensor: Unable to set format!");
        return false;
    }
    if (format.fmt.pix.pixelformat != V4L2_PIX_FMT_MJPEG) {
        puts("Sensor: unsupport mjpeg format!");
        return false;
    }
    if (int(format.fmt.pix.width) != sensor.width || int(format.fmt.pix.height) != sensor.height) {
        sensor.width = int(format.fmt.pix.width);
        sensor.height = int(format.fmt.pix.height);
        printf("Sensor: Format asked unavailable: %d x %d\n", sensor.width, sensor.height);
    }
    return true;
}

bool requestBuffers(SensorDevice &sensor)
{
    v4l2_requestbuffers &request = sensor.request;
    request.count = PS_BUFFER_COUNT;
    request.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    request.memory = V4L2_MEMORY_MMAP;
    if (ioctl(sensor.fd, VIDIOC_REQBUFS, &request) < 0) {
        puts("Sensor: Unable to request buffers!");
        return false;
    }
    return true;
}

bool mapBuffer(SensorDevice &sensor, uint32_t index, Mapping &mapping)
{
    v4l2_buffer &buffer = prepareBuffer(sensor.buffer, index);
    if (ioctl(sensor.fd, VIDIOC_QUERYBUF, &buffer) < 0) {
        puts("Sensor: Unable to query buffer!");
        return false;
    }
    if (!mapping.map(sensor.fd, buffer.length, buffer.m.offset)) {
        puts("Sensor: Unable to map buffer!");
        return false;
    }
    return true;
}

// Every step from opening the device to the frame rate; on success the
// handle owns the descriptor and both mappings.
bool startDevice(SensorDevice &sensor, int fps)
{
    Descriptor device(open(PS_DEVICE_PATH, O_RDWR));
    if (device.get() < 0) {
        puts("Sensor: Caon't open device!");
        return false;
    }
    sensor.fd = device.get();
    if (!checkCapabilities(sensor) || !setFormat(sensor) || !requestBuffers(sensor))
        return false;
    Mapping mappings[PS_BUFFER_COUNT];
    for (uint32_t index = 0; index < PS_BUFFER_COUNT; index++) {
        if (!mapBuffer(sensor, index, mappings[index]))
            return false;
    }
    if (psSetFramerate(&sensor, fps) != 0)
        return false;
    device.release();
    for (uint32_t index = 0; index < PS_BUFFER_COUNT; index++)
        sensor.mapped[index] = mappings[index].release();
    return true;
}

} // namespace

extern "C" {

SensorDevice *psInitial(int width, int height, int fps)
{
    puts("Sensor: Initial UVC device!");
    auto *sensor = static_cast<SensorDevice *>(malloc(sizeof(SensorDevice)));
    if (sensor == nullptr) {
        puts("Sensor: allocate memory fail!");
        return nullptr;
    }
    memset(sensor, 0, sizeof *sensor);
    sensor->width = width;
    sensor->height = height;
    if (!startDevice(*sensor, fps)) {
        puts("Sensor: Init v4L2 failed!");
        free(sensor);
        return nullptr;
    }
    // The driver may know the control already (another process added it),
    // so a failed registration does not stop the sensor.
    tarvo::capture::addAsicControl(sensor->fd);
    sensor->ready = 1;
    return sensor;
}

void psRelease(SensorDevice *sensor)
{
    if (sensor == nullptr)
        return;
    if (sensor->streaming)
        psVideoDisable(sensor);
    for (int index = 0; index < PS_BUFFER_COUNT; index++) {
        if (sensor->mapped[index] == nullptr)
            continue;
        if (munmap(sensor->mapped[index], sensor->buffer.length) != 0)
            printf("Sensor: Can't unmap buffer %d\n", index);
        sensor->mapped[index] = nullptr;
    }
    if (sensor->fd >= 0)
        close(sensor->fd);
    sensor->fd = -1;
    sensor->ready = 0;
    sensor->streaming = 0;
}

} // extern "C"
