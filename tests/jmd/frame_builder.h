// Hand-made JPEG frames for the decoder's tests: marker segments put
// together one by one, and entropy-coded data from chosen DC values and AC
// coefficients, so that a test can say exactly what a frame holds.
#ifndef TARVO_TESTS_JMD_FRAME_BUILDER_H
#define TARVO_TESTS_JMD_FRAME_BUILDER_H

#include <cstdint>
#include <utility>
#include <vector>

namespace tarvo::test::jmd
{

using Bytes = std::vector<uint8_t>;

struct HuffmanTable {
    uint8_t counts[17]; // codes per length 1..16
    std::vector<uint8_t> symbols;
};

// DC categories 0..11 and AC symbols with code lengths of the usual shape
// (2 to 16 bits, 162 symbols).
HuffmanTable dcTable();
HuffmanTable acTable();

struct FrameComponent {
    int id;
    int h;
    int v;
    int quantTable;
};

struct ScanComponent {
    int id;
    int dcTable;
    int acTable;
};

// Entropy-coded data, bytes stuffed; padded with 1 bits where it ends.
class ScanWriter
{
  public:
    // One block: its DC difference and its AC coefficients as (zero run,
    // value) pairs, then an end of block unless they reach coefficient 63.
    void block(const HuffmanTable &dc, const HuffmanTable &ac, int dcDifference,
               const std::vector<std::pair<int, int>> &coefficients = {});
    void symbol(const HuffmanTable &table, int symbol);
    void bits(uint32_t value, int count);
    // Pads the data to a byte boundary and appends RSTn.
    void restartMarker(int number);
    Bytes finish();

  private:
    void put(uint32_t value, int count);
    void flush();

    Bytes out;
    uint32_t pending = 0;
    int pendingBits = 0;
};

class FrameBuilder
{
  public:
    FrameBuilder &soi();
    FrameBuilder &eoi();
    FrameBuilder &marker(int code);
    FrameBuilder &segment(int code, const Bytes &payload);
    FrameBuilder &quantTable(int number, int dcQuantiser);
    FrameBuilder &frameHeader(int width, int height, const std::vector<FrameComponent> &components,
                              int code = 0xC0);
    FrameBuilder &huffmanTable(int tableClass, int number, const HuffmanTable &table);
    FrameBuilder &restartInterval(int mcus);
    FrameBuilder &scanHeader(const std::vector<ScanComponent> &components);
    FrameBuilder &raw(const Bytes &bytes);
    Bytes build() const { return frame; }

  private:
    Bytes frame;
};

// A frame as the camera makes it: luminance sampled 2x1 (component 1,
// quantisation table 0, Huffman tables 0) and two chroma components with DC
// 0, standard-shaped tables, quantiser `quantiser`.  `lumaDc` holds the
// quantised DC value of every luminance block in map order, ceil(width / 8)
// by ceil(height / 8); `coefficients` AC pairs given to every block.
struct CameraFrame {
    int width;
    int height;
    int quantiser;
    std::vector<int> lumaDc;
    int restartMcus = 0;
    std::vector<std::pair<int, int>> coefficients = {};
};

// The header segments, the scan's data, and EOI, apart.
struct CameraParts {
    Bytes header; // SOI to SOS
    Bytes scan;
    Bytes build() const;
};

CameraParts cameraParts(const CameraFrame &frame);
Bytes cameraFrame(const CameraFrame &frame);

} // namespace tarvo::test::jmd

#endif
