// The output stage.  Each block of the scan's first component becomes one
// map byte, floor(DC x quantiser / 8) + 128 through the clamp table; blocks
// of the other components are decoded only to be stepped over.
#include "output.h"
#include "entropy.h"

#include <algorithm>
#include <cstring>

namespace tarvo::jmd
{
namespace
{

// MCUs decoded before their map bytes are written.
constexpr uint32_t kBatch = 32;

// The map byte for one block: the product of the DC value and 4 x its
// quantiser, shifted right by 5, indexes the clamp table modulo 1024.
inline void jmd_put_block(JmdState &s, const JmdComponent &comp, int16_t dc, uint32_t capacity)
{
    if (s.out_count >= capacity)
        return;
    int32_t value = (dc * comp.dc_multiplier) >> 5;
    s.out_map[s.out_count++] = s.clamp[value & 0x3FF];
}

// Whether the output's reads of an MCU's DC values stay among its blocks.
bool outputFits(const JmdComponent &out)
{
    int columns = std::max(out.mcu_width, out.last_col_width);
    if (out.mcu_height == 0 || columns == 0)
        return true;
    return (out.mcu_height - 1) * out.mcu_width + columns <= kMaxBlocks;
}

} // namespace

// Index i is a value modulo 1024: 0..127 give 128 + i, 128..511 give 255
// (the value was above 127), 512..895 give 0 (below -128), 896..1023 give
// i - 896 (-128..-1 plus 128).
void jmd_init_clamp_table(JmdState &s)
{
    for (int i = 0; i < 1024; i++)
        s.clamp[i] = uint8_t(i < 128 ? 128 + i : i < 512 ? 255 : i < 896 ? 0 : i - 896);
}

// The blocks of an MCU are ordered component by component in scan order,
// and within a component row by row.  The layout holds kMaxBlocks blocks; a
// scan needing more, or a first component with a sampling factor of 0
// (whose remainders below would divide by zero), gets geometry_ok = 0.
void jmd_setup_mcu(JmdState &s)
{
    s.mcus_per_row = uint32_t(jmd_ceil_div(s.image_width, 16));
    s.blocks_in_MCU = 0;
    bool fits = s.comps_in_scan <= kMaxComponents;
    for (int i = 0; i < std::min(s.comps_in_scan, kMaxComponents); i++) {
        JmdComponent &c = s.comp[s.cur_comp[i]];
        c.mcu_width = c.h_samp_factor;
        c.mcu_height = c.v_samp_factor;
        c.mcu_blocks = c.mcu_width * c.mcu_height;
        if (i == 0) {
            if (c.mcu_width == 0 || c.mcu_height == 0) {
                fits = false;
            } else {
                c.last_col_width = c.width_in_blocks % c.mcu_width;
                if (c.last_col_width == 0)
                    c.last_col_width = c.mcu_width;
                c.last_row_height = c.height_in_blocks % c.mcu_height;
                if (c.last_row_height == 0)
                    c.last_row_height = c.mcu_height;
            }
        }
        for (int block = 0; block < c.mcu_blocks; block++) {
            if (s.blocks_in_MCU == kMaxBlocks) {
                fits = false;
                break;
            }
            s.mcu_membership[s.blocks_in_MCU++] = i;
        }
    }
    s.geometry_ok = fits && outputFits(firstScanComponent(s));
}

// A row whose MCU layout does not fit, or that has no MCUs, decodes and
// writes nothing.  Map bytes beyond ceil(width / 8) x ceil(height / 8) of
// the frame's size are dropped.
RowResult jmd_decode_mcu_row(JmdState &s)
{
    const uint32_t last_col = s.mcus_per_row - 1;
    const uint32_t last_row = s.total_mcu_rows - 1;
    if (s.geometry_ok && s.mcus_per_row != 0) {
        const JmdComponent &comp = firstScanComponent(s);
        const uint32_t capacity =
            s.out_map ? uint32_t(s.comp[0].width_in_blocks) * uint32_t(s.comp[0].height_in_blocks)
                      : 0;
        EntropyDecoder entropy(s);
        for (uint32_t column = s.mcu_ctr; column <= last_col;) {
            McuDc dc[kBatch];
            int count = int(std::min<uint32_t>(kBatch, last_col - column + 1));
            int decoded = entropy.decodeMcus(dc, count);
            for (int i = 0; i < decoded; i++, column++) {
                int columns = column < last_col ? comp.mcu_width : comp.last_col_width;
                for (int y = 0; y < comp.mcu_height; y++)
                    if (s.mcu_row < last_row || y < comp.last_row_height)
                        for (int x = 0; x < columns; x++)
                            jmd_put_block(s, comp, dc[i][y * comp.mcu_width + x], capacity);
            }
            if (decoded < count) {
                entropy.finish();
                s.mcu_ctr = column;
                return kRowSuspended;
            }
        }
        entropy.finish();
    }
    s.mcu_ctr = 0;
    s.mcu_row++;
    return s.mcu_row >= s.total_mcu_rows ? kScanDone : kRowDone;
}

} // namespace tarvo::jmd
