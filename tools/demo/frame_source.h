// Where the capture process gets its Motion-JPEG frames: the real sensor on
// "/dev/video0" when there is one, otherwise a simulated one.
#ifndef TARVO_DEMO_FRAME_SOURCE_H
#define TARVO_DEMO_FRAME_SOURCE_H

#include <cstdint>
#include <memory>

namespace demo
{

class FrameSource
{
  public:
    virtual ~FrameSource() = default;
    // Bytes the next frame may take: the cell to reserve for it.
    virtual uint32_t nextLength() = 0;
    // Wait for the next frame and put it at cell; false when none came
    // (the cell then holds no frame).
    virtual bool waitInto(void *cell) = 0;
    // Largest frame this source gives.
    virtual uint32_t largestFrame() const = 0;
    virtual const char *description() const = 0;
};

// The sensor at 640x480, or null when it cannot be opened.
std::unique_ptr<FrameSource> openSensor(int framesPerSecond);

// A scene of 640x480 4:2:2 baseline JPEG frames, encoded once, served at a
// steady rate: an object enters on the left, crosses and leaves on the right.
std::unique_ptr<FrameSource> openSimulatedSensor(int framesPerSecond);

} // namespace demo

#endif
