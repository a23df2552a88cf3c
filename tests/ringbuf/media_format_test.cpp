// The media format word, its tables, and the millisecond stopwatch.
#include "tarvo/ringbuf.h"

#include "support/capture.h"

#include <gtest/gtest.h>

namespace
{

constexpr MediaFormat audio(uint32_t type, uint32_t depth, uint32_t srate, uint32_t channels,
                            uint32_t length)
{
    return type | depth << 4 | srate << 6 | channels << 9 | length << 11;
}

constexpr MediaFormat video(uint32_t scale, uint32_t rate, uint32_t level)
{
    return scale << 4 | rate << 8 | level << 22;
}

struct Shown {
    MediaFormat format;
    const char *lines;
    uint32_t width, height; // from bits 4-7 whatever the type
};

using Show = ::testing::TestWithParam<Shown>;

TEST_P(Show, OneLinePerFieldAndThePictureSize)
{
    int result = -2;
    auto printed = tarvo::test::captureStderr([&] { result = rbShowFormat(GetParam().format); });
    EXPECT_EQ(printed, GetParam().lines);
    EXPECT_EQ(result, 0);
    EXPECT_EQ(rbGetWidth(GetParam().format), GetParam().width);
    EXPECT_EQ(rbGetHeight(GetParam().format), GetParam().height);
}

// Indices beyond a table name nothing; bits beyond the fields change nothing.
INSTANTIATE_TEST_SUITE_P(
    Formats, Show,
    ::testing::Values(
        Shown{audio(2, 1, 3, 1, 4096),
              "atype:\tPCM\ndepth:\t16bit\nsrate:\t44K\nchanel:\t1\nlength:\t4096\n", 0, 0},
        Shown{audio(6, 0, 4, 3, 0x1fffff),
              "atype:\tH263\ndepth:\t8bit\nsrate:\t48K\nchanel:\t3\nlength:\t2097151\n", 640, 480},
        Shown{audio(9, 0, 7, 0, 1),
              "atype:\tundefined\ndepth:\t8bit\nsrate:\tundefined\nchanel:\t0\nlength:\t1\n", 0, 0},
        Shown{video(0, 25, 4) | 0xfc000000,
              "vtype:\tJPG\nscale:\tVGA\nlevel:\thighest\nfrate:\t25\n", 640, 480},
        Shown{video(1, 30, 2), "vtype:\tJPG\nscale:\tQVGA\nlevel:\tnormal\nfrate:\t30\n", 320, 240},
        Shown{video(3, 63, 15), "vtype:\tJPG\nscale:\tundefined\nlevel:\tundefined\nfrate:\t63\n",
              0, 0}));

TEST(MediaFormat, TypeNamesAndTheStopwatch)
{
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
