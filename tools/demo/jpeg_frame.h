// The JPEG frame in a cell: a cell reserved for a whole sensor buffer holds
// the frame and whatever followed it, so readers cut it at its EOI marker.
#ifndef TARVO_DEMO_JPEG_FRAME_H
#define TARVO_DEMO_JPEG_FRAME_H

#include "tarvo/profile.h"

#include <cstdint>

namespace demo
{

// Bytes of the JPEG frame the stream holds after a pfRead that returned
// cellLength, EOI included, read no further than the cell's size; 0 when it
// holds no frame or no whole one.
uint32_t heldFrameLength(ProfileStream *stream, int cellLength);

} // namespace demo

#endif
