// Decoding a frame with the library while catching what it prints.
#ifndef TARVO_TESTS_JMD_DECODE_CAPTURE_H
#define TARVO_TESTS_JMD_DECODE_CAPTURE_H

#include "tarvo/jmd.h"

#include "support/capture.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

namespace tarvo::test::jmd
{

// Map bytes the decoder has not written keep this value.
inline constexpr uint8_t kUntouched = 0xA5;

struct Decoded {
    std::vector<uint8_t> map;
    std::string printed;
};

// JpegMDecode into `map` (its old bytes kept where not written).
inline std::string decodeInto(JmdContext &ctx, const std::vector<uint8_t> &frame,
                              std::vector<uint8_t> &map)
{
    return captureStdout(
        [&] { EXPECT_EQ(JpegMDecode(&ctx, frame.data(), uint32_t(frame.size()), map.data()), 0); });
}

// JpegMDecode into a fresh map of `mapSize` untouched bytes.
inline Decoded decode(JmdContext &ctx, const std::vector<uint8_t> &frame, size_t mapSize)
{
    Decoded result{std::vector<uint8_t>(mapSize, kUntouched), {}};
    result.printed = decodeInto(ctx, frame, result.map);
    return result;
}

} // namespace tarvo::test::jmd

#endif
