// What a caller of the decoder sees on hand-made frames: map bytes, map
// sizes, the marker reader's results, restart markers out of order, frames
// that end early, and what happens beyond the layout's limits.
#include "decode_capture.h"
#include "frame_builder.h"
#include "oracle_frames.h"
#include "reference_decoder.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <regex>

using namespace tarvo::test::jmd;
using tarvo::test::captureStdout;

namespace
{

class Decoder : public ::testing::Test
{
  protected:
    void SetUp() override { JpegMDInitial(ctx.get()); }

    // The library's map and messages, checked against the reference
    // decoder's for the same frame and the same history.
    Decoded decodeChecked(const Bytes &frame, size_t mapSize)
    {
        Decoded decoded = decode(*ctx, frame, mapSize);
        std::vector<uint8_t> expected(mapSize, kUntouched);
        reference.messages.clear();
        reference.decode(frame.data(), uint32_t(frame.size()), expected.data());
        EXPECT_EQ(decoded.map, expected) << "differs from the reference decoder";
        EXPECT_EQ(decoded.printed, reference.messages);
        return decoded;
    }

    std::unique_ptr<JmdContext> ctx = std::make_unique<JmdContext>();
    ReferenceDecoder reference;
};

std::vector<int> rampDc(int count)
{
    std::vector<int> dc;
    for (int i = 0; i < count; i++)
        dc.push_back(i % 240 - 120);
    return dc;
}

// ---- Map bytes ----

struct ByteCase {
    int quantiser;
    int dc;
    uint8_t expected;
};

class MapByte : public Decoder, public ::testing::WithParamInterface<ByteCase>
{
};

TEST_P(MapByte, IsFloorOfDcTimesQuantiserOverEightPlus128)
{
    const ByteCase &c = GetParam();
    Decoded decoded = decodeChecked(cameraFrame({16, 8, c.quantiser, {c.dc, 0}}), 2);
    EXPECT_EQ(decoded.printed, "");
    EXPECT_EQ(decoded.map[0], c.expected);
    EXPECT_EQ(decoded.map[1], 128);
}

INSTANTIATE_TEST_SUITE_P(Cases, MapByte,
                         ::testing::Values(ByteCase{16, 0, 128}, ByteCase{255, 0, 128},
                                           ByteCase{16, 10, 148}, ByteCase{16, -10, 108},
                                           ByteCase{10, -3, 124}, ByteCase{1, -1, 127},
                                           ByteCase{16, 100, 255}, ByteCase{16, -100, 0},
                                           // Beyond -512..511 the value wraps modulo 1024.
                                           ByteCase{16, 300, 0}, ByteCase{16, -300, 255}));

// ---- Map size ----

struct SizeCase {
    int width;
    int height;
    size_t mapBytes;
};

class MapSize : public Decoder, public ::testing::WithParamInterface<SizeCase>
{
};

TEST_P(MapSize, IsOneBytePerBlockAndNothingBeyond)
{
    const SizeCase &c = GetParam();
    std::vector<int> dc = rampDc(int(c.mapBytes));
    Decoded decoded = decodeChecked(cameraFrame({c.width, c.height, 8, dc}), c.mapBytes + 16);
    EXPECT_EQ(decoded.printed, "");
    for (size_t i = 0; i < c.mapBytes; i++)
        ASSERT_EQ(decoded.map[i], 128 + dc[i]) << "block " << i;
    EXPECT_EQ(std::vector<uint8_t>(decoded.map.begin() + long(c.mapBytes), decoded.map.end()),
              std::vector<uint8_t>(16, kUntouched));
}

INSTANTIATE_TEST_SUITE_P(Sizes, MapSize,
                         ::testing::Values(SizeCase{16, 8, 2}, SizeCase{24, 8, 3},
                                           SizeCase{8, 8, 1}, SizeCase{33, 17, 15},
                                           SizeCase{640, 480, 4800}, SizeCase{648, 484, 4941}));

TEST_F(Decoder, RestartIntervalsResetThePredictor)
{
    std::vector<int> dc = rampDc(81 * 61);
    for (int interval : {1, 2, 7, 41}) {
        Decoded decoded = decodeChecked(cameraFrame({648, 484, 8, dc, interval}), dc.size());
        EXPECT_EQ(decoded.printed, "");
        for (size_t i = 0; i < dc.size(); i++)
            ASSERT_EQ(decoded.map[i], 128 + dc[i]) << "interval " << interval << ", block " << i;
    }
}

TEST_F(Decoder, AcCoefficientsAreSteppedOver)
{
    std::vector<std::pair<int, int>> coefficients = {
        {0, 5}, {3, -200}, {20, 1}, {15, 1023}, {2, -1}};
    std::vector<int> dc = rampDc(6 * 4);
    Decoded decoded = decodeChecked(cameraFrame({48, 32, 4, dc, 0, coefficients}), dc.size());
    EXPECT_EQ(decoded.printed, "");
    for (size_t i = 0; i < dc.size(); i++)
        ASSERT_EQ(decoded.map[i], uint8_t(128 + dc[i] / 2 - (dc[i] < 0 && dc[i] % 2 ? 1 : 0)));
}

// ---- Failures a caller sees ----

// The part of `map` that is `written` (equal to `oracle`) before the first
// byte that kept its old value (equal to `old`); npos when the map is not
// such a prefix and suffix.
size_t writtenPrefix(const Bytes &map, const Bytes &oracle, const Bytes &old)
{
    size_t written = 0;
    while (written < map.size() && map[written] == oracle[written] && map[written] != old[written])
        written++;
    for (size_t i = written; i < map.size(); i++)
        if (map[i] != old[i])
            return std::string::npos;
    return written;
}

TEST_F(Decoder, TruncatedFrameStopsWithOneRowMessage)
{
    for (const char *name : {"scene_648x484_q90", "scene_648x484_q75_rst5"}) {
        OracleFrame frame = fixture(name);
        for (size_t cut : {size_t(2000), frame.jpeg.size() / 3, frame.jpeg.size() - 300}) {
            Bytes truncated(frame.jpeg.begin(), frame.jpeg.begin() + long(cut));
            Bytes old(frame.map);
            for (uint8_t &byte : old)
                byte ^= 0xFF;
            Bytes map = old;
            std::string printed = decodeInto(*ctx, truncated, map);
            std::smatch row;
            ASSERT_TRUE(std::regex_match(printed, row,
                                         std::regex("JMD: decompress fail at MCU row: (\\d+)\n")))
                << name << " cut at " << cut << ": " << printed;
            size_t written = writtenPrefix(map, frame.map, old);
            ASSERT_NE(written, std::string::npos) << "bytes written after the failure";
            size_t failedRow = std::stoul(row[1]);
            EXPECT_GE(written, failedRow * 81);
            EXPECT_LT(written, (failedRow + 1) * 81);

            Bytes expected = old;
            reference.messages.clear();
            reference.decode(truncated.data(), uint32_t(truncated.size()), expected.data());
            EXPECT_EQ(map, expected);
            EXPECT_EQ(printed, reference.messages);
        }
    }
}

TEST_F(Decoder, DataEndingEarlyAtEoiGives128WithoutMessage)
{
    OracleFrame frame = fixture("scene_648x484_q75_rst5");
    for (size_t cut : {size_t(3000), frame.jpeg.size() / 2}) {
        Bytes ended(frame.jpeg.begin(), frame.jpeg.begin() + long(cut));
        if (ended.back() == 0xFF)
            ended.pop_back();
        ended.insert(ended.end(), {0xFF, 0xD9});
        Decoded decoded = decodeChecked(ended, frame.map.size());
        EXPECT_EQ(decoded.printed, "");
        size_t same = 0;
        while (same < frame.map.size() && decoded.map[same] == frame.map[same])
            same++;
        // One MCU (two blocks) decodes from the last bits and zeros.
        for (size_t i = same + 2; i < frame.map.size(); i++)
            ASSERT_EQ(decoded.map[i], 128) << "block " << i;
        EXPECT_GT(same, 0u);
    }
}

TEST_F(Decoder, EoiRightAfterSoiFailsTheHeader)
{
    const Bytes empty = {0xFF, 0xD8, 0xFF, 0xD9};
    Decoded fresh = decodeChecked(empty, 16);
    EXPECT_EQ(fresh.printed, "JMD: read header fail!\n");
    EXPECT_EQ(fresh.map, Bytes(16, kUntouched));

    // With the size of an earlier frame the row loop runs and finds no data.
    OracleFrame frame = fixture("scene_648x484_q90");
    decodeChecked(frame.jpeg, frame.map.size());
    Decoded after = decodeChecked(empty, frame.map.size());
    EXPECT_EQ(after.printed, "JMD: read header fail!\nJMD: decompress fail at MCU row: 0\n");
    EXPECT_EQ(after.map, Bytes(frame.map.size(), kUntouched));
}

// ---- Marker reader ----

struct MarkerCase {
    const char *what;
    Bytes frame;
    int result;
};

Bytes cameraHeader()
{
    return cameraParts({16, 8, 16, {0, 0}}).header;
}

std::vector<MarkerCase> markerCases()
{
    Bytes header = cameraHeader();
    Bytes app0 = FrameBuilder()
                     .soi()
                     .segment(0xE0, {'J', 'F', 'I', 'F', 0, 1, 2})
                     .raw(Bytes(header.begin() + 2, header.end()))
                     .build();
    Bytes hunting = FrameBuilder()
                        .soi()
                        .raw({0x12, 0x34, 0xFF, 0x00, 0xFF, 0xFF, 0xFF})
                        .raw(Bytes(header.begin() + 3, header.end()))
                        .build();
    size_t sof = 0;
    while (!(header[sof] == 0xFF && header[sof + 1] == 0xC0))
        sof++;
    Bytes cutInFrameHeader(header.begin(), header.begin() + long(sof) + 8);
    return {
        {"EOI before any SOS", {0xFF, 0xD8, 0xFF, 0xD9}, 2},
        {"whole header", header, 1},
        {"APP0 without 0xFF inside is stepped over", app0, 1},
        {"0xFF 0x00 and fill bytes are skipped while hunting", hunting, 1},
        {"cut inside the frame header", cutInFrameHeader, 0},
        {"no input", {}, 0},
    };
}

TEST_F(Decoder, ReadMarkersTellsHowTheHeaderEnded)
{
    for (const MarkerCase &c : markerCases()) {
        jpeg_reset(ctx.get(), c.frame.data(), uint32_t(c.frame.size()), nullptr);
        reset_marker_reader(ctx.get());
        int result = -1;
        EXPECT_EQ(captureStdout([&] { result = read_markers(ctx.get()); }), "");
        EXPECT_EQ(result, c.result) << c.what;
    }
}

TEST_F(Decoder, OneDhtSegmentCanCarryTwoTables)
{
    CameraParts parts = cameraParts({32, 8, 8, {1, -2, 3, -4}});
    // The four DHT segments of the header, merged into one.
    Bytes merged = {0xFF, 0xC4, 0, 0}, header;
    for (size_t at = 0; at < parts.header.size();) {
        if (parts.header[at] == 0xFF && parts.header[at + 1] == 0xC4) {
            size_t length = size_t(parts.header[at + 2]) << 8 | parts.header[at + 3];
            merged.insert(merged.end(), parts.header.begin() + long(at + 4),
                          parts.header.begin() + long(at + 2 + length));
            at += 2 + length;
        } else {
            header.push_back(parts.header[at++]);
        }
    }
    merged[2] = uint8_t((merged.size() - 2) >> 8);
    merged[3] = uint8_t(merged.size() - 2);
    header.insert(header.end() - 14, merged.begin(), merged.end()); // before the SOS segment
    parts.header = header;
    Decoded decoded = decodeChecked(parts.build(), 4);
    EXPECT_EQ(decoded.map, (Bytes{129, 126, 131, 124}));
}

TEST_F(Decoder, SkipInputDataStopsAtTheEnd)
{
    Bytes input(10);
    jpeg_reset(ctx.get(), input.data(), uint32_t(input.size()), nullptr);
    EXPECT_EQ(skip_input_data(ctx.get(), 4), 6);
    EXPECT_EQ(skip_input_data(ctx.get(), -3), 6);
    EXPECT_EQ(skip_input_data(ctx.get(), 0), 6);
    EXPECT_EQ(skip_input_data(ctx.get(), 100), 0);
}

// ---- Restart markers out of order ----

// Four MCUs with a restart marker after each; `markers` gives their numbers.
Bytes framesWithRestarts(const std::vector<int> &markers, const std::vector<int> &dc)
{
    CameraParts parts = cameraParts({64, 8, 8, dc, 1});
    size_t found = 0;
    for (size_t at = 0; at + 1 < parts.scan.size(); at++)
        if (parts.scan[at] == 0xFF && parts.scan[at + 1] >= 0xD0 && parts.scan[at + 1] <= 0xD7)
            parts.scan[at + 1] = uint8_t(0xD0 + markers[found++]);
    return parts.build();
}

TEST_F(Decoder, RestartMarkersOutOfOrderAreResynchronised)
{
    const std::vector<int> dc = {10, 20, 30, 40, 50, 60, 70, 80};
    struct Case {
        const char *what;
        std::vector<int> markers;
        Bytes map;
    };
    const Case cases[] = {
        {"in order", {0, 1, 2}, {138, 148, 158, 168, 178, 188, 198, 208}},
        // RST1 where RST0 is due is left pending: the next MCU reads zeros,
        // the one after takes the data that followed it.
        {"one ahead", {1, 1, 2}, {138, 148, 128, 128, 158, 168, 198, 208}},
        // RST7 where RST1 is due is dropped and the hunt goes on to RST2,
        // which is left pending in turn.
        {"two behind", {0, 7, 2}, {138, 148, 158, 168, 128, 128, 198, 208}},
    };
    for (const Case &c : cases) {
        Decoded decoded = decodeChecked(framesWithRestarts(c.markers, dc), 8);
        EXPECT_EQ(decoded.printed, "") << c.what;
        EXPECT_EQ(decoded.map, c.map) << c.what;
    }
}

// ---- Beyond the layout's limits ----

struct LimitCase {
    const char *what;
    Bytes frame;
};

Bytes frameWith(const std::vector<FrameComponent> &components,
                const std::vector<ScanComponent> &scan, int width = 32, int height = 16)
{
    FrameBuilder builder;
    builder.soi().quantTable(0, 8).quantTable(1, 2).frameHeader(width, height, components);
    builder.huffmanTable(0, 0, dcTable()).huffmanTable(1, 0, acTable());
    builder.huffmanTable(0, 1, dcTable()).huffmanTable(1, 1, acTable());
    builder.scanHeader(scan);
    ScanWriter data;
    for (int i = 0; i < 64; i++)
        data.block(dcTable(), acTable(), i % 5 - 2, {{1, 3}});
    return builder.raw(data.finish()).eoi().build();
}

const std::vector<FrameComponent> kCamera = {{1, 2, 1, 0}, {2, 1, 1, 1}, {3, 1, 1, 1}};
const std::vector<ScanComponent> kCameraScan = {{1, 0, 0}, {2, 1, 1}, {3, 1, 1}};

TEST_F(Decoder, FramesBeyondTheLimitsWriteNothing)
{
    const LimitCase cases[] = {
        {"4:2:0 sampling, six blocks per MCU",
         frameWith({{1, 2, 2, 0}, {2, 1, 1, 1}, {3, 1, 1, 1}}, kCameraScan)},
        {"sampling factor 0", frameWith({{1, 0, 1, 0}, {2, 1, 1, 1}, {3, 1, 1, 1}}, kCameraScan)},
        {"width 0", frameWith(kCamera, kCameraScan, 0, 16)},
        {"height 0", frameWith(kCamera, kCameraScan, 32, 0)},
        {"scan names no component of the frame",
         frameWith(kCamera, {{9, 0, 0}, {2, 1, 1}, {3, 1, 1}})},
        {"five scan components",
         frameWith(kCamera, {{1, 0, 0}, {2, 1, 1}, {3, 1, 1}, {2, 1, 1}, {3, 1, 1}})},
    };
    for (const LimitCase &c : cases) {
        Decoded decoded = decodeChecked(c.frame, 8);
        EXPECT_EQ(decoded.printed, "") << c.what;
        EXPECT_EQ(decoded.map, Bytes(8, kUntouched)) << c.what;
    }
}

TEST_F(Decoder, FreshContextWhoseFirstHeaderFailsWritesNothing)
{
    Bytes header = cameraHeader();
    Bytes cut(header.begin(), header.end() - 4);
    Decoded decoded = decodeChecked(cut, 8);
    EXPECT_EQ(decoded.printed, "JMD: read header fail!\n");
    EXPECT_EQ(decoded.map, Bytes(8, kUntouched));
}

TEST_F(Decoder, OddTablesAndComponentsMatchTheReference)
{
    const LimitCase cases[] = {
        {"five frame components",
         frameWith({{1, 2, 1, 0}, {2, 1, 1, 1}, {3, 1, 1, 1}, {4, 1, 1, 1}, {5, 1, 1, 1}},
                   kCameraScan)},
        {"Huffman table 5", frameWith(kCamera, {{1, 5, 5}, {2, 1, 1}, {3, 1, 1}})},
        {"quantisation table 7",
         frameWith({{1, 2, 1, 7}, {2, 1, 1, 1}, {3, 1, 1, 1}}, kCameraScan)},
        {"scan lists chroma first", frameWith(kCamera, {{2, 1, 1}, {1, 0, 0}, {3, 1, 1}})},
        {"luminance 1x1", frameWith({{1, 1, 1, 0}, {2, 1, 1, 1}, {3, 1, 1, 1}}, kCameraScan)},
        {"luminance 2x2 alone", frameWith({{1, 2, 2, 0}}, {{1, 0, 0}})},
        {"component twice in the scan", frameWith(kCamera, {{1, 0, 0}, {1, 0, 0}})},
    };
    for (const LimitCase &c : cases) {
        SCOPED_TRACE(c.what);
        decodeChecked(c.frame, 64);
    }
}

// ---- The context ----

TEST(JmdContext, IsTheReservedSizeAndInitialWritesNoFurther)
{
    EXPECT_EQ(sizeof(JmdContext), size_t(JMD_CONTEXT_SIZE));
    EXPECT_EQ(JMD_CONTEXT_SIZE, 15480);
    auto block = std::make_unique<JmdContext[]>(2);
    std::memset(block.get(), 0x5A, 2 * sizeof(JmdContext));
    JpegMDInitial(&block[0]);
    EXPECT_EQ(Bytes(block[1].bytes, block[1].bytes + sizeof(JmdContext)),
              Bytes(sizeof(JmdContext), 0x5A));
}

TEST(JmdContext, NullContextDoesNothing)
{
    Bytes frame = cameraFrame({16, 8, 16, {1, 2}});
    EXPECT_EQ(captureStdout([&] {
                  JpegMDInitial(nullptr);
                  EXPECT_EQ(JpegMDecode(nullptr, frame.data(), uint32_t(frame.size()), nullptr), 0);
                  jpeg_reset(nullptr, frame.data(), uint32_t(frame.size()), nullptr);
                  EXPECT_EQ(jpeg_read_header(nullptr), -1);
                  jpeg_start_decompress(nullptr);
                  EXPECT_EQ(jpeg_scanlines(nullptr), -1);
                  EXPECT_EQ(skip_input_data(nullptr, 5), 0);
                  reset_marker_reader(nullptr);
                  EXPECT_EQ(read_markers(nullptr), 0);
                  EXPECT_EQ(read_restart_marker(nullptr), 0);
                  EXPECT_EQ(jpeg_resync_to_restart(nullptr, 1), 0);
              }),
              "");
}

} // namespace
