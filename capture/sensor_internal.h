// What the sensor's files share beyond the public record.
#ifndef TARVO_CAPTURE_SENSOR_INTERNAL_H
#define TARVO_CAPTURE_SENSOR_INTERNAL_H

#include "tarvo/sensor.h"

#include <cstdint>
#include <cstring>

namespace tarvo::capture
{

// Makes a buffer record a fresh request for driver buffer `index`.
inline v4l2_buffer &prepareBuffer(v4l2_buffer &buffer, uint32_t index)
{
    memset(&buffer, 0, sizeof buffer);
    buffer.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    buffer.memory = V4L2_MEMORY_MMAP;
    buffer.index = index;
    return buffer;
}

// Registers the ASIC's extension-unit control on the open device.  Only the
// retrying call's giving-up line tells of a failure.
void addAsicControl(int fd);

} // namespace tarvo::capture

#endif
