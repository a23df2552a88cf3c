// The decoder's entry points.  JpegMDecode and the exported steps call the
// library's own functions directly, never the exported names, so that a
// process that also loads another library with jpeg_* functions cannot
// divert them.
#include "entropy.h"
#include "markers.h"
#include "output.h"

#include <cstdio>
#include <cstring>

namespace tarvo::jmd
{
namespace
{

void jmd_reset(JmdState &s, const void *frame, uint32_t length, void *map)
{
    s.src_start = static_cast<const uint8_t *>(frame);
    s.src_length = frame ? length : 0;
    s.bytes_left = s.src_length;
    s.out_map = static_cast<uint8_t *>(map);
    s.segment_marker = -1;
}

// Success only when an SOS segment was reached; then the frame's rows and
// the map size follow from its dimensions.
int jmd_read_header(JmdState &s)
{
    jmd_reset_marker_reader(s);
    if (jmd_read_markers(s) != kScanReached) {
        std::puts("JMD: read header fail!");
        return -1;
    }
    s.comp[0].width_in_blocks = jmd_ceil_div(2 * s.image_width, 16);
    s.comp[0].height_in_blocks = jmd_ceil_div(s.image_height, 8);
    s.total_mcu_rows = uint32_t(jmd_ceil_div(s.image_height, 8));
    return 0;
}

// Quantisers are kept for table numbers 0..15; a component naming a higher
// one gets 0.
uint16_t quantiserFor(const JmdState &s, int32_t table)
{
    return table < kQuantTables ? s.dc_quant[table] : 0;
}

void jmd_start_decompress(JmdState &s)
{
    JmdComponent &first = firstScanComponent(s);
    first.dc_quant = quantiserFor(s, first.quant_tbl_no);
    s.out_count = 0;
    s.mcu_ctr = 0;
    jmd_setup_mcu(s);
    jmd_start_huffman(s);
    // The first frame component, which is the scan's first for the
    // camera's frames.
    s.comp[0].dc_multiplier = 4 * s.comp[0].dc_quant;
    s.mcu_row = 0;
}

int jmd_scanlines(JmdState &s)
{
    if (jmd_decode_mcu_row(s) != kRowSuspended)
        return 0;
    std::printf("JMD: decompress fail at MCU row: %d\n", int(s.mcu_row));
    s.mcu_row = s.total_mcu_rows;
    return -1;
}

} // namespace
} // namespace tarvo::jmd

using namespace tarvo::jmd;

extern "C" {

TARVO_API void JpegMDInitial(JmdContext *ctx)
{
    if (!ctx)
        return;
    std::memset(ctx, 0, JMD_CONTEXT_SIZE);
    jmd_init_clamp_table(stateOf(ctx));
}

TARVO_API int JpegMDecode(JmdContext *ctx, const void *frame, uint32_t length, void *map)
{
    if (!ctx)
        return 0;
    JmdState &s = stateOf(ctx);
    jmd_reset(s, frame, length, map);
    jmd_read_header(s);
    jmd_start_decompress(s);
    while (s.mcu_row < s.total_mcu_rows)
        jmd_scanlines(s);
    return 0;
}

TARVO_API void jpeg_reset(JmdContext *ctx, const void *frame, uint32_t length, void *map)
{
    if (ctx)
        jmd_reset(stateOf(ctx), frame, length, map);
}

TARVO_API int jpeg_read_header(JmdContext *ctx)
{
    return ctx ? jmd_read_header(stateOf(ctx)) : -1;
}

TARVO_API void jpeg_start_decompress(JmdContext *ctx)
{
    if (ctx)
        jmd_start_decompress(stateOf(ctx));
}

TARVO_API int jpeg_scanlines(JmdContext *ctx)
{
    return ctx ? jmd_scanlines(stateOf(ctx)) : -1;
}

TARVO_API int skip_input_data(JmdContext *ctx, int32_t count)
{
    return ctx ? int(jmd_skip_input_data(stateOf(ctx), count)) : 0;
}
}
