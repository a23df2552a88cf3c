// libTarvo and libjpeg-turbo define some of the same jpeg_* names.  This
// suite is built twice, loading the two libraries in either order, and
// decodes one frame with each in the same process: libjpeg through a
// library of its own (as a process's other libraries use it), libTarvo
// through JpegMDecode.  Each call must reach its own library.
#include "jmd/libjpeg_peer.h"
#include "tarvo/jmd.h"

#include <gtest/gtest.h>

#include <cstdlib>

using namespace tarvo::test::jpeg;

constexpr int kWidth = 160, kHeight = 96;

TEST(BothLibraries, EachDecoderReachesItsOwnFunctions)
{
    Bytes rgb(size_t(kWidth) * kHeight * 3); // brightness changing from block to block
    for (size_t i = 0; i < rgb.size(); i++)
        rgb[i] = uint8_t(i / 3 % kWidth * 3 + i / 3 / kWidth * 2 + i % 3 * 40);
    Bytes frame = encode422(rgb, kWidth, kHeight, {75, 0, false});
    static JmdContext context;
    JpegMDInitial(&context);
    Bytes expected = blockMap(frame);
    ASSERT_EQ(expected.size(), size_t(kWidth / 8 * kHeight / 8));
    // Twice each, alternating, so that neither library runs only first.
    for (int round = 0; round < 2; round++) {
        Bytes gray = scaledGray(frame);
        Bytes map(expected.size());
        JpegMDecode(&context, frame.data(), uint32_t(frame.size()), map.data());
        EXPECT_EQ(map, expected);
        // libjpeg's 1/8 picture rounds where the map floors.
        ASSERT_EQ(gray.size(), map.size());
        for (size_t i = 0; i < map.size(); i++)
            EXPECT_LE(std::abs(gray[i] - map[i]), 1) << "block " << i;
    }
}
