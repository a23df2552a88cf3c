// Entropy start, restarts, and the choice between the fast and the plain
// decoder for each stretch of data between markers.
#include "entropy.h"
#include "huffman.h"
#include "markers.h"

#include <algorithm>
#include <cstring>

namespace tarvo::jmd
{
namespace
{

uint8_t dcTableId(int number)
{
    return number < kHuffTables ? uint8_t(number) : kEmptyTable;
}

uint8_t acTableId(int number)
{
    return number < kHuffTables ? uint8_t(kHuffTables + number) : kEmptyTable;
}

// Gives the first kFastSlots distinct tables of the MCU's blocks a fast
// slot each, keeping a table in the slot already built for it and building
// the others; `slotOfBlock` gets each block's slot or kNoFastSlot, and
// `slotTable` holds the table id + 1 built in each slot (0 for none).
template <typename Build>
void assignFastSlots(const JmdState &s, const uint8_t *tableOfBlock, uint8_t *slotOfBlock,
                     uint8_t *slotTable, Build build)
{
    uint8_t wanted[kFastSlots];
    int count = 0;
    for (int b = 0; b < s.blocks_in_MCU; b++) {
        uint8_t table = tableOfBlock[b];
        if (table != kEmptyTable && count < kFastSlots &&
            std::find(wanted, wanted + count, table) == wanted + count)
            wanted[count++] = table;
    }
    uint8_t slotOf[kFastSlots];
    bool claimed[kFastSlots] = {};
    for (int i = 0; i < count; i++) {
        uint8_t *built = std::find(slotTable, slotTable + kFastSlots, uint8_t(wanted[i] + 1));
        slotOf[i] = built == slotTable + kFastSlots ? kNoFastSlot : uint8_t(built - slotTable);
        if (slotOf[i] != kNoFastSlot)
            claimed[slotOf[i]] = true;
    }
    for (int i = 0; i < count; i++) {
        if (slotOf[i] != kNoFastSlot)
            continue;
        slotOf[i] = uint8_t(std::find(claimed, claimed + kFastSlots, false) - claimed);
        claimed[slotOf[i]] = true;
        slotTable[slotOf[i]] = uint8_t(wanted[i] + 1);
        build(huffSource(s, wanted[i]), slotOf[i]);
    }
    for (int b = 0; b < s.blocks_in_MCU; b++) {
        const uint8_t *at = std::find(wanted, wanted + count, tableOfBlock[b]);
        slotOfBlock[b] = at == wanted + count ? kNoFastSlot : slotOf[at - wanted];
    }
}

// Fast tables are built only for tables that changed since.
void buildFastTables(JmdState &s)
{
    assignFastSlots(
        s, s.dc_cur, s.dc_fast_slot, s.dc_fast_table,
        [&](const JmdHuffTable &table, int slot) { buildFastDc(table, s.dc_fast[slot]); });
    assignFastSlots(
        s, s.ac_cur, s.ac_fast_slot, s.ac_fast_table,
        [&](const JmdHuffTable &table, int slot) { buildFastAc(table, s.ac_fast[slot]); });
}

int scanComponents(const JmdState &s)
{
    return std::clamp(s.comps_in_scan, 0, kMaxComponents);
}

// Where the entropy data from the current position ends: at the first 0xFF
// run followed by anything but 0x00, or at the end of the input (an 0xFF run
// there included).  Kept until the position leaves the stretch it covers.
void findSegment(JmdState &s)
{
    uint32_t from = inputOffset(s);
    if (s.segment_marker >= 0 && s.segment_from <= from && from <= s.segment_end)
        return;
    s.segment_from = from;
    const uint8_t *base = s.src_start;
    uint32_t end = s.src_length;
    uint32_t at = from;
    while (at < end) {
        const void *found = std::memchr(base + at, 0xFF, end - at);
        if (!found)
            break;
        uint32_t run = uint32_t(static_cast<const uint8_t *>(found) - base);
        uint32_t after = run + 1;
        while (after < end && base[after] == 0xFF)
            after++;
        if (after == end || base[after] != 0) {
            s.segment_end = run;
            s.segment_marker = after == end ? 0 : base[after];
            return;
        }
        at = after + 1;
    }
    s.segment_end = end;
    s.segment_marker = 0;
}

} // namespace

void jmd_start_huffman(JmdState &s)
{
    for (int i = 0; i < scanComponents(s); i++) {
        const JmdComponent &component = s.comp[s.cur_comp[i]];
        uint8_t dc = dcTableId(component.dc_tbl_no);
        uint8_t ac = acTableId(component.ac_tbl_no);
        if (dc != kEmptyTable)
            jmd_build_huffman(s.dc_huff[dc], s.derived[dc]);
        if (ac != kEmptyTable)
            jmd_build_huffman(s.ac_huff[ac - kHuffTables], s.derived[ac]);
        s.last_dc_val[i] = 0;
    }
    for (int b = 0; b < s.blocks_in_MCU; b++) {
        const JmdComponent &component = s.comp[s.cur_comp[s.mcu_membership[b]]];
        s.dc_cur[b] = dcTableId(component.dc_tbl_no);
        s.ac_cur[b] = acTableId(component.ac_tbl_no);
    }
    buildFastTables(s);
    s.insufficient_data = 0;
    s.bit_buffer_high = 0;
    s.bit_buffer_low = 0;
    s.bits_left = 0;
    s.restarts_to_go = s.restart_interval;
    s.segment_marker = -1;
}

// The buffered bits are dropped, the restart marker read, the predictors
// cleared; data that ran into a marker is decoded again after the restart
// marker unless another marker is still pending.
int jmd_restart(JmdState &s)
{
    s.bits_left = 0;
    if (!jmd_read_restart_marker(s))
        return 0;
    for (int i = 0; i < scanComponents(s); i++)
        s.last_dc_val[i] = 0;
    s.restarts_to_go = s.restart_interval;
    if (s.unread_marker == 0)
        s.insufficient_data = 0;
    return 1;
}

EntropyDecoder::EntropyDecoder(JmdState &state) : s(state) {}

int EntropyDecoder::decodeMcus(McuDc *dc, int count)
{
    int done = 0;
    while (done < count) {
        if (s.restart_interval != 0 && s.restarts_to_go == 0) {
            finish();
            mode = Mode::Unknown;
            if (!jmd_restart(s))
                return done;
        }
        int decoded = 1;
        if (s.insufficient_data) {
            std::memset(dc[done], 0, sizeof dc[done]);
        } else {
            if (mode == Mode::Unknown)
                chooseMode();
            if (mode == Mode::Fast) {
                // A run ends at the next restart marker at the latest.
                int run = count - done;
                if (s.restart_interval != 0 && s.restarts_to_go > 0)
                    run = std::min(run, s.restarts_to_go);
                decoded = decodeMcusFast(s, reader, blocks, dc + done, run);
            } else {
                std::memset(dc[done], 0, sizeof dc[done]);
                if (!jmd_decode_mcu_plain(s, dc[done]))
                    return done;
            }
        }
        s.restarts_to_go = int32_t(uint32_t(s.restarts_to_go) - uint32_t(decoded));
        done += decoded;
    }
    return done;
}

// A pending marker ends the data where it is; otherwise the data ahead is
// searched for its end.  Data ending with the input goes to the plain
// decoder, which alone knows where it runs out.
void EntropyDecoder::chooseMode()
{
    const uint8_t *end = nextByte(s);
    if (s.unread_marker == 0) {
        findSegment(s);
        if (s.segment_marker == 0) {
            mode = Mode::Plain;
            return;
        }
        end = s.src_start + s.segment_end;
    }
    mode = Mode::Fast;
    setUpFastBlocks(s, blocks);
    loadFastReader(s, reader, end);
}

void EntropyDecoder::finish()
{
    if (mode == Mode::Fast)
        storeFastReader(s, reader);
}

} // namespace tarvo::jmd
