// Frames from the real sensor, grabbed straight into the reserved cell.
#include "frame_source.h"

#include "tarvo/sensor.h"

#include <cstdlib>

namespace demo
{
namespace
{

class SensorSource : public FrameSource
{
  public:
    explicit SensorSource(SensorDevice *sensor) : sensor_(sensor) {}
    ~SensorSource() override
    {
        psRelease(sensor_);
        free(sensor_);
    }
    // The frame's length is known only once it came: reserve a whole driver
    // buffer; readers find the frame's end by its EOI marker.
    uint32_t nextLength() override { return largestFrame(); }
    bool waitInto(void *cell) override
    {
        int length = psGrabImage(sensor_, cell);
        return length > 0 && length != PS_NO_FRAME;
    }
    uint32_t largestFrame() const override { return sensor_->buffer.length; }
    const char *description() const override { return "the sensor on " PS_DEVICE_PATH; }

  private:
    SensorDevice *sensor_;
};

} // namespace

std::unique_ptr<FrameSource> openSensor(int framesPerSecond)
{
    SensorDevice *sensor = psInitial(640, 480, framesPerSecond);
    if (sensor == nullptr)
        return nullptr;
    return std::make_unique<SensorSource>(sensor);
}

} // namespace demo
