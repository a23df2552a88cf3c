// The reference decoder: every step as its description gives it, with the
// same choices beyond the layout's limits as the header documents.
#include "reference_decoder.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace tarvo::test::jmd
{

ReferenceDecoder::ReferenceDecoder()
{
    for (int i = 0; i < 1408; i++)
        clamp[i] = uint8_t(i < 256    ? 0
                           : i < 512  ? i - 256
                           : i < 896  ? 255
                           : i < 1280 ? 0
                                      : i - 1280);
    buildDerived(HuffTable{}, empty);
}

// ---- Marker reader ----

int ReferenceDecoder::takeByte()
{
    bytes_left--;
    return *next_byte++;
}

int ReferenceDecoder::takeWord()
{
    int high = takeByte();
    return high << 8 | takeByte();
}

void ReferenceDecoder::skipInput(int32_t count)
{
    uint32_t step = count > 0 ? std::min(uint32_t(count), bytes_left) : 0;
    next_byte += step;
    bytes_left -= step;
}

int ReferenceDecoder::readFirstMarker()
{
    if (!haveBytes(2))
        return 0;
    takeByte();
    unread_marker = takeByte();
    return 1;
}

int ReferenceDecoder::scanMarker()
{
    for (;;) {
        int c = 0;
        while (c != 0xFF) {
            if (!haveBytes(1))
                return 0;
            c = takeByte();
        }
        while (c == 0xFF) {
            if (!haveBytes(1))
                return 0;
            c = takeByte();
        }
        if (c != 0) {
            unread_marker = c;
            return 1;
        }
    }
}

int ReferenceDecoder::readFrame()
{
    if (!haveBytes(2))
        return 0;
    skipInput(3);
    if (!haveBytes(2))
        return 0;
    image_height = takeWord();
    if (!haveBytes(2))
        return 0;
    image_width = takeWord();
    if (!haveBytes(1))
        return 0;
    num_components = takeByte();
    for (int i = 0; i < num_components; i++) {
        Component dropped = {};
        Component &c = i < 4 ? comp[i] : dropped;
        c.component_index = i;
        if (!haveBytes(1))
            return 0;
        c.component_id = takeByte();
        if (!haveBytes(1))
            return 0;
        int factors = takeByte();
        c.h_samp_factor = factors >> 4;
        c.v_samp_factor = factors & 15;
        if (!haveBytes(1))
            return 0;
        c.quant_tbl_no = takeByte();
    }
    return 1;
}

int ReferenceDecoder::readScan()
{
    if (!haveBytes(3))
        return 0;
    takeWord();
    comps_in_scan = takeByte();
    for (int i = 0; i < comps_in_scan; i++) {
        if (!haveBytes(2))
            return 0;
        int selector = takeByte();
        int tables = takeByte();
        int defined = std::min(num_components, 4);
        int index = defined;
        for (int ci = defined - 1; ci >= 0; ci--)
            if (comp[ci].component_id == selector)
                index = ci;
        if (i < 4)
            cur_comp[i] = index;
        comp[index].dc_tbl_no = tables >> 4;
        comp[index].ac_tbl_no = tables & 15;
    }
    skipInput(3);
    next_restart_num = 0;
    return 1;
}

int ReferenceDecoder::readHuffman()
{
    if (!haveBytes(2))
        return 0;
    int remaining = takeWord() - 2;
    while (remaining >= 17) {
        HuffTable table = {};
        if (!haveBytes(1))
            return 0;
        int index = takeByte();
        int total = 0;
        for (int l = 1; l <= 16; l++) {
            if (!haveBytes(1))
                return 0;
            table.counts[l] = uint8_t(takeByte());
            total += table.counts[l];
        }
        for (int i = 0; i < total; i++) {
            if (!haveBytes(1))
                return 0;
            int symbol = takeByte();
            if (i < 256)
                table.symbols[i] = uint8_t(symbol);
        }
        remaining -= 17 + total;
        if ((index & 0x10) && index - 16 < 4)
            ac_huff[index - 16] = table;
        else if (!(index & 0x10) && index < 4)
            dc_huff[index] = table;
    }
    return 1;
}

int ReferenceDecoder::readQuant()
{
    if (!haveBytes(2))
        return 0;
    int remaining = takeWord() - 2;
    while (remaining > 0) {
        if (!haveBytes(2))
            return 0;
        dc_quant[next_byte[0] & 15] = next_byte[1];
        skipInput(65);
        remaining -= 65;
    }
    return 1;
}

int ReferenceDecoder::readRestartInterval()
{
    if (!haveBytes(4))
        return 0;
    takeWord();
    restart_interval = takeWord();
    return 1;
}

int ReferenceDecoder::skipSegment()
{
    if (!haveBytes(2))
        return 0;
    int length = takeWord();
    if (length - 2 >= 1)
        skipInput(length - 2);
    return 1;
}

int ReferenceDecoder::readMarkers()
{
    for (;;) {
        if (unread_marker == 0 && !(saw_SOI ? scanMarker() : readFirstMarker()))
            return 0;
        int ok = 1;
        switch (unread_marker) {
        case 0xC0:
        case 0xC1:
        case 0xC2:
            ok = readFrame();
            break;
        case 0xC4:
            ok = readHuffman();
            break;
        case 0xCC:
        case 0xDC:
            ok = skipSegment();
            break;
        case 0xD8:
            restart_interval = 0;
            saw_SOI = 1;
            break;
        case 0xD9:
            unread_marker = 0;
            return 2;
        case 0xDA:
            if (!readScan())
                return 0;
            unread_marker = 0;
            return 1;
        case 0xDB:
            ok = readQuant();
            break;
        case 0xDD:
            ok = readRestartInterval();
            break;
        }
        if (!ok)
            return 0;
        unread_marker = 0;
    }
}

int ReferenceDecoder::readRestartMarker()
{
    if (unread_marker == 0 && !scanMarker())
        return 0;
    if (unread_marker == 0xD0 + next_restart_num)
        unread_marker = 0;
    else if (!resyncToRestart(next_restart_num))
        return 0;
    next_restart_num = (next_restart_num + 1) & 7;
    return 1;
}

int ReferenceDecoder::resyncToRestart(int desired)
{
    auto rst = [](int k) { return 0xD0 + (k & 7); };
    for (;;) {
        int m = unread_marker;
        if (m >= 0xC0) {
            if (m < 0xD0 || m > 0xD7 || m == rst(desired + 1) || m == rst(desired + 2))
                return 1;
            if (m != rst(desired - 1) && m != rst(desired - 2)) {
                unread_marker = 0;
                return 1;
            }
        }
        unread_marker = 0;
        if (!scanMarker())
            return 0;
    }
}

// ---- Entropy decoding ----

void ReferenceDecoder::buildDerived(const HuffTable &source, DerivedTable &derived)
{
    derived.source = &source;
    int huffsize[4081];
    int32_t huffcode[4081];
    int p = 0;
    for (int l = 1; l <= 16; l++)
        for (int i = 0; i < source.counts[l]; i++)
            huffsize[p++] = l;
    huffsize[p] = 0;
    int32_t code = 0;
    int si = huffsize[0];
    p = 0;
    while (huffsize[p]) {
        while (huffsize[p] == si)
            huffcode[p++] = code++;
        code <<= 1;
        si++;
    }
    p = 0;
    for (int l = 1; l <= 16; l++) {
        if (source.counts[l]) {
            derived.valoffset[l] = p - huffcode[p];
            p += source.counts[l];
            derived.maxcode[l] = huffcode[p - 1];
        } else {
            derived.maxcode[l] = -1;
            derived.valoffset[l] = 0;
        }
    }
    derived.maxcode[17] = 0xFFFFF;
    std::memset(derived.look_nbits, 0, sizeof derived.look_nbits);
    p = 0;
    for (int l = 1; l <= 8; l++) {
        for (int i = 1; i <= source.counts[l]; i++, p++) {
            int32_t first = huffcode[p] << (8 - l);
            for (int32_t look = first; look < first + (1 << (8 - l)) && look < 256; look++) {
                derived.look_nbits[look] = l;
                derived.look_sym[look] = p < 256 ? source.symbols[p] : 0;
            }
        }
    }
}

const ReferenceDecoder::DerivedTable &ReferenceDecoder::tableFor(bool dc, int number)
{
    if (number > 3)
        return empty;
    return dc ? dc_derived[number] : ac_derived[number];
}

void ReferenceDecoder::startHuffman()
{
    for (int i = 0; i < std::min(comps_in_scan, 4); i++) {
        Component &c = comp[cur_comp[i]];
        if (c.dc_tbl_no < 4)
            buildDerived(dc_huff[c.dc_tbl_no], dc_derived[c.dc_tbl_no]);
        if (c.ac_tbl_no < 4)
            buildDerived(ac_huff[c.ac_tbl_no], ac_derived[c.ac_tbl_no]);
    }
    last_dc_val = 0;
    for (int b = 0; b < blocks_in_MCU; b++) {
        Component &c = comp[cur_comp[mcu_membership[b]]];
        dc_cur[b] = &tableFor(true, c.dc_tbl_no);
        ac_cur[b] = &tableFor(false, c.ac_tbl_no);
    }
    insufficient_data = 0;
    bit_buffer = 0;
    bits_left = 0;
    restarts_to_go = restart_interval;
}

bool ReferenceDecoder::fillBits(BitState &state, int nbits)
{
    if (unread_marker == 0 && state.bits_left < 25) {
        BitState copy = state;
        while (copy.bits_left < 25) {
            if (copy.bytes_left == 0)
                return false;
            int c = *copy.next++;
            copy.bytes_left--;
            if (c == 0xFF) {
                do {
                    if (copy.bytes_left == 0)
                        return false;
                    c = *copy.next++;
                    copy.bytes_left--;
                } while (c == 0xFF);
                if (c != 0) {
                    unread_marker = c;
                    break;
                }
                c = 0xFF;
            }
            copy.buffer = copy.buffer << 8 | uint32_t(c);
            copy.bits_left += 8;
        }
        state = copy;
    }
    if (unread_marker != 0 && nbits > state.bits_left) {
        insufficient_data = 1;
        state.buffer <<= 25 - state.bits_left;
        state.bits_left = 25;
    }
    return true;
}

static int32_t takeBits(uint32_t buffer, int &bitsLeft, int n)
{
    bitsLeft -= n;
    return int32_t(buffer >> bitsLeft) & ((1 << n) - 1);
}

int ReferenceDecoder::decodeSymbol(BitState &state, const DerivedTable &table, int minBits)
{
    if (state.bits_left < minBits && !fillBits(state, minBits))
        return -1;
    int32_t code = takeBits(state.buffer, state.bits_left, minBits);
    int l = minBits;
    while (code > table.maxcode[l]) {
        if (state.bits_left < 1 && !fillBits(state, 1))
            return -1;
        code = code << 1 | takeBits(state.buffer, state.bits_left, 1);
        l++;
    }
    if (l > 16)
        return 0;
    int index = code + table.valoffset[l];
    return index < 256 ? table.source->symbols[index] : 0;
}

int ReferenceDecoder::decodeSymbolLookAhead(BitState &state, const DerivedTable &table)
{
    if (state.bits_left < 8) {
        if (!fillBits(state, 0))
            return -1;
        if (state.bits_left < 8)
            return decodeSymbol(state, table, 1);
    }
    int look = int(state.buffer >> (state.bits_left - 8)) & 0xFF;
    if (int nbits = table.look_nbits[look]) {
        state.bits_left -= nbits;
        return table.look_sym[look];
    }
    return decodeSymbol(state, table, 9);
}

int ReferenceDecoder::restart()
{
    bits_left = 0;
    if (!readRestartMarker())
        return 0;
    last_dc_val = 0;
    restarts_to_go = restart_interval;
    if (unread_marker == 0)
        insufficient_data = 0;
    return 1;
}

int ReferenceDecoder::decodeMcu(int16_t *dc)
{
    static const int extendTest[16] = {0,   1,   2,   4,    8,    16,   32,   64,
                                       128, 256, 512, 1024, 2048, 4096, 8192, 16384};
    static const int extendOffset[16] = {0,    -1,   -3,    -7,    -15,   -31,   -63,    -127,
                                         -255, -511, -1023, -2047, -4095, -8191, -16383, -32767};
    if (restart_interval != 0 && restarts_to_go == 0 && !restart())
        return 0;
    if (insufficient_data) {
        restarts_to_go--;
        return 1;
    }
    BitState state = {bit_buffer, bits_left, next_byte, bytes_left};
    uint32_t predictor = last_dc_val;
    for (int b = 0; b < blocks_in_MCU; b++) {
        int s = decodeSymbolLookAhead(state, *dc_cur[b]);
        if (s < 0)
            return 0;
        int r = 0;
        if (s > 15)
            s = 0;
        if (s) {
            if (state.bits_left < s && !fillBits(state, s))
                return 0;
            r = takeBits(state.buffer, state.bits_left, s);
            if (r < extendTest[s])
                r += extendOffset[s];
        }
        if (mcu_membership[b] == 0) {
            predictor += uint32_t(r);
            dc[b] = int16_t(uint16_t(predictor));
        }
        for (int k = 1; k < 64; k++) {
            int symbol = decodeSymbolLookAhead(state, *ac_cur[b]);
            if (symbol < 0)
                return 0;
            int run = symbol >> 4, size = symbol & 15;
            if (size) {
                k += run;
                if (state.bits_left < size && !fillBits(state, size))
                    return 0;
                state.bits_left -= size;
            } else if (run == 15) {
                k += 15;
            } else {
                break;
            }
        }
    }
    bit_buffer = state.buffer;
    bits_left = state.bits_left;
    next_byte = state.next;
    bytes_left = state.bytes_left;
    last_dc_val = predictor;
    restarts_to_go--;
    return 1;
}

// ---- Output stage and entry points ----

void ReferenceDecoder::setupMcu()
{
    mcus_per_row = uint32_t((image_width + 15) / 16);
    blocks_in_MCU = 0;
    bool fits = comps_in_scan <= 4;
    int blocks = 0;
    for (int i = 0; i < std::min(comps_in_scan, 4); i++) {
        Component &c = comp[cur_comp[i]];
        c.mcu_width = c.h_samp_factor;
        c.mcu_height = c.v_samp_factor;
        c.mcu_blocks = c.mcu_width * c.mcu_height;
        if (i == 0) {
            if (c.mcu_width == 0 || c.mcu_height == 0) {
                fits = false;
            } else {
                c.last_col_width =
                    c.width_in_blocks % c.mcu_width ? c.width_in_blocks % c.mcu_width : c.mcu_width;
                c.last_row_height = c.height_in_blocks % c.mcu_height
                                        ? c.height_in_blocks % c.mcu_height
                                        : c.mcu_height;
            }
        }
        for (int n = 0; n < c.mcu_blocks; n++, blocks++)
            if (blocks < 4)
                mcu_membership[blocks] = i;
    }
    blocks_in_MCU = std::min(blocks, 4);
    const Component &out = comp[cur_comp[0]];
    int columns = std::max(out.mcu_width, out.last_col_width);
    bool readsFit =
        out.mcu_height == 0 || columns == 0 || (out.mcu_height - 1) * out.mcu_width + columns <= 4;
    layout_fits = fits && blocks <= 4 && readsFit;
}

uint32_t ReferenceDecoder::mapBytes() const
{
    return uint32_t(comp[0].width_in_blocks * comp[0].height_in_blocks);
}

void ReferenceDecoder::putBlock(const Component &c, int16_t dc)
{
    uint32_t capacity = out_map ? mapBytes() : 0;
    if (out_count >= capacity)
        return;
    int32_t v = (dc * c.dc_multiplier) >> 5;
    out_map[out_count++] = clamp[384 + (v & 0x3FF)];
}

int ReferenceDecoder::decodeMcuRow()
{
    uint32_t last_col = mcus_per_row - 1, last_row = total_mcu_rows - 1;
    if (layout_fits && mcus_per_row != 0) {
        for (uint32_t c = mcu_ctr; c <= last_col; c++) {
            int16_t dc[4] = {};
            if (!decodeMcu(dc)) {
                mcu_ctr = c;
                return 0;
            }
            const Component &out = comp[cur_comp[0]];
            int ncols = c < last_col ? out.mcu_width : out.last_col_width;
            for (int y = 0; y < out.mcu_height; y++)
                if (mcu_row < last_row || y < out.last_row_height)
                    for (int x = 0; x < ncols; x++)
                        putBlock(out, dc[y * out.mcu_width + x]);
        }
    }
    mcu_ctr = 0;
    mcu_row++;
    return mcu_row >= total_mcu_rows ? 4 : 3;
}

int ReferenceDecoder::readHeader()
{
    unread_marker = 0;
    saw_SOI = 0;
    if (readMarkers() != 1) {
        messages += "JMD: read header fail!\n";
        return -1;
    }
    comp[0].width_in_blocks = (2 * image_width + 15) / 16;
    comp[0].height_in_blocks = (image_height + 7) / 8;
    total_mcu_rows = uint32_t((image_height + 7) / 8);
    return 0;
}

void ReferenceDecoder::startDecompress()
{
    Component &first = comp[cur_comp[0]];
    first.dc_quant = first.quant_tbl_no < 16 ? dc_quant[first.quant_tbl_no] : 0;
    out_count = 0;
    mcu_ctr = 0;
    setupMcu();
    startHuffman();
    comp[0].dc_multiplier = 4 * comp[0].dc_quant;
    mcu_row = 0;
}

int ReferenceDecoder::scanlines()
{
    if (decodeMcuRow() != 0)
        return 0;
    char line[64];
    std::snprintf(line, sizeof line, "JMD: decompress fail at MCU row: %d\n", int(mcu_row));
    messages += line;
    mcu_row = total_mcu_rows;
    return -1;
}

void ReferenceDecoder::decode(const uint8_t *frame, uint32_t length, uint8_t *map)
{
    next_byte = frame;
    bytes_left = frame ? length : 0;
    out_map = map;
    readHeader();
    startDecompress();
    while (mcu_row < total_mcu_rows)
        scanlines();
}

} // namespace tarvo::test::jmd
