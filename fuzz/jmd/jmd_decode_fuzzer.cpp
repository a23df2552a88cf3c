// Any input, decoded by steps twice in one context: documented results, nothing
// written outside the map (watched by the sanitizer), the used pass repeating.
#include "tarvo/jmd.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <vector>

using Bytes = std::vector<uint8_t>;

// JpegMDecode's steps for a frame of `rows` MCU rows; their results, 0 but the last.
static std::vector<int> decodeByHand(JmdContext *ctx, const Bytes &frame, size_t rows, Bytes &map)
{
    jpeg_reset(ctx, frame.data(), uint32_t(frame.size()), map.data());
    std::vector<int> results = {jpeg_read_header(ctx)};
    jpeg_start_decompress(ctx);
    for (size_t row = 0; row < rows && results.back() == 0; row++)
        results.push_back(jpeg_scanlines(ctx));
    return results;
}

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    // The decoder's lines would flood the run's log.
    return std::freopen("/dev/null", "w", stdout) ? 0 : 1;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    // Any 0xC0..0xC2 may be read as SOF: its height and width are made 0, 257 or 514.
    Bytes frame(data, data + size);
    uint8_t dimension = uint8_t(size % 3);
    for (size_t code = 1; code < size; code++)
        if (frame[code] >= 0xC0 && frame[code] <= 0xC2)
            for (size_t at = code + 4; at < std::min(code + 8, size); at++)
                frame[at] = dimension;
    size_t rows = (dimension * 257u + 7) / 8;
    auto ctx = std::make_unique<JmdContext>();
    JpegMDInitial(ctx.get());
    Bytes fresh(rows * rows, 0xA5), used(rows * rows, 0xA5);
    std::vector<int> first = decodeByHand(ctx.get(), frame, rows, fresh);
    std::vector<int> again = decodeByHand(ctx.get(), frame, rows, used);
    if (first.back() < -1 || first.back() > 0 || again != first || used != fresh)
        __builtin_trap();
    return 0;
}
