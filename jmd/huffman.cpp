// Deriving the decoding forms of a Huffman table.
#include "huffman.h"

namespace tarvo::jmd
{

constexpr JmdDerivedTable emptyDerived()
{
    JmdDerivedTable table = {};
    for (int length = 0; length < 17; length++)
        table.maxcode[length] = -1;
    table.maxcode[17] = 0xFFFFF;
    return table;
}

const JmdHuffTable kEmptyHuffTable = {};
const JmdDerivedTable kEmptyDerivedTable = emptyDerived();

const JmdHuffTable &huffSource(const JmdState &s, uint8_t id)
{
    if (id < kHuffTables)
        return s.dc_huff[id];
    if (id < kEmptyTable)
        return s.ac_huff[id - kHuffTables];
    return kEmptyHuffTable;
}

const JmdDerivedTable &derivedTable(const JmdState &s, uint8_t id)
{
    return id < kEmptyTable ? s.derived[id] : kEmptyDerivedTable;
}

// Codes are given in canonical order: each length continues from the last
// code of the one before, shifted left.  Nothing checks that codes fit their
// lengths, so a table with too many short codes yields codes wider than
// their length, which no bit pattern of that length reaches.
void jmd_build_huffman(const JmdHuffTable &source, JmdDerivedTable &derived)
{
    int32_t code = 0;
    int32_t index = 0;
    for (int length = 1; length <= 16; length++) {
        int count = source.counts[length];
        if (count) {
            derived.valoffset[length] = index - code;
            code += count;
            index += count;
            derived.maxcode[length] = code - 1;
        } else {
            derived.valoffset[length] = 0;
            derived.maxcode[length] = -1;
        }
        code <<= 1;
    }
    derived.maxcode[17] = 0xFFFFF;
}

CodeMatch matchWithin(const JmdDerivedTable &derived, const JmdHuffTable &source, uint64_t bits,
                      int available)
{
    for (int length = 1; length <= available; length++) {
        int32_t code = int32_t(bits >> (64 - length));
        if (code <= derived.maxcode[length])
            return {length, symbolAt(source, code + derived.valoffset[length])};
    }
    return {0, 0};
}

namespace
{

// The code that starts each `width`-bit window and its symbol; length 0
// when the code is longer.  Codes of a length come in canonical order, and
// those wider than their length (a table with too many short codes) start
// no window.
struct ShortCode {
    uint8_t length;
    uint8_t symbol;
};

template <int Width> void fillShortCodes(const JmdHuffTable &source, ShortCode (&codes)[1 << Width])
{
    for (ShortCode &code : codes)
        code = {0, 0};
    int32_t code = 0;
    int32_t index = 0;
    for (int length = 1; length <= Width; length++) {
        for (int i = 0; i < source.counts[length]; i++, code++, index++) {
            if (code >= 1 << length)
                continue;
            int first = code << (Width - length);
            int windows = 1 << (Width - length);
            for (int window = first; window < first + windows; window++)
                codes[window] = {uint8_t(length), uint8_t(symbolAt(source, index))};
        }
        code <<= 1;
    }
}

} // namespace

void forgetFastTable(JmdState &s, uint8_t id)
{
    uint8_t *slotTable = id < kHuffTables ? s.dc_fast_table : s.ac_fast_table;
    for (int slot = 0; slot < kFastSlots; slot++)
        if (slotTable[slot] == id + 1)
            slotTable[slot] = 0;
}

void buildFastDc(const JmdHuffTable &source, uint16_t *entries)
{
    ShortCode codes[1 << kFastDcBits];
    fillShortCodes<kFastDcBits>(source, codes);
    for (int window = 0; window < 1 << kFastDcBits; window++) {
        const ShortCode &code = codes[window];
        entries[window] = code.length ? uint16_t(code.length | dcCategory(code.symbol) << 5) : 0;
    }
}

// Each entry takes the symbols whose codes lie wholly in the look-ahead, as
// long as their moves add up to less than 63.
void buildFastAc(const JmdHuffTable &source, uint16_t *entries)
{
    constexpr int kWindows = 1 << kFastAcBits;
    ShortCode codes[kWindows];
    fillShortCodes<kFastAcBits>(source, codes);
    for (int window = 0; window < kWindows; window++) {
        int used = 0;
        int advance = 0;
        bool ended = false;
        while (!ended && used < kFastAcBits) {
            const ShortCode &code = codes[(window << used) & (kWindows - 1)];
            if (code.length == 0 || code.length > kFastAcBits - used)
                break;
            int move = acAdvance(code.symbol);
            if (move == kEndOfBlock) {
                ended = true;
                move = 0;
            } else if (advance + move > 62) {
                break;
            }
            used += code.length + (code.symbol & 15);
            advance += move;
        }
        entries[window] = used ? uint16_t(used | advance << 10 | (ended ? kAcEntryEndsBlock : 0))
                               : kAcEntryLonger;
    }
}

} // namespace tarvo::jmd
