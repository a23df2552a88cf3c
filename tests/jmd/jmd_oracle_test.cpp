// The decoder against libjpeg-turbo's view of the same frames: the exact
// map from the quantised DC values, and the 1/8-scale grayscale decode.
#include "decode_capture.h"
#include "oracle_frames.h"

#include <gtest/gtest.h>

#include <memory>

using namespace tarvo::test::jmd;

namespace
{

std::unique_ptr<JmdContext> freshContext()
{
    auto ctx = std::make_unique<JmdContext>();
    JpegMDInitial(ctx.get());
    return ctx;
}

// The frame without its DHT and DQT segments.
std::vector<uint8_t> withoutTables(const std::vector<uint8_t> &frame)
{
    std::vector<uint8_t> kept(frame.begin(), frame.begin() + 2);
    size_t at = 2;
    while (at + 4 <= frame.size() && frame[at] == 0xFF && frame[at + 1] != 0xDA) {
        size_t length = size_t(frame[at + 2]) << 8 | frame[at + 3];
        if (frame[at + 1] != 0xC4 && frame[at + 1] != 0xDB)
            kept.insert(kept.end(), frame.begin() + long(at),
                        frame.begin() + long(at + 2 + length));
        at += 2 + length;
    }
    kept.insert(kept.end(), frame.begin() + long(at), frame.end());
    return kept;
}

class OracleTest : public ::testing::TestWithParam<OracleFrame>
{
};

TEST_P(OracleTest, MapIsTheQuantisedDcOfEveryLuminanceBlock)
{
    const OracleFrame &frame = GetParam();
    auto ctx = freshContext();
    Decoded decoded = decode(*ctx, frame.jpeg, frame.map.size() + 64);
    EXPECT_EQ(decoded.printed, "");
    std::vector<uint8_t> map(decoded.map.begin(), decoded.map.begin() + long(frame.map.size()));
    EXPECT_EQ(map, frame.map);
    EXPECT_EQ(std::vector<uint8_t>(decoded.map.begin() + long(frame.map.size()), decoded.map.end()),
              std::vector<uint8_t>(64, kUntouched))
        << "bytes written past the map";
}

TEST_P(OracleTest, MapIsLibjpegsEighthScalePictureRoundedDown)
{
    const OracleFrame &frame = GetParam();
    auto ctx = freshContext();
    Decoded decoded = decode(*ctx, frame.jpeg, frame.gray.size());
    for (size_t i = 0; i < frame.gray.size(); i++)
        ASSERT_TRUE(decoded.map[i] == frame.gray[i] || decoded.map[i] + 1 == frame.gray[i])
            << "block " << i << ": map " << int(decoded.map[i]) << ", libjpeg "
            << int(frame.gray[i]);
}

TEST_P(OracleTest, StepsCalledByHandGiveTheSameMap)
{
    const OracleFrame &frame = GetParam();
    auto ctx = freshContext();
    std::vector<uint8_t> map(frame.map.size(), kUntouched);
    std::string printed = tarvo::test::captureStdout([&] {
        jpeg_reset(ctx.get(), frame.jpeg.data(), uint32_t(frame.jpeg.size()), map.data());
        ASSERT_EQ(jpeg_read_header(ctx.get()), 0);
        jpeg_start_decompress(ctx.get());
        for (int row = 0; row < (frame.height + 7) / 8; row++)
            ASSERT_EQ(jpeg_scanlines(ctx.get()), 0);
    });
    EXPECT_EQ(printed, "");
    EXPECT_EQ(map, frame.map);
}

TEST_P(OracleTest, FrameWithoutTablesDecodesWithThePreviousFramesTables)
{
    const OracleFrame &frame = GetParam();
    auto ctx = freshContext();
    decode(*ctx, frame.jpeg, frame.map.size());
    Decoded again = decode(*ctx, withoutTables(frame.jpeg), frame.map.size());
    EXPECT_EQ(again.printed, "");
    EXPECT_EQ(again.map, frame.map);
}

INSTANTIATE_TEST_SUITE_P(Frames, OracleTest, ::testing::ValuesIn(oracleFrames()),
                         [](const ::testing::TestParamInfo<OracleFrame> &info) {
                             return info.param.name;
                         });

TEST(OracleSequence, OneContextDecodesEveryFrameInTurn)
{
    auto ctx = freshContext();
    for (const OracleFrame &frame : oracleFrames()) {
        Decoded decoded = decode(*ctx, frame.jpeg, frame.map.size());
        EXPECT_EQ(decoded.map, frame.map) << frame.name;
    }
}

} // namespace
