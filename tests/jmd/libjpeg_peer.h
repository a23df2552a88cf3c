// libjpeg-turbo as the independent peer of the decoder: it encodes frames the
// way the camera does (baseline, 4:2:2, optional restart intervals) and
// tells what the block map of a frame must be.  Both libraries define
// jpeg_* functions: a program linking both puts libjpeg first.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

struct jpeg_compress_struct;
struct jpeg_decompress_struct;
struct jpeg_error_mgr;

namespace tarvo::test::jpeg
{

using Bytes = std::vector<uint8_t>;

struct EncodeOptions {
    int quality;
    int restartMcus;    // 0 for no restart markers
    bool optimizeCodes; // tables fitted to the frame instead of the standard ones
};

// A frame of three components in libjpeg's `colorSpace`, luminance sampled
// 2x1, restart markers every `restartMcus` MCUs (0: none), that `write` writes.
Bytes compress(int width, int height, int colorSpace, int quality, unsigned restartMcus,
               const std::function<void(jpeg_compress_struct &)> &write);

// Baseline JPEG of an RGB picture, luminance sampled 2x1 against chroma.
Bytes encode422(const Bytes &rgb, int width, int height, const EncodeOptions &options);

// The exact block map: for each luminance block, floor(DC x quantiser / 8)
// + 128 (the value taken modulo 1024 into -512..511, then clamped to
// 0..255), from the quantised coefficients libjpeg reads.
Bytes blockMap(const Bytes &frame);

// libjpeg's own DC-only picture: the frame decoded at scale 1/8 to
// grayscale, one byte per block, rounded where the map is floored.
Bytes scaledGray(const Bytes &frame);

// A decompressor kept across frames, for timing the 1/8 grayscale decode.
class ScaledDecoder
{
  public:
    ScaledDecoder();
    ~ScaledDecoder();
    ScaledDecoder(const ScaledDecoder &) = delete;
    ScaledDecoder &operator=(const ScaledDecoder &) = delete;
    // Decodes `frame` into `gray` (resized to fit); returns its byte count.
    size_t decode(const Bytes &frame, Bytes &gray);

  private:
    jpeg_decompress_struct *cinfo;
    jpeg_error_mgr *errors;
};

} // namespace tarvo::test::jpeg
