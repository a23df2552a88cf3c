// Hand-made JPEG frames.
#include "frame_builder.h"

#include <algorithm>
#include <cstdlib>

namespace tarvo::test::jmd
{
namespace
{

struct Code {
    uint32_t bits;
    int length;
};

// The canonical code of `symbol` in `table`.
Code codeOf(const HuffmanTable &table, int symbol)
{
    uint32_t code = 0;
    size_t index = 0;
    for (int length = 1; length <= 16; length++) {
        for (int i = 0; i < table.counts[length]; i++, index++, code++)
            if (index < table.symbols.size() && table.symbols[index] == symbol)
                return {code, length};
        code <<= 1;
    }
    std::abort(); // the test asked for a symbol its table lacks
}

int category(int value)
{
    int magnitude = std::abs(value), bits = 0;
    while (magnitude >> bits)
        bits++;
    return bits;
}

// A value's magnitude bits: the value itself when positive, else its
// one's complement.
uint32_t magnitudeBits(int value, int bits)
{
    return uint32_t(value >= 0 ? value : value + (1 << bits) - 1);
}

void appendWord(Bytes &out, int value)
{
    out.push_back(uint8_t(value >> 8));
    out.push_back(uint8_t(value));
}

} // namespace

HuffmanTable dcTable()
{
    HuffmanTable table = {{0, 0, 1, 5, 1, 1, 1, 1, 1, 1}, {}};
    for (int symbol = 0; symbol < 12; symbol++)
        table.symbols.push_back(uint8_t(symbol));
    return table;
}

HuffmanTable acTable()
{
    HuffmanTable table = {{0, 0, 2, 1, 3, 3, 2, 4, 3, 5, 5, 4, 4, 0, 0, 1, 125}, {}};
    table.symbols = {0x01, 0x02, 0x03, 0x00, 0x04, 0x11, 0x05, 0x12, 0x21, 0x31, 0x41};
    table.symbols.push_back(0xF0);
    for (int run = 0; run < 16; run++)
        for (int size = 1; size <= 10; size++) {
            uint8_t symbol = uint8_t(run << 4 | size);
            if (std::find(table.symbols.begin(), table.symbols.end(), symbol) ==
                table.symbols.end())
                table.symbols.push_back(symbol);
        }
    return table;
}

void ScanWriter::put(uint32_t value, int count)
{
    for (int i = count - 1; i >= 0; i--) {
        pending = pending << 1 | (value >> i & 1);
        if (++pendingBits == 8) {
            out.push_back(uint8_t(pending));
            if (pending == 0xFF)
                out.push_back(0x00);
            pending = 0;
            pendingBits = 0;
        }
    }
}

void ScanWriter::flush()
{
    if (pendingBits)
        put(0xFF, 8 - pendingBits);
}

void ScanWriter::symbol(const HuffmanTable &table, int symbol)
{
    Code code = codeOf(table, symbol);
    put(code.bits, code.length);
}

void ScanWriter::bits(uint32_t value, int count)
{
    put(value, count);
}

void ScanWriter::block(const HuffmanTable &dc, const HuffmanTable &ac, int dcDifference,
                       const std::vector<std::pair<int, int>> &coefficients)
{
    int size = category(dcDifference);
    symbol(dc, size);
    put(magnitudeBits(dcDifference, size), size);
    int k = 1;
    for (auto [run, value] : coefficients) {
        for (; run > 15; run -= 16, k += 16)
            symbol(ac, 0xF0);
        size = category(value);
        symbol(ac, run << 4 | size);
        put(magnitudeBits(value, size), size);
        k += run + 1;
    }
    if (k < 64)
        symbol(ac, 0x00);
}

void ScanWriter::restartMarker(int number)
{
    flush();
    out.push_back(0xFF);
    out.push_back(uint8_t(0xD0 + (number & 7)));
}

Bytes ScanWriter::finish()
{
    flush();
    return out;
}

FrameBuilder &FrameBuilder::marker(int code)
{
    frame.push_back(0xFF);
    frame.push_back(uint8_t(code));
    return *this;
}

FrameBuilder &FrameBuilder::soi()
{
    return marker(0xD8);
}

FrameBuilder &FrameBuilder::eoi()
{
    return marker(0xD9);
}

FrameBuilder &FrameBuilder::segment(int code, const Bytes &payload)
{
    marker(code);
    appendWord(frame, int(payload.size()) + 2);
    frame.insert(frame.end(), payload.begin(), payload.end());
    return *this;
}

FrameBuilder &FrameBuilder::quantTable(int number, int dcQuantiser)
{
    Bytes payload(65, 1);
    payload[0] = uint8_t(number);
    payload[1] = uint8_t(dcQuantiser);
    return segment(0xDB, payload);
}

FrameBuilder &FrameBuilder::frameHeader(int width, int height,
                                        const std::vector<FrameComponent> &components, int code)
{
    Bytes payload = {8};
    appendWord(payload, height);
    appendWord(payload, width);
    payload.push_back(uint8_t(components.size()));
    for (const FrameComponent &c : components) {
        payload.push_back(uint8_t(c.id));
        payload.push_back(uint8_t(c.h << 4 | c.v));
        payload.push_back(uint8_t(c.quantTable));
    }
    return segment(code, payload);
}

FrameBuilder &FrameBuilder::huffmanTable(int tableClass, int number, const HuffmanTable &table)
{
    Bytes payload = {uint8_t(tableClass << 4 | number)};
    payload.insert(payload.end(), table.counts + 1, table.counts + 17);
    payload.insert(payload.end(), table.symbols.begin(), table.symbols.end());
    return segment(0xC4, payload);
}

FrameBuilder &FrameBuilder::restartInterval(int mcus)
{
    Bytes payload;
    appendWord(payload, mcus);
    return segment(0xDD, payload);
}

FrameBuilder &FrameBuilder::scanHeader(const std::vector<ScanComponent> &components)
{
    Bytes payload = {uint8_t(components.size())};
    for (const ScanComponent &c : components) {
        payload.push_back(uint8_t(c.id));
        payload.push_back(uint8_t(c.dcTable << 4 | c.acTable));
    }
    payload.insert(payload.end(), {0, 63, 0});
    return segment(0xDA, payload);
}

FrameBuilder &FrameBuilder::raw(const Bytes &bytes)
{
    frame.insert(frame.end(), bytes.begin(), bytes.end());
    return *this;
}

Bytes CameraParts::build() const
{
    Bytes frame = header;
    frame.insert(frame.end(), scan.begin(), scan.end());
    frame.insert(frame.end(), {0xFF, 0xD9});
    return frame;
}

CameraParts cameraParts(const CameraFrame &frame)
{
    HuffmanTable dc = dcTable(), ac = acTable();
    FrameBuilder header;
    header.soi().quantTable(0, frame.quantiser).quantTable(1, 1);
    header.frameHeader(frame.width, frame.height, {{1, 2, 1, 0}, {2, 1, 1, 1}, {3, 1, 1, 1}});
    header.huffmanTable(0, 0, dc).huffmanTable(1, 0, ac).huffmanTable(0, 1, dc).huffmanTable(1, 1,
                                                                                             ac);
    if (frame.restartMcus)
        header.restartInterval(frame.restartMcus);
    header.scanHeader({{1, 0, 0}, {2, 1, 1}, {3, 1, 1}});

    const int columns = (frame.width + 7) / 8, rows = (frame.height + 7) / 8;
    const int mcusPerRow = (frame.width + 15) / 16;
    ScanWriter scan;
    int predictor = 0, mcus = 0;
    for (int row = 0; row < rows; row++) {
        for (int mcu = 0; mcu < mcusPerRow; mcu++) {
            if (frame.restartMcus && mcus && mcus % frame.restartMcus == 0) {
                scan.restartMarker(mcus / frame.restartMcus - 1);
                predictor = 0;
            }
            for (int half = 0; half < 2; half++) {
                int column = std::min(2 * mcu + half, columns - 1);
                int value = frame.lumaDc[size_t(row * columns + column)];
                scan.block(dc, ac, value - predictor, frame.coefficients);
                predictor = value;
            }
            scan.block(dc, ac, 0, frame.coefficients);
            scan.block(dc, ac, 0, frame.coefficients);
            mcus++;
        }
    }
    return {header.build(), scan.finish()};
}

Bytes cameraFrame(const CameraFrame &frame)
{
    return cameraParts(frame).build();
}

} // namespace tarvo::test::jmd
