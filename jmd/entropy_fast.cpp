// The fast entropy decoder, for data that ends in a marker.  There nothing
// can run out: bits past the marker read as zeros, and the MCU that uses any
// of them sets insufficient_data, just as the byte-at-a-time decoder does,
// whatever the moments of its refills.  So the reader may run ahead: a
// 64-bit buffer refilled eight bytes at a time while they hold no 0xFF, and
// look-ahead tables that take a code with its magnitude bits, several AC
// coefficients at once where their codes are short.
#include "entropy.h"
#include "huffman.h"

#include <cstring>

namespace tarvo::jmd
{
namespace
{

// The tables of blocks whose Huffman table got no fast slot: every entry
// sends the decoder to the code search.
const uint16_t kNoDcEntries[1 << kFastDcBits] = {};

struct NoAcEntries {
    uint16_t entries[1 << kFastAcBits];
    constexpr NoAcEntries() : entries()
    {
        for (uint16_t &entry : entries)
            entry = kAcEntryLonger;
    }
};
constexpr NoAcEntries kNoAcEntries;

uint64_t loadBigEndian(const uint8_t *at)
{
    uint64_t word;
    std::memcpy(&word, at, sizeof word);
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    word = __builtin_bswap64(word);
#endif
    return word;
}

bool holdsFF(uint64_t word)
{
    return ((~word - 0x0101010101010101u) & word & 0x8080808080808080u) != 0;
}

// The reader in local variables while an MCU is decoded.  Invariant: the
// bits below the `count` valid ones are zero or the data that follows them.
struct BitCursor {
    uint64_t bits;
    int count;
    int padding;
    const uint8_t *next;
    const uint8_t *end;

    uint32_t peek(int n) const { return uint32_t(bits >> (64 - n)); }

    void skip(int n)
    {
        bits <<= n;
        count -= n;
    }

    // Afterwards 53 to 63 bits are valid; cheap when they already were.
    void refill()
    {
        if (end - next >= 8) {
            uint64_t word = loadBigEndian(next);
            if (!holdsFF(word)) {
                bits |= word >> count;
                next += (63 - count) >> 3;
                count |= 56;
                return;
            }
        }
        refillBytes();
    }

    // A byte at a time: 0xFF (with any fill bytes) and the 0x00 after it are
    // one data byte; past the end come zeros.
    void refillBytes()
    {
        bits &= count ? ~uint64_t(0) << (64 - count) : 0;
        while (count < 53) {
            if (next < end) {
                uint64_t byte = *next++;
                if (byte == 0xFF) {
                    while (*next == 0xFF)
                        next++;
                    next++;
                }
                bits |= byte << (56 - count);
            } else {
                padding += 8;
            }
            count += 8;
        }
    }
};

// The DC difference whose `category` magnitude bits (0 to 15) are at the top
// of `bits`, without a branch on the category: a category of 0 takes no
// bits and gives 0.
inline int32_t dcDifference(uint64_t bits, int category)
{
    int32_t magnitude = int32_t((bits >> 32) >> (32 - category));
    int32_t negative = -int32_t(magnitude < ((1 << category) >> 1));
    return magnitude - (((1 << category) - 1) & negative);
}

struct Step {
    int bits;
    int advance;
};

// Where an AC entry does not hold, the code is searched for: from length 1
// when the block could end inside the entry's symbols, past the look-ahead
// when the code is longer than it.  `bits` holds at least 32 valid bits.
[[gnu::noinline]] Step searchCoefficient(const FastBlock &block, uint16_t entry, uint64_t bits)
{
    int from = acEntryBits(entry) ? 1 : block.acSearchFrom;
    CodeMatch match = searchCode(*block.acTable, *block.acSymbols, bits, from);
    return {match.length + (match.symbol & 15), acAdvance(match.symbol)};
}

// One look-up's worth of AC symbols, for the look-ahead `window`; true when
// the block has ended.  A fast entry takes at most 21 bits (a code that ends
// in the look-ahead and 10 magnitude bits); the code search refills.
inline bool skipCoefficients(BitCursor &in, uint32_t window, const FastBlock &block, int &k)
{
    uint16_t entry = block.acEntries[window];
    if (__builtin_expect(k + acEntryAdvance(entry) >= 64, 0)) {
        in.refill();
        Step step = searchCoefficient(block, entry, in.bits);
        in.skip(step.bits);
        in.refill();
        k += step.advance;
        return k >= 64;
    }
    in.skip(acEntryBits(entry));
    k += acEntryAdvance(entry);
    return acEntryEndsBlock(entry);
}

// One MCU's blocks; the DC predictor of the scan's first component goes on
// from `predictor`.
inline void decodeMcu(BitCursor &in, const FastBlock *blocks, int blockCount, uint32_t &predictor,
                      int16_t *dc_out)
{
    for (int b = 0; b < blockCount; b++) {
        const FastBlock &block = blocks[b];
        // A DC code (at most 17 bits) and its magnitude (at most 15).  At
        // least 11 bits are left from the block before, enough for the
        // look-ahead, which is taken before the refill as below.
        uint32_t dcWindow = in.peek(kFastDcBits);
        in.refill();
        int codeLength;
        int category;
        if (uint16_t entry = block.dcEntries[dcWindow]) {
            codeLength = dcEntryCodeLength(entry);
            category = dcEntryCategory(entry);
        } else {
            CodeMatch match =
                searchCode(*block.dcTable, *block.dcSymbols, in.bits, block.dcSearchFrom);
            codeLength = match.length;
            category = dcCategory(match.symbol);
        }
        if (block.firstComponent) {
            predictor += uint32_t(dcDifference(in.bits << codeLength, category));
            dc_out[b] = int16_t(uint16_t(predictor));
        }
        in.skip(codeLength + category);

        // AC coefficients are only stepped over, two look-ups per refill.
        // Two fast entries take at most 42 of the 53 bits a refill leaves,
        // so the look-ahead of the next pair is taken before the refill,
        // which then stays off the chain of look-ups.
        int k = 1;
        uint32_t window = in.peek(kFastAcBits);
        in.refill();
        for (;;) {
            if (skipCoefficients(in, window, block, k) ||
                skipCoefficients(in, in.peek(kFastAcBits), block, k))
                break;
            window = in.peek(kFastAcBits);
            in.refill();
        }
    }
}

} // namespace

void setUpFastBlocks(const JmdState &s, FastBlock *blocks)
{
    for (int b = 0; b < s.blocks_in_MCU; b++) {
        FastBlock &block = blocks[b];
        uint8_t dcSlot = s.dc_fast_slot[b];
        uint8_t acSlot = s.ac_fast_slot[b];
        block.dcEntries = dcSlot == kNoFastSlot ? kNoDcEntries : s.dc_fast[dcSlot];
        block.acEntries = acSlot == kNoFastSlot ? kNoAcEntries.entries : s.ac_fast[acSlot];
        block.dcSearchFrom = dcSlot == kNoFastSlot ? 1 : kFastDcBits + 1;
        block.acSearchFrom = acSlot == kNoFastSlot ? 1 : kFastAcBits + 1;
        block.dcTable = &derivedTable(s, s.dc_cur[b]);
        block.acTable = &derivedTable(s, s.ac_cur[b]);
        block.dcSymbols = &huffSource(s, s.dc_cur[b]);
        block.acSymbols = &huffSource(s, s.ac_cur[b]);
        block.firstComponent = s.mcu_membership[b] == 0;
    }
}

void loadFastReader(const JmdState &s, FastReader &reader, const uint8_t *end)
{
    uint64_t buffer = uint64_t(s.bit_buffer_high) << 32 | s.bit_buffer_low;
    reader.count = s.bits_left;
    reader.bits = s.bits_left ? buffer << (64 - s.bits_left) : 0;
    reader.padding = 0;
    reader.next = nextByte(s);
    reader.end = end;
}

// The zeros past the marker are dropped unless the data already counts as
// insufficient, when no further bit is read.
void storeFastReader(JmdState &s, const FastReader &reader)
{
    int count = s.insufficient_data ? reader.count : reader.count - reader.padding;
    uint64_t buffer = count ? reader.bits >> (64 - count) : 0;
    s.bit_buffer_high = uint32_t(buffer >> 32);
    s.bit_buffer_low = uint32_t(buffer);
    s.bits_left = count;
    s.bytes_left = s.src_length - uint32_t(reader.next - s.src_start);
}

int decodeMcusFast(JmdState &s, FastReader &reader, const FastBlock *blocks, McuDc *dc, int count)
{
    BitCursor in = {reader.bits, reader.count, reader.padding, reader.next, reader.end};
    uint32_t predictor = s.last_dc_val[0];
    int done = 0;
    in.refill();
    while (done < count) {
        std::memset(dc[done], 0, sizeof dc[done]);
        decodeMcu(in, blocks, s.blocks_in_MCU, predictor, dc[done]);
        done++;
        if (in.count < in.padding) {
            s.insufficient_data = 1;
            break;
        }
    }
    s.last_dc_val[0] = predictor;
    reader = {in.bits, in.count, in.padding, in.next, in.end};
    return done;
}

} // namespace tarvo::jmd
