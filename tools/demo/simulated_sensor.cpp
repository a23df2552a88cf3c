// The simulated sensor: a loop of frames encoded once with libjpeg-turbo as
// the camera's encoder would make them (baseline, luminance sampled 2x1),
// served at the configured rate.
#include "frame_source.h"

#include <jpeglib.h>
#include <time.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace demo
{
namespace
{

constexpr int kWidth = 640;
constexpr int kHeight = 480;
constexpr int kQuality = 75;
// The object takes kCrossingFrames to cross; the loop ends with a still
// moment so that each crossing is an event of its own.
constexpr int kCrossingFrames = 100;
constexpr int kLoopFrames = 120;
constexpr int kObjectWidth = 72;
constexpr int kObjectHeight = 120;

// The still background: a lit wall with a few shapes, in RGB.
uint8_t background(int x, int y, int channel)
{
    int shade = 60 + y / 6 + x / 20;
    if (x > 420 && x < 560 && y > 60 && y < 200) // a window
        shade = 200;
    if (y > 380) // the floor
        shade = 90 + (x / 40 % 2) * 10;
    return uint8_t(std::min(255, shade + channel * 6));
}

// Left edge of the object in frame number; beyond the picture when absent.
int objectLeft(int number)
{
    int step = number % kLoopFrames;
    if (step >= kCrossingFrames)
        return kWidth;
    return -kObjectWidth + step * (kWidth + kObjectWidth) / kCrossingFrames;
}

void paintFrame(int number, std::vector<uint8_t> &rgb)
{
    int left = objectLeft(number);
    int top = 250 - kObjectHeight / 2 + (number % 20 < 10 ? 0 : 8); // a walking bob
    for (int y = 0; y < kHeight; y++)
        for (int x = 0; x < kWidth; x++) {
            uint8_t *pixel = &rgb[size_t(y * kWidth + x) * 3];
            bool object =
                x >= left && x < left + kObjectWidth && y >= top && y < top + kObjectHeight;
            for (int channel = 0; channel < 3; channel++)
                pixel[channel] = object ? uint8_t(230 - channel * 70) : background(x, y, channel);
        }
}

std::vector<uint8_t> encodeFrame(const std::vector<uint8_t> &rgb)
{
    jpeg_compress_struct encoder;
    jpeg_error_mgr errors;
    encoder.err = jpeg_std_error(&errors);
    jpeg_create_compress(&encoder);
    unsigned char *out = nullptr;
    unsigned long outLength = 0;
    jpeg_mem_dest(&encoder, &out, &outLength);
    encoder.image_width = kWidth;
    encoder.image_height = kHeight;
    encoder.input_components = 3;
    encoder.in_color_space = JCS_RGB;
    jpeg_set_defaults(&encoder);
    jpeg_set_quality(&encoder, kQuality, TRUE);
    encoder.comp_info[0].h_samp_factor = 2; // 4:2:2
    encoder.comp_info[0].v_samp_factor = 1;
    jpeg_start_compress(&encoder, TRUE);
    while (encoder.next_scanline < encoder.image_height) {
        JSAMPROW row = const_cast<uint8_t *>(&rgb[size_t(encoder.next_scanline) * kWidth * 3]);
        jpeg_write_scanlines(&encoder, &row, 1);
    }
    jpeg_finish_compress(&encoder);
    std::vector<uint8_t> frame(out, out + outLength);
    jpeg_destroy_compress(&encoder);
    free(out);
    return frame;
}

class SimulatedSensor : public FrameSource
{
  public:
    explicit SimulatedSensor(int framesPerSecond) : periodNs_(1000000000L / framesPerSecond)
    {
        std::vector<uint8_t> rgb(size_t(kWidth) * kHeight * 3);
        for (int number = 0; number < kLoopFrames; number++) {
            paintFrame(number, rgb);
            frames_.push_back(encodeFrame(rgb));
            largest_ = std::max(largest_, uint32_t(frames_.back().size()));
        }
        clock_gettime(CLOCK_MONOTONIC, &due_);
    }
    uint32_t nextLength() override { return uint32_t(frames_[next_].size()); }
    // Sleeps until the frame is due, as a sensor would keep the caller
    // waiting; a stop signal cuts the wait short.  A caller that fell behind
    // (stopped, say) gets the next frame a period from now, not a burst.
    bool waitInto(void *cell) override
    {
        timespec now;
        clock_gettime(CLOCK_MONOTONIC, &now);
        if (now.tv_sec > due_.tv_sec + 1)
            due_ = now;
        due_.tv_nsec += periodNs_;
        if (due_.tv_nsec >= 1000000000L) {
            due_.tv_sec++;
            due_.tv_nsec -= 1000000000L;
        }
        clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &due_, nullptr);
        memcpy(cell, frames_[next_].data(), frames_[next_].size());
        next_ = (next_ + 1) % frames_.size();
        return true;
    }
    uint32_t largestFrame() const override { return largest_; }
    const char *description() const override { return "a simulated sensor"; }

  private:
    std::vector<std::vector<uint8_t>> frames_;
    uint32_t largest_ = 0;
    size_t next_ = 0;
    long periodNs_;
    timespec due_;
};

} // namespace

std::unique_ptr<FrameSource> openSimulatedSensor(int framesPerSecond)
{
    return std::make_unique<SimulatedSensor>(framesPerSecond);
}

} // namespace demo
