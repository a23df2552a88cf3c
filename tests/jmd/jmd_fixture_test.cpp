// The decoder on the committed frames, which every build decodes (the host
// suite checks their maps against libjpeg), and its exported steps by hand.
#include "jmd_checks.h"

using namespace tarvo::test::jmd;

namespace
{

const auto readHeader = step<int(JmdContext *)>("jpeg_read_header");
const auto startDecompress = step<void(JmdContext *)>("jpeg_start_decompress");
const std::map<std::string, Frame> kFixtures = fixtures();
const Frame &kRestartEachRow = kFixtures.at("scene_200x120_q50_rst_row");
const Bytes &kSmall = kFixtures.at("scene_24x8_q75").jpeg;

// Each fixture decodes to its map, fresh and in a context the others used;
// damaged, it keeps to the documented results.
TEST(JmdFixtures, DecodeToTheirMapsAndKeepToTheRulesDamaged)
{
    auto used = freshContext();
    for (const auto &[name, frame] : kFixtures) {
        SCOPED_TRACE(name);
        auto fresh = freshContext();
        Decoded got = decode(fresh.get(), frame.jpeg, frame.map.size());
        EXPECT_EQ(got.printed, "");
        EXPECT_EQ(got.map, frame.map);
        EXPECT_EQ(decode(used.get(), frame.jpeg, frame.map.size()).map, frame.map);
        expectDamagedFramesBehave(frame);
    }
}

// The marker after row 3 numbered `ahead` past the expected: one or two ahead it
// stays pending (a row of zero bits, then grey, and the data comes late); one
// behind it is dropped with the next row; any other is taken as expected.
TEST(JmdFixtures, RestartMarkersOutOfOrderAreResynchronised)
{
    constexpr int kBlank = -1;
    const std::pair<int, std::vector<int>> cases[] = {
        {1, {kBlank, 4, 6}}, {2, {kBlank, kBlank, 4}}, {7, {kBlank, 5, 6}}, {4, {4, 5, 6}}};
    const Frame &frame = kRestartEachRow;
    const long width = long(frame.rowBytes);
    for (const auto &[ahead, shows] : cases) {
        Bytes jpeg = frame.jpeg;
        jpeg[frame.intervals[4] - 1] = uint8_t(0xD0 + (3 + ahead) % 8);
        auto ctx = freshContext();
        Decoded got = decode(ctx.get(), jpeg, frame.map.size());
        Bytes expected = frame.map;
        for (int row = 4; row < 7; row++) {
            auto at = expected.begin() + row * width;
            if (shows[row - 4] == kBlank)
                std::fill(std::copy_n(got.map.begin() + row * width, 2, at), at + width, 128);
            else
                std::copy_n(frame.map.begin() + shows[row - 4] * width, width, at);
        }
        EXPECT_EQ(got.printed, "");
        EXPECT_EQ(got.map, expected) << "restart marker " << ahead << " ahead";
    }
}

// Other samplings: six blocks an MCU or a factor 0 write nothing, none too much.
TEST(JmdFixtures, OtherSamplingsWriteNoFurtherThanTheMap)
{
    for (uint8_t sampling : {0x22, 0x20, 0x12, 0x11, 0x41}) {
        Bytes jpeg = kRestartEachRow.jpeg;
        jpeg[0xA9] = sampling; // the frame header's first component
        auto ctx = freshContext();
        Bytes map = decode(ctx.get(), jpeg, kRestartEachRow.map.size()).map;
        EXPECT_TRUE((sampling != 0x22 && sampling != 0x20) || map == Bytes(map.size(), kUntouched));
    }
}

// Numbers at the layout's limits and one past, patched into a frame: Huffman
// tables 3 and 4, quantiser tables 15 and 16, DC categories 15 and 16 (for
// luminance's category 0), a fourth frame component and a fifth (like the third,
// ids 4 and 5, named as third by the scan).
TEST(JmdFixtures, NumbersAtTheLayoutLimitsAndPast)
{
    const Frame &f = kRestartEachRow;
    const Bytes &own = f.map, grey(own.size(), 128);
    // The map of the frame with `more` inserted at `at`, then patched.
    auto patched = [&](std::vector<std::pair<size_t, uint8_t>> patches, size_t at = 0,
                       Bytes more = {}, Bytes jpeg = kRestartEachRow.jpeg) {
        jpeg.insert(jpeg.begin() + long(at), more.begin(), more.end());
        for (auto [offset, value] : patches)
            jpeg[offset] = value;
        return decode(freshContext().get(), jpeg, own.size()).map;
    };
    const Bytes luminanceTables(f.jpeg.begin() + 0xb1, f.jpeg.begin() + 0xfd), third = {4, 0x11, 1};
    EXPECT_EQ(patched({{0x140, 4}, {0x15b, 0x14}}, 0x13c, luminanceTables), own) << "tables 4 too";
    EXPECT_EQ(patched({{0xb5, 0x03}, {0xd0, 0x13}, {0x148, 0x33}}), own) << "Huffman tables 3";
    EXPECT_EQ(patched({{0x148, 0x44}}), grey) << "a scan naming Huffman tables 4";
    EXPECT_EQ(patched({{0x18, 0x0f}, {0xaa, 15}}), own) << "quantiser table 15";
    EXPECT_EQ(patched({{0xaa, 16}}), grey) << "quantiser table 16";
    EXPECT_NE(patched({{0xc9, 15}}), own) << "DC category 15 has its bits";
    EXPECT_EQ(patched({{0xc9, 16}}), own) << "DC category 16 as 0";
    EXPECT_EQ(patched({{0xa1, 20}, {0xa7, 4}, {0x14e, 4}}, 0xb1, third), own) << "a fourth";
    EXPECT_EQ(patched({{0xa1, 23}, {0xa7, 5}, {0x151, 5}}, 0xb1, {4, 0x11, 1, 5, 0x11, 1}),
              patched({{0xa1, 20}, {0xa7, 4}, {0x14e, 5}}, 0xb1, third));
}

// read_markers tells how the header ended (APP0, 0xFF 0x00, fill bytes stepped
// over, or cut in the frame header); jpeg_read_header succeeds only at a scan.
TEST(JmdSteps, HeaderResultFollowsHowTheMarkersEnded)
{
    Bytes hunted = {0xFF, 0xD8, 0x12, 0xFF, 0x00, 0xFF, 0xFF};
    hunted.insert(hunted.end(), kSmall.begin() + 2, kSmall.end());
    const Bytes cut(kSmall.begin(), kSmall.begin() + 0xA8), eoi = {0xFF, 0xD8, 0xFF, 0xD9};
    const std::pair<Bytes, int> cases[] = {{kSmall, 1}, {hunted, 1}, {eoi, 2}, {cut, 0}, {{}, 0}};
    for (const auto &[bytes, expected] : cases) {
        const Bytes &frame = bytes; // a binding a lambda can capture
        auto ctx = freshContext();
        int markers = -1, header = 1;
        std::string printed = tarvo::test::captureStdout([&] {
            jpeg_reset(ctx.get(), frame.data(), uint32_t(frame.size()), nullptr);
            reset_marker_reader(ctx.get());
            markers = read_markers(ctx.get());
            jpeg_reset(ctx.get(), frame.data(), uint32_t(frame.size()), nullptr);
            header = readHeader(ctx.get());
        });
        const char *line = expected == 1 ? "" : "JMD: read header fail!\n";
        EXPECT_EQ(std::tie(markers, header, printed),
                  std::make_tuple(expected, expected == 1 ? 0 : -1, line));
    }
}

// Rows before the one that runs out return 0 and are intact; it returns -1.
TEST(JmdSteps, ScanlinesReportsTheRowThatRanOut)
{
    const Frame &frame = kRestartEachRow;
    Bytes cut(frame.jpeg.begin(), frame.jpeg.begin() + long(frame.intervals[5] + 40));
    auto ctx = freshContext();
    Bytes map(frame.map.size(), kUntouched);
    std::vector<int> results;
    std::string printed = tarvo::test::captureStdout([&] {
        jpeg_reset(ctx.get(), cut.data(), uint32_t(cut.size()), map.data());
        results.push_back(readHeader(ctx.get()));
        startDecompress(ctx.get());
        for (int row = 0; row < 6; row++)
            results.push_back(jpeg_scanlines(ctx.get()));
    });
    EXPECT_EQ(results, (std::vector<int>{0, 0, 0, 0, 0, 0, -1}));
    EXPECT_EQ(printed, "JMD: decompress fail at MCU row: 5\n");
    EXPECT_TRUE(std::equal(map.begin(), map.begin() + long(5 * frame.rowBytes), frame.map.begin()));
}

// skip_input_data stops at the end; given no context, every step does nothing.
TEST(JmdSteps, SkipStopsAtTheEndAndNoContextDoesNothing)
{
    auto ctx = freshContext();
    jpeg_reset(ctx.get(), kSmall.data(), 10, nullptr);
    EXPECT_EQ(skip_input_data(ctx.get(), 4), 6);
    EXPECT_EQ(skip_input_data(ctx.get(), -3), 6);
    EXPECT_EQ(skip_input_data(ctx.get(), 100), 0);
    JpegMDInitial(nullptr);
    jpeg_reset(nullptr, kSmall.data(), 10, nullptr);
    startDecompress(nullptr);
    EXPECT_EQ(JpegMDecode(nullptr, kSmall.data(), 10, nullptr) + skip_input_data(nullptr, 5), 0);
    EXPECT_EQ(readHeader(nullptr) + jpeg_scanlines(nullptr) + read_markers(nullptr), -2);
}

} // namespace
