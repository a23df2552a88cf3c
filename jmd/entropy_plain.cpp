// The byte-at-a-time entropy decoder.  Its bit buffer is refilled a byte at
// a time up to 25 bits whenever a read needs more than it holds, and the
// moments of those refills decide where a frame that ends without a marker
// fails; this decoder keeps them exactly.  It works on a copy of the bit
// buffer, the input position and the DC predictor, and writes them back
// only when the whole MCU succeeded.
#include "entropy.h"
#include "huffman.h"

namespace tarvo::jmd
{
namespace
{

inline constexpr int kRefillBits = 25;

class PlainMcu
{
  public:
    explicit PlainMcu(JmdState &state)
        : s(state), buffer(uint64_t(state.bit_buffer_high) << 32 | state.bit_buffer_low),
          bitsLeft(state.bits_left), bytesLeft(state.bytes_left), predictor(state.last_dc_val[0])
    {
    }

    int decodeBlock(int block, int16_t *dc_out);

    void commit()
    {
        s.bit_buffer_high = uint32_t(buffer >> 32);
        s.bit_buffer_low = uint32_t(buffer);
        s.bits_left = bitsLeft;
        s.bytes_left = bytesLeft;
        s.last_dc_val[0] = predictor;
    }

  private:
    int fillBits(int nbits);
    bool ensure(int nbits) { return bitsLeft >= nbits || fillBits(nbits); }
    int32_t getBits(int nbits)
    {
        bitsLeft -= nbits;
        return int32_t(buffer >> bitsLeft) & ((1 << nbits) - 1);
    }
    int decodeSymbol(uint8_t table, int minBits);
    int decodeSymbolFast(uint8_t table);

    JmdState &s;
    uint64_t buffer;
    int bitsLeft;
    uint32_t bytesLeft;
    uint32_t predictor;
};

// With no marker pending, read bytes until 25 bits are held
// (0xFF 0x00 is the data byte 0xFF, 0xFF before anything else a marker,
// which stops the reading).  With a marker pending, bits wanted beyond those
// held are zeros and mark the data as insufficient.  0 when the input ends
// with no marker.
int PlainMcu::fillBits(int nbits)
{
    if (s.unread_marker == 0 && bitsLeft < kRefillBits) {
        const uint8_t *next = s.src_start + (s.src_length - bytesLeft);
        uint64_t filled = buffer;
        int filledBits = bitsLeft;
        uint32_t left = bytesLeft;
        while (filledBits < kRefillBits) {
            if (left == 0)
                return 0;
            int byte = *next++;
            left--;
            if (byte == 0xFF) {
                do {
                    if (left == 0)
                        return 0;
                    byte = *next++;
                    left--;
                } while (byte == 0xFF);
                if (byte != 0) {
                    s.unread_marker = byte;
                    break;
                }
                byte = 0xFF;
            }
            filled = filled << 8 | uint64_t(byte);
            filledBits += 8;
        }
        buffer = filled;
        bitsLeft = filledBits;
        bytesLeft = left;
    }
    if (s.unread_marker != 0 && nbits > bitsLeft) {
        s.insufficient_data = 1;
        buffer <<= kRefillBits - bitsLeft;
        bitsLeft = kRefillBits;
    }
    return 1;
}

// The code bit by bit from minBits on; -1 when the input
// ran out.
int PlainMcu::decodeSymbol(uint8_t table, int minBits)
{
    const JmdDerivedTable &derived = derivedTable(s, table);
    if (!ensure(minBits))
        return -1;
    int32_t code = getBits(minBits);
    int length = minBits;
    while (code > derived.maxcode[length]) {
        if (!ensure(1))
            return -1;
        code = code << 1 | getBits(1);
        length++;
    }
    if (length > 16)
        return 0;
    return symbolAt(huffSource(s, table), code + derived.valoffset[length]);
}

// A symbol whose code lies in the next 8 bits is taken from them at once.
int PlainMcu::decodeSymbolFast(uint8_t table)
{
    if (bitsLeft < 8) {
        if (!fillBits(0))
            return -1;
        if (bitsLeft < 8)
            return decodeSymbol(table, 1);
    }
    uint64_t lookAhead = buffer << (64 - bitsLeft);
    CodeMatch match = matchWithin(derivedTable(s, table), huffSource(s, table), lookAhead, 8);
    if (!match.length)
        return decodeSymbol(table, 9);
    bitsLeft -= match.length;
    return match.symbol;
}

int PlainMcu::decodeBlock(int block, int16_t *dc_out)
{
    int symbol = decodeSymbolFast(s.dc_cur[block]);
    if (symbol < 0)
        return 0;
    int32_t difference = 0;
    if (int size = dcCategory(symbol)) {
        if (!ensure(size))
            return 0;
        difference = extendMagnitude(getBits(size), size);
    }
    if (s.mcu_membership[block] == 0) {
        predictor += uint32_t(difference);
        dc_out[block] = int16_t(uint16_t(predictor));
    }
    for (int k = 1; k < 64; k++) {
        symbol = decodeSymbolFast(s.ac_cur[block]);
        if (symbol < 0)
            return 0;
        int run = symbol >> 4;
        int size = symbol & 15;
        if (size) {
            k += run;
            if (!ensure(size))
                return 0;
            bitsLeft -= size;
        } else if (run == 15) {
            k += 15;
        } else {
            break;
        }
    }
    return 1;
}

} // namespace

int jmd_decode_mcu_plain(JmdState &s, int16_t *dc_out)
{
    PlainMcu mcu(s);
    for (int block = 0; block < s.blocks_in_MCU; block++)
        if (!mcu.decodeBlock(block, dc_out))
            return 0;
    mcu.commit();
    return 1;
}

} // namespace tarvo::jmd
