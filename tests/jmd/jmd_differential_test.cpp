// The library's decoder, fast path included, against the plain reference
// decoder on damaged and unusual frames: maps and messages must be the same,
// frame after frame through one context each.
#include "decode_capture.h"
#include "frame_builder.h"
#include "oracle_frames.h"
#include "reference_decoder.h"

#include <gtest/gtest.h>

#include <memory>

using namespace tarvo::test::jmd;

namespace
{

// Any header the marker reader can find declares at most 1023 x 1023
// pixels, so that the map below is large enough.
constexpr size_t kMapBytes = 128 * 128 + 64;

struct Random {
    uint32_t state;
    uint32_t next()
    {
        state ^= state << 13;
        state ^= state >> 17;
        state ^= state << 5;
        return state;
    }
    int below(int n) { return int(next() % uint32_t(n)); }
};

// Code lengths that may or may not form a complete code, with symbols in
// any order.
HuffmanTable randomTable(Random &random, bool dc)
{
    HuffmanTable table = {};
    int total = 0, budget = 1 << 16;
    for (int length = 1; length <= 16 && total < 200; length++) {
        int room = budget >> (16 - length);
        int count = random.below(4) == 0 ? 0 : random.below(std::min(room, 12) + 2);
        table.counts[length] = uint8_t(count);
        total += count;
        budget -= count << (16 - length);
        if (budget <= 0)
            budget = random.below(3) ? 0 : 1 << 15; // sometimes too many codes
    }
    for (int i = 0; i < total; i++)
        table.symbols.push_back(uint8_t(dc ? random.below(18) : random.below(256)));
    return table;
}

// A small frame with random tables, sampling, selectors and data bytes.
Bytes randomFrame(Random &random)
{
    FrameBuilder builder;
    builder.soi();
    if (random.below(3) == 0)
        builder.restartInterval(random.below(5));
    for (int t = 0; t < 2; t++)
        builder.quantTable(random.below(5) == 0 ? random.below(16) : t, random.below(256));
    int width = random.below(97), height = random.below(49);
    std::vector<FrameComponent> components;
    int count = 1 + random.below(random.below(4) == 0 ? 6 : 3);
    for (int c = 0; c < count; c++) {
        int h = random.below(5) ? 1 + (c == 0) : random.below(4);
        int v = random.below(5) ? 1 : random.below(3);
        components.push_back({1 + c, h, v, c ? 1 : 0});
    }
    builder.frameHeader(width, height, components, 0xC0 + random.below(3));
    for (int t = 0; t < 2; t++) {
        builder.huffmanTable(0, t, random.below(2) ? dcTable() : randomTable(random, true));
        builder.huffmanTable(1, t, random.below(2) ? acTable() : randomTable(random, false));
    }
    std::vector<ScanComponent> scan;
    int scanCount = 1 + random.below(std::min(count, 4));
    for (int c = 0; c < scanCount; c++)
        scan.push_back({random.below(8) ? 1 + c : random.below(9),
                        random.below(8) ? (c > 0) : random.below(6),
                        random.below(8) ? (c > 0) : random.below(6)});
    builder.scanHeader(scan);
    Bytes data(size_t(random.below(3000)));
    for (uint8_t &byte : data)
        byte = uint8_t(random.below(6) ? random.below(256) : 0xFF);
    for (size_t i = 0; i + 1 < data.size(); i++)
        if (data[i] == 0xFF && random.below(8))
            data[i + 1] = random.below(6) ? 0x00 : uint8_t(0xD0 + random.below(8));
    builder.raw(data);
    if (random.below(4))
        builder.eoi();
    return builder.build();
}

// Keeps every frame header the marker reader could find small: the height
// and width after any 0xFF run and SOF0/1/2 code are cut to 10 bits.
void boundFrameSizes(Bytes &frame)
{
    for (size_t at = 1; at < frame.size(); at++)
        if (frame[at - 1] == 0xFF && frame[at] >= 0xC0 && frame[at] <= 0xC2)
            for (size_t high : {at + 4, at + 6})
                if (high < frame.size())
                    frame[high] &= 3;
}

// Damage of the kinds a broken link or sensor causes, past the first two
// bytes so that the frame keeps its SOI.
Bytes damaged(const Bytes &original, Random &random)
{
    Bytes frame = original;
    int edits = 1 + random.below(4);
    for (int e = 0; e < edits && frame.size() > 4; e++) {
        size_t at = 2 + size_t(random.below(int(frame.size() - 2)));
        switch (random.below(5)) {
        case 0:
            frame[at] ^= uint8_t(1 << random.below(8));
            break;
        case 1:
            frame[at] = uint8_t(random.next());
            break;
        case 2:
            frame.resize(at);
            break;
        case 3:
            frame.insert(
                frame.begin() + long(at),
                {0xFF, uint8_t(random.below(3) ? 0xD0 + random.below(10) : random.next())});
            break;
        default:
            frame.erase(frame.begin() + long(at),
                        frame.begin() + long(std::min(frame.size(), at + 1 + random.below(40))));
            break;
        }
    }
    boundFrameSizes(frame);
    return frame;
}

TEST(Differential, DamagedAndRandomFramesDecodeAsTheReference)
{
    std::vector<Bytes> seeds;
    for (const OracleFrame &frame : oracleFrames())
        if (frame.jpeg.size() < 100000)
            seeds.push_back(frame.jpeg);
    std::vector<int> dc;
    for (int i = 0; i < 12 * 6; i++)
        dc.push_back(i * 37 % 400 - 200);
    seeds.push_back(cameraFrame({96, 48, 12, dc, 3, {{0, 7}, {5, -300}, {40, 2}}}));

    Random random = {0x2545F491u};
    auto ctx = std::make_unique<JmdContext>();
    JpegMDInitial(ctx.get());
    ReferenceDecoder reference;
    Bytes map(kMapBytes, kUntouched), expected(kMapBytes, kUntouched);
    int compared = 0;
    for (int round = 0; round < 900; round++) {
        Bytes frame;
        switch (random.below(3)) {
        case 0:
            frame = randomFrame(random);
            boundFrameSizes(frame);
            break;
        case 1:
            frame = damaged(randomFrame(random), random);
            break;
        default:
            frame = damaged(seeds[size_t(random.below(int(seeds.size())))], random);
            break;
        }
        std::string printed = decodeInto(*ctx, frame, map);
        reference.messages.clear();
        reference.decode(frame.data(), uint32_t(frame.size()), expected.data());
        ASSERT_EQ(printed, reference.messages) << "round " << round;
        ASSERT_EQ(map, expected) << "round " << round;
        compared++;
    }
    EXPECT_EQ(compared, 900);
}

} // namespace
