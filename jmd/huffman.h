// Huffman tables in the forms the entropy decoders use: canonical limits for
// a code search bit by bit, and the fast look-ahead tables.
#ifndef TARVO_JMD_HUFFMAN_H
#define TARVO_JMD_HUFFMAN_H

#include "state.h"

namespace tarvo::jmd
{

// A decoded symbol and the code length it took (17 for no valid code,
// which decodes as symbol 0).
struct CodeMatch {
    int length;
    int symbol;
};

// How far the AC position k moves for a symbol: run + 1 for a coefficient,
// 16 for a run of sixteen zeros (0xF0), kEndOfBlock for any other symbol of
// size 0.
inline constexpr int kEndOfBlock = 64;

inline int acAdvance(int symbol)
{
    if (symbol & 15)
        return (symbol >> 4) + 1;
    return symbol == 0xF0 ? 16 : kEndOfBlock;
}

// Magnitude bits after a DC symbol; categories above 15 carry none.
inline int dcCategory(int symbol)
{
    return symbol > 15 ? 0 : symbol;
}

// A value's s magnitude bits r stand for r when their top bit is set and
// for r - (2^s - 1) otherwise.
inline int32_t extendMagnitude(int32_t r, int s)
{
    return r < (1 << (s - 1)) ? r - (1 << s) + 1 : r;
}

// Fast DC entry for a kFastDcBits look-ahead: code length in bits 0-4 and
// magnitude bits in bits 5-8; 0 when the code is longer.
inline int dcEntryCodeLength(uint16_t entry)
{
    return entry & 31;
}
inline int dcEntryCategory(uint16_t entry)
{
    return entry >> 5;
}

// Fast AC entry for a kFastAcBits look-ahead: as many whole symbols as the
// look-ahead holds, each with its magnitude bits.  Bits 0-5: the bits they
// take; bit 6: they end the block; bits 10-15: how far they move k (an end
// of block, always last, counts 0).  It holds only while k + the move stays
// below 64 (else one of them might end the block early): kAcEntryLonger,
// for a first code longer than the look-ahead, never holds.
inline constexpr uint16_t kAcEntryEndsBlock = 1 << 6;
inline constexpr uint16_t kAcEntryLonger = 63 << 10;

inline int acEntryBits(uint16_t entry)
{
    return entry & 63;
}
inline int acEntryAdvance(uint16_t entry)
{
    return entry >> 10;
}
inline bool acEntryEndsBlock(uint16_t entry)
{
    return entry & kAcEntryEndsBlock;
}

// The table with no codes that Huffman table numbers above 3 refer to.
extern const JmdHuffTable kEmptyHuffTable;
extern const JmdDerivedTable kEmptyDerivedTable;

const JmdHuffTable &huffSource(const JmdState &s, uint8_t id);
const JmdDerivedTable &derivedTable(const JmdState &s, uint8_t id);

// The symbol at `index` in code order; 0 past the 256 a table holds.
inline int symbolAt(const JmdHuffTable &table, int32_t index)
{
    return index < 256 ? table.symbols[index] : 0;
}

// The canonical search over the code bits at the top of `bits` (at least 17
// of them valid), trying lengths from `fromLength` up.
inline CodeMatch searchCode(const JmdDerivedTable &derived, const JmdHuffTable &source,
                            uint64_t bits, int fromLength)
{
    int length = fromLength;
    int32_t code = int32_t(bits >> (64 - length));
    while (code > derived.maxcode[length]) {
        length++;
        code = int32_t(bits >> (64 - length));
    }
    if (length > 16)
        return {17, 0};
    return {length, symbolAt(source, code + derived.valoffset[length])};
}

// The canonical search limited to the first `available` (at most 16) bits at
// the top of `bits`; length 0 when no code fits in them.
CodeMatch matchWithin(const JmdDerivedTable &derived, const JmdHuffTable &source, uint64_t bits,
                      int available);

void jmd_build_huffman(const JmdHuffTable &source, JmdDerivedTable &derived);
// A DHT segment replaced table `id`: its fast slot must be built again.
void forgetFastTable(JmdState &s, uint8_t id);

void buildFastDc(const JmdHuffTable &source, uint16_t *entries);
void buildFastAc(const JmdHuffTable &source, uint16_t *entries);

} // namespace tarvo::jmd

#endif
