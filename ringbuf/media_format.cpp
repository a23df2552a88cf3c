// The media format word and its name tables.
#include "tarvo/ringbuf.h"

#include <cstdio>

namespace
{

constexpr uint32_t kJpegCode = 'J';

// Where each field of a format word lies: bits [shift, shift + width).
// Every word has a type; video words (type 0) carry scale, frame rate and
// level, audio words depth, sample rate, channels and length.
struct FormatField {
    unsigned shift, width;
};
constexpr FormatField kType{0, 4};
constexpr FormatField kScale{4, 4}, kFrameRate{8, 6}, kLevel{22, 4};
constexpr FormatField kDepth{4, 2}, kSampleRate{6, 3}, kChannels{9, 2}, kLength{11, 21};

constexpr uint32_t fieldOf(MediaFormat format, FormatField field)
{
    return (format >> field.shift) & ((1u << field.width) - 1);
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

const char *rbGetTypeStr(uint32_t code)
{
    return code == kJpegCode ? "JPEG" : "undefined";
}

int rbShowFormat(MediaFormat format)
{
    uint32_t type = fieldOf(format, kType);
    if (type != 0) {
        showLine("atype:\t%s\n", lookUp(rbMediaStr, type));
        showLine("depth:\t%s\n", lookUp(rbDepthStr, fieldOf(format, kDepth)));
        showLine("srate:\t%s\n", lookUp(rbSrateStr, fieldOf(format, kSampleRate)));
        showLine("chanel:\t%d\n", int(fieldOf(format, kChannels)));
        return showLine("length:\t%d\n", int(fieldOf(format, kLength)));
    }
    showLine("vtype:\t%s\n", rbMediaStr[0]);
    showLine("scale:\t%s\n", lookUp(rbScaleStr, fieldOf(format, kScale)));
    showLine("level:\t%s\n", lookUp(rbLevelStr, fieldOf(format, kLevel)));
    return showLine("frate:\t%d\n", int(fieldOf(format, kFrameRate)));
}

uint32_t rbGetWidth(MediaFormat format)
{
    return lookUp(rbGetWidth2, fieldOf(format, kScale));
}

uint32_t rbGetHeight(MediaFormat format)
{
    return lookUp(rbGetHeight2, fieldOf(format, kScale));
}

} // extern "C"
