// The decoder against libjpeg-turbo: frames it wrote from chosen coefficients,
// and the fixtures, give the map of the DC values it reads back.
#include "jmd_checks.h"
#include "libjpeg_frames.h"
#include "libjpeg_peer.h"

using namespace tarvo::test::jmd;
using tarvo::test::jpeg::blockMap;

namespace
{

// Odd sizes, both qualities, restarts every MCU, few and row, AC none to all.
const FrameShape kFrames[] = {
    {"24x8_q90_rst1", 24, 8, 90, 1, 5},
    {"33x17_q75_rst2", 33, 17, 75, 2, 63},
    {"640x480_q90_rst_row", 640, 480, 90, 40, 12},
    {"648x484_q75_rst7", 648, 484, 75, 7, 20},
    {"648x484_q90", 648, 484, 90, 0, 40},
};

TEST(JmdLibjpeg, FramesGiveTheMapOfTheirDcValues)
{
    for (const auto &[name, frame] : fixtures())
        EXPECT_EQ(blockMap(frame.jpeg), frame.map) << name;
    auto used = freshContext();
    for (const FrameShape &shape : kFrames) {
        SCOPED_TRACE(shape.name);
        Bytes jpeg = writeFrame(shape);
        Bytes expected = blockMap(jpeg);
        auto fresh = freshContext();
        Decoded got = decode(fresh.get(), jpeg, expected.size());
        EXPECT_EQ(got.map, expected);
        EXPECT_EQ(decode(used.get(), jpeg, expected.size()).map, expected);
        // The same frame without DHT and DQT decodes with the tables just used.
        Decoded bare = decode(used.get(), writeFrame(shape, false), expected.size());
        EXPECT_EQ(got.printed + bare.printed, "");
        EXPECT_EQ(bare.map, expected);
    }
}

} // namespace
