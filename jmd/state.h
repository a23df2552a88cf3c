// The decoder's state, laid out inside the caller's JmdContext.  Positions in
// the frame are kept as counts (bytes left of src_length), table and
// component references as indices, so the layout holds on 32-bit and 64-bit
// hosts alike.
#ifndef TARVO_JMD_STATE_H
#define TARVO_JMD_STATE_H

#include "tarvo/jmd.h"

#include <cstdint>

namespace tarvo::jmd
{

inline constexpr int kMaxComponents = 4; // frame components kept, scan components used
inline constexpr int kMaxBlocks = 4;     // blocks per MCU
inline constexpr int kHuffTables = 4;    // table numbers 0..3 of each class
inline constexpr int kQuantTables = 16;  // every number a DQT segment can name
inline constexpr int kFastDcBits = 9;    // look-ahead of the fast DC tables
inline constexpr int kFastAcBits = 11;   // look-ahead of the fast AC tables
inline constexpr int kFastSlots = 2;     // fast tables of each class per frame
inline constexpr uint8_t kNoFastSlot = 0xFF;

// Derived table ids: DC table n is n, AC table n is kHuffTables + n, and
// numbers above 3 of either class share kEmptyTable, which has no codes.
inline constexpr uint8_t kEmptyTable = 2 * kHuffTables;

struct JmdComponent {
    int32_t component_id;
    int32_t h_samp_factor;
    int32_t v_samp_factor;
    int32_t quant_tbl_no;
    int32_t dc_tbl_no;
    int32_t ac_tbl_no;
    int32_t mcu_width;
    int32_t mcu_height;
    int32_t mcu_blocks;
    int32_t last_col_width;
    int32_t last_row_height;
    int32_t dc_multiplier; // 4 x dc_quant; dc_quant comes from one byte, so at most 1020
    uint16_t dc_quant;
    int32_t width_in_blocks;
    int32_t height_in_blocks;
};

// A Huffman table as a DHT segment gives it.
struct JmdHuffTable {
    uint8_t counts[17]; // codes per length 1..16; counts[0] is 0
    uint8_t symbols[256];
};

// Canonical decoding limits of one table, rebuilt for every scan.
struct JmdDerivedTable {
    int32_t maxcode[18];   // largest code per length, -1 for none; [17] ends every search
    int32_t valoffset[17]; // symbol index minus code, per length
};

struct JmdState {
    int32_t comps_in_scan;
    int32_t num_components;
    int32_t unread_marker;
    int32_t blocks_in_MCU;
    uint32_t out_count;
    int32_t image_width;
    int32_t image_height;
    uint32_t mcu_row;
    uint32_t total_mcu_rows;
    uint32_t mcus_per_row;
    int32_t restart_interval;
    int32_t mcu_membership[kMaxBlocks];
    uint16_t dc_quant[kQuantTables];
    uint8_t clamp[1024]; // map byte per (value & 0x3FF)
    JmdHuffTable dc_huff[kHuffTables];
    JmdHuffTable ac_huff[kHuffTables];
    JmdComponent comp[kMaxComponents + 1]; // the last is the spare of the header comment
    uint8_t cur_comp[kMaxComponents];      // scan components as indices into comp
    uint32_t src_length;
    uint32_t bytes_left;
    const uint8_t *src_start;
    uint32_t mcu_ctr;
    int32_t saw_SOI;
    int32_t next_restart_num;
    int32_t restarts_to_go;
    int32_t insufficient_data;
    // The entropy bit buffer: its low bits_left bits (up to 64) are valid,
    // the most significant of them read first.
    uint32_t bit_buffer_high;
    uint32_t bit_buffer_low;
    int32_t bits_left;
    uint32_t last_dc_val[kMaxComponents];     // only the low 16 bits matter
    JmdDerivedTable derived[2 * kHuffTables]; // by derived table id
    uint8_t dc_cur[kMaxBlocks];               // derived table id per MCU block
    uint8_t ac_cur[kMaxBlocks];
    uint8_t dc_fast_slot[kMaxBlocks]; // fast table per MCU block, or kNoFastSlot
    uint8_t ac_fast_slot[kMaxBlocks];
    uint8_t dc_fast_table[kFastSlots]; // derived table id + 1 each slot was built for, 0 none
    uint8_t ac_fast_table[kFastSlots];
    uint8_t *out_map;
    int32_t geometry_ok; // the MCU layout fits the limits of the layout
    // Where the entropy data read from segment_from ends: segment_end is the
    // first byte that is no data (the 0xFF run of a marker, or the end of the
    // input) and segment_marker the marker code there, or 0 for the end of
    // the input; segment_marker < 0 when not yet known.
    uint32_t segment_from;
    uint32_t segment_end;
    int32_t segment_marker;
    uint16_t dc_fast[kFastSlots][1 << kFastDcBits];
    uint16_t ac_fast[kFastSlots][1 << kFastAcBits];
};

static_assert(sizeof(JmdState) <= JMD_CONTEXT_SIZE, "the decoder state must fit a JmdContext");
static_assert(alignof(JmdState) <= alignof(JmdContext));

inline JmdState &stateOf(JmdContext *ctx)
{
    return *reinterpret_cast<JmdState *>(ctx);
}

inline uint32_t inputOffset(const JmdState &s)
{
    return s.src_length - s.bytes_left;
}

inline const uint8_t *nextByte(const JmdState &s)
{
    return s.src_start + inputOffset(s);
}

inline JmdComponent &firstScanComponent(JmdState &s)
{
    return s.comp[s.cur_comp[0]];
}

inline int32_t jmd_ceil_div(int32_t a, int32_t b)
{
    return (a + b - 1) / b;
}

} // namespace tarvo::jmd

#endif
