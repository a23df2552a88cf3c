// The JPEG frame in a cell: a cell reserved for a whole sensor buffer holds
// the frame and whatever followed it, so readers cut it at its EOI marker.
#ifndef TARVO_DEMO_JPEG_FRAME_H
#define TARVO_DEMO_JPEG_FRAME_H

#include <cstdint>

namespace demo
{

// Bytes of the JPEG frame at the start of payload, EOI included; 0 when the
// payload does not hold a whole frame.
uint32_t jpegFrameLength(const void *payload, uint32_t length);

} // namespace demo

#endif
