// libjpeg-turbo as the decoder's peer in the bench: it encodes frames the way
// the camera does (baseline, 4:2:2, optional restart intervals) and decodes
// them at 1/8 scale, the alternative to the block map.  jpeglib.h and
// tarvo/jmd.h declare the same jpeg_* names, so they meet in no source file.
#ifndef TARVO_BENCH_JMD_LIBJPEG_PEER_H
#define TARVO_BENCH_JMD_LIBJPEG_PEER_H

#include <cstddef>
#include <cstdint>
#include <vector>

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

// Baseline JPEG of an RGB picture, luminance sampled 2x1 against chroma.
Bytes encode422(const Bytes &rgb, int width, int height, const EncodeOptions &options);

// A decompressor kept across frames, for timing the 1/8 grayscale decode:
// libjpeg's own DC-only picture, one byte per block, rounded where the map
// is floored.
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

#endif
