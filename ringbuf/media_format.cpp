// The media format word, its name tables, and the bounded wait for a frame.
#include "area.h"

#include <cstdio>
#include <sched.h>
#include <iterator>

namespace
{

constexpr int kPayloadWaitMs = 2000;
constexpr uint32_t kJpegCode = 'J';

// Bits [shift, shift + width) of a format word.
constexpr uint32_t bits(MediaFormat format, unsigned shift, unsigned width)
{
    return (format >> shift) & ((1u << width) - 1);
}

template <size_t N> const char *lookUp(const char *const (&table)[N], uint32_t index)
{
    return index < N ? table[index] : "undefined";
}

template <size_t N> uint32_t lookUp(const uint32_t (&table)[N], uint32_t index)
{
    return index < N ? table[index] : 0;
}

// One descriptor line on standard error, flushed when something was printed;
// returns the result of the flush, or of the print when it printed nothing.
template <typename Value> int showLine(const char *format, Value value)
{
    int printed = fprintf(stderr, format, value);
    return printed != 0 ? fflush(stderr) : printed;
}

} // namespace

extern "C" {

const char *const rbMediaStr[7] = {"JPG", "MP4", "PCM", "G711", "AMR", "H264", "H263"};
const char *const rbDepthStr[2] = {"8bit", "16bit"};
const char *const rbSrateStr[5] = {"8K", "11K", "22K", "44K", "48K"};
const char *const rbLevelStr[5] = {"lowest", "low", "normal", "high", "highest"};
const char *const rbScaleStr[3] = {"VGA", "QVGA", "QQVGA"};
const uint32_t rbGetWidth2[3] = {640, 320, 160};
const uint32_t rbGetHeight2[3] = {480, 240, 120};

int CalTimeDuration(const struct timeval *start)
{
    if (start == nullptr)
        return 0;
    timeval now;
    gettimeofday(&now, nullptr);
    int32_t seconds = int32_t(now.tv_sec) - int32_t(start->tv_sec);
    int32_t micros = int32_t(now.tv_usec) - int32_t(start->tv_usec);
    return int32_t(uint32_t(seconds) * 1000u) + micros / 1000;
}

void *rbGetPayload(RingBuffer *rb)
{
    if (rb == nullptr)
        return nullptr;
    timeval start;
    gettimeofday(&start, nullptr);
    for (;;) {
        if (void *payload = rbLockRead(rb))
            return payload;
        if (CalTimeDuration(&start) >= kPayloadWaitMs)
            return nullptr;
        // No sleep, but the processor goes to the writer first when it waits.
        sched_yield();
    }
}

void rbEndPayload(RingBuffer *rb)
{
    rbUnlockRead(rb);
}

const char *rbGetTypeStr(uint32_t code)
{
    return code == kJpegCode ? "JPEG" : "undefined";
}

int rbShowFormat(MediaFormat format)
{
    uint32_t type = bits(format, 0, 4);
    if (type != 0) {
        showLine("atype:\t%s\n", lookUp(rbMediaStr, type));
        showLine("depth:\t%s\n", lookUp(rbDepthStr, bits(format, 4, 2)));
        showLine("srate:\t%s\n", lookUp(rbSrateStr, bits(format, 6, 3)));
        showLine("chanel:\t%d\n", int(bits(format, 9, 2)));
        return showLine("length:\t%d\n", int(bits(format, 11, 21)));
    }
    showLine("vtype:\t%s\n", rbMediaStr[0]);
    showLine("scale:\t%s\n", lookUp(rbScaleStr, bits(format, 4, 4)));
    showLine("level:\t%s\n", lookUp(rbLevelStr, bits(format, 22, 4)));
    return showLine("frate:\t%d\n", int(bits(format, 8, 6)));
}

uint32_t rbGetWidth(MediaFormat format)
{
    return lookUp(rbGetWidth2, bits(format, 4, 4));
}

uint32_t rbGetHeight(MediaFormat format)
{
    return lookUp(rbGetHeight2, bits(format, 4, 4));
}

} // extern "C"
