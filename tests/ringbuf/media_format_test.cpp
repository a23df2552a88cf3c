// The media format word, its tables, and the millisecond stopwatch.
#include "tarvo/ringbuf.h"

#include "support/capture.h"

#include <gtest/gtest.h>

#include <string>

using tarvo::test::captureStderr;

namespace
{

MediaFormat audio(uint32_t type, uint32_t depth, uint32_t srate, uint32_t channels, uint32_t length)
{
    return type | depth << 4 | srate << 6 | channels << 9 | length << 11;
}

MediaFormat video(uint32_t scale, uint32_t rate, uint32_t level)
{
    return scale << 4 | rate << 8 | level << 22;
}

struct ShowCase {
    MediaFormat format;
    const char *lines;
};

class Show : public ::testing::TestWithParam<ShowCase>
{
};

TEST_P(Show, PrintsOneLinePerField)
{
    int result = -2;
    std::string printed = captureStderr([&] { result = rbShowFormat(GetParam().format); });
    EXPECT_EQ(printed, GetParam().lines);
    EXPECT_EQ(result, 0);
}

INSTANTIATE_TEST_SUITE_P(
    Formats, Show,
    ::testing::Values(
        ShowCase{audio(2, 1, 3, 1, 4096),
                 "atype:\tPCM\ndepth:\t16bit\nsrate:\t44K\nchanel:\t1\nlength:\t4096\n"},
        ShowCase{audio(6, 0, 4, 3, 0x1fffff),
                 "atype:\tH263\ndepth:\t8bit\nsrate:\t48K\nchanel:\t3\nlength:\t2097151\n"},
        ShowCase{video(1, 30, 2), "vtype:\tJPG\nscale:\tQVGA\nlevel:\tnormal\nfrate:\t30\n"},
        // Indices beyond the tables name nothing.
        ShowCase{audio(9, 0, 7, 0, 1),
                 "atype:\tundefined\ndepth:\t8bit\nsrate:\tundefined\nchanel:\t0\nlength:\t1\n"},
        ShowCase{video(3, 63, 15),
                 "vtype:\tJPG\nscale:\tundefined\nlevel:\tundefined\nfrate:\t63\n"}));

TEST(MediaFormat, SizesTypesAndTheStopwatch)
{
    const uint32_t widths[] = {640, 320, 160, 0}, heights[] = {480, 240, 120, 0};
    for (uint32_t scale = 0; scale < 4; scale++) {
        EXPECT_EQ(rbGetWidth(video(scale, 25, 0) | 0xffff0000u), widths[scale]) << scale;
        EXPECT_EQ(rbGetHeight(video(scale, 25, 0)), heights[scale]) << scale;
    }
    EXPECT_STREQ(rbGetTypeStr(74), "JPEG");
    EXPECT_STREQ(rbGetTypeStr(74 + 256), "undefined");

    // 1.5 s ago; half the time the microseconds lie across a second boundary.
    timeval now;
    gettimeofday(&now, nullptr);
    timeval start{now.tv_sec - 1 - (now.tv_usec < 500000), (now.tv_usec + 500000) % 1000000};
    EXPECT_GE(CalTimeDuration(&start), 1500);
    EXPECT_LT(CalTimeDuration(&start), 1500 + 60000) << "a minute of slack for a stalled machine";
    EXPECT_EQ(CalTimeDuration(nullptr), 0);
}

} // namespace
