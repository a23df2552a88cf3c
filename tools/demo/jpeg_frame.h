// The JPEG frame in a cell: a cell reserved for a whole sensor buffer holds
// the frame and whatever followed it, so readers cut it at its EOI marker.
#ifndef TARVO_DEMO_JPEG_FRAME_H
#define TARVO_DEMO_JPEG_FRAME_H

#include "tarvo/profile.h"

#include <cstdint>

namespace demo
{

// Waits for the stream's next whole JPEG frame, left in stream->payload
// until the next call, and returns its length (EOI included, never past the
// cell's size); 0 once the ring is released or the role is asked to stop.
uint32_t readJpegFrame(ProfileStream *stream);

} // namespace demo

#endif
