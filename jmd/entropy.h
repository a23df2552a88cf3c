// Entropy decoding of the first scan: one DC value per block of the scan's
// first component, MCU by MCU, with restart markers honoured.
#ifndef TARVO_JMD_ENTROPY_H
#define TARVO_JMD_ENTROPY_H

#include "state.h"

namespace tarvo::jmd
{

// Per-scan start: derived and fast tables, predictors, bit buffer, restart
// count.  Needs the MCU layout.
void jmd_start_huffman(JmdState &s);

// The state of the fast bit reader between MCUs.  The next bits are at the
// top of `bits`; `count` of them are valid, of which the last `padding` are
// zeros standing for data past the marker that ends the data at `end`.
struct FastReader {
    uint64_t bits;
    int count;
    int padding;
    const uint8_t *next;
    const uint8_t *end;
};

// What the fast decoder needs of each block of an MCU.
struct FastBlock {
    const uint16_t *dcEntries;
    const uint16_t *acEntries;
    const JmdDerivedTable *dcTable;
    const JmdDerivedTable *acTable;
    const JmdHuffTable *dcSymbols;
    const JmdHuffTable *acSymbols;
    int dcSearchFrom; // first code length searched when the look-ahead holds no code
    int acSearchFrom;
    bool firstComponent;
};

// DC values of one MCU's blocks; only those of the scan's first component
// are set, the others stay 0.
using McuDc = int16_t[kMaxBlocks];

// The byte-at-a-time decoder: one MCU's blocks, exactly as the bit buffer
// refilled to 25 bits behaves, running out of input included.  1, or 0 with
// the context as it was before the MCU.
int jmd_decode_mcu_plain(JmdState &s, int16_t *dc_out);

// The fast decoder: up to `count` MCUs from data that ends in a marker, so
// nothing can run out.  Stops after the MCU that used bits past the marker,
// setting insufficient_data; returns the MCUs decoded.
int decodeMcusFast(JmdState &s, FastReader &reader, const FastBlock *blocks, McuDc *dc, int count);
void setUpFastBlocks(const JmdState &s, FastBlock *blocks);
void loadFastReader(const JmdState &s, FastReader &reader, const uint8_t *end);
void storeFastReader(JmdState &s, const FastReader &reader);

// Decodes the MCUs of one row in turn, using the fast decoder wherever the
// data ahead ends in a marker and the plain one where it ends with the input.
class EntropyDecoder
{
  public:
    explicit EntropyDecoder(JmdState &s);
    // Decodes `count` MCUs in turn: restart when due, skip after
    // insufficient data (DC values 0), else decode.  Returns the MCUs done
    // before the input ran out: `count` when it did not.
    int decodeMcus(McuDc *dc, int count);
    // Leaves the bit reader's state in the context.
    void finish();

  private:
    enum class Mode { Unknown, Fast, Plain };
    void chooseMode();

    JmdState &s;
    Mode mode = Mode::Unknown;
    FastReader reader = {};
    FastBlock blocks[kMaxBlocks] = {};
};

} // namespace tarvo::jmd

#endif
