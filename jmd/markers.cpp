// The marker reader.  Deliberately lenient: lengths are used only where a
// segment's contents must be walked, markers it has no use for are dropped
// without skipping their segments (the next marker hunt steps over their
// bytes), and values are not range-checked beyond what keeps every write
// inside the context.  Every read checks first that input is left; running
// out makes the handler return 0 at once, keeping what it already consumed.
#include "markers.h"
#include "huffman.h"

#include <algorithm>
#include <cstring>

namespace tarvo::jmd
{
namespace
{

bool have(const JmdState &s, uint32_t count)
{
    return s.bytes_left >= count;
}

int takeByte(JmdState &s)
{
    int value = *nextByte(s);
    s.bytes_left--;
    return value;
}

int takeWord(JmdState &s)
{
    int high = takeByte(s);
    return high << 8 | takeByte(s);
}

// The next byte into `value`; false, with nothing consumed, when the input
// ran out.  Each segment reader reads its fields through these.
bool readByte(JmdState &s, int32_t &value)
{
    if (!have(s, 1))
        return false;
    value = takeByte(s);
    return true;
}

bool readWord(JmdState &s, int32_t &value)
{
    if (!have(s, 2))
        return false;
    value = takeWord(s);
    return true;
}

// The first marker of a frame: the second of the next two bytes, unchecked.
int jmd_read_first_marker(JmdState &s)
{
    if (!have(s, 2))
        return 0;
    takeByte(s);
    s.unread_marker = takeByte(s);
    return 1;
}

// Hunts for the next marker: 0xFF, any fill bytes 0xFF, then a code other
// than 0x00 (0xFF 0x00 is a stuffed data byte and is stepped over).
int jmd_scan_marker(JmdState &s)
{
    for (;;) {
        int c;
        do {
            if (!have(s, 1))
                return 0;
            c = takeByte(s);
        } while (c != 0xFF);
        do {
            if (!have(s, 1))
                return 0;
            c = takeByte(s);
        } while (c == 0xFF);
        if (c != 0) {
            s.unread_marker = c;
            return 1;
        }
    }
}

int jmd_read_soi(JmdState &s)
{
    s.restart_interval = 0;
    s.saw_SOI = 1;
    return 1;
}

// SOF0/1/2: size and components; only two bytes need be left before the
// length and precision are stepped over.
int jmd_read_frame(JmdState &s)
{
    if (!have(s, 2))
        return 0;
    jmd_skip_input_data(s, 3);
    if (!readWord(s, s.image_height) || !readWord(s, s.image_width) ||
        !readByte(s, s.num_components))
        return 0;
    for (int i = 0; i < s.num_components; i++) {
        JmdComponent ignored;
        JmdComponent &c = i < kMaxComponents ? s.comp[i] : ignored;
        int32_t factors;
        if (!readByte(s, c.component_id) || !readByte(s, factors))
            return 0;
        c.h_samp_factor = factors >> 4;
        c.v_samp_factor = factors & 15;
        if (!readByte(s, c.quant_tbl_no))
            return 0;
    }
    return 1;
}

// The frame component a scan selector names: the first with that id, else
// the record after the last one defined.
uint8_t componentFor(const JmdState &s, int selector)
{
    int defined = std::min(s.num_components, kMaxComponents);
    for (int i = 0; i < defined; i++)
        if (s.comp[i].component_id == selector)
            return uint8_t(i);
    return uint8_t(defined);
}

int jmd_read_scan(JmdState &s)
{
    if (!have(s, 3))
        return 0;
    takeWord(s);
    s.comps_in_scan = takeByte(s);
    for (int i = 0; i < s.comps_in_scan; i++) {
        if (!have(s, 2))
            return 0;
        int selector = takeByte(s);
        int tables = takeByte(s);
        uint8_t index = componentFor(s, selector);
        if (i < kMaxComponents)
            s.cur_comp[i] = index;
        s.comp[index].dc_tbl_no = tables >> 4;
        s.comp[index].ac_tbl_no = tables & 15;
    }
    jmd_skip_input_data(s, 3);
    s.next_restart_num = 0;
    return 1;
}

void storeHuffTable(JmdState &s, JmdHuffTable &stored, const JmdHuffTable &table, uint8_t id)
{
    if (std::memcmp(&stored, &table, sizeof table) == 0)
        return;
    stored = table;
    forgetFastTable(s, id);
}

// DHT: any number of tables, each stored whole once read.
int jmd_read_huffman(JmdState &s)
{
    int32_t remaining;
    if (!readWord(s, remaining))
        return 0;
    remaining -= 2;
    while (remaining >= 17) {
        JmdHuffTable table = {};
        int32_t index, count, symbol;
        if (!readByte(s, index))
            return 0;
        int total = 0;
        for (int length = 1; length <= 16; length++) {
            if (!readByte(s, count))
                return 0;
            table.counts[length] = uint8_t(count);
            total += count;
        }
        for (int i = 0; i < total; i++) {
            if (!readByte(s, symbol))
                return 0;
            if (i < 256)
                table.symbols[i] = uint8_t(symbol);
        }
        remaining -= 17 + total;
        if (index & 0x10) {
            if (index - 16 < kHuffTables)
                storeHuffTable(s, s.ac_huff[index - 16], table, uint8_t(kHuffTables + index - 16));
        } else if (index < kHuffTables) {
            storeHuffTable(s, s.dc_huff[index], table, uint8_t(index));
        }
    }
    return 1;
}

// DQT: only each table's first (DC) value is kept, read as one byte.
int jmd_read_quant(JmdState &s)
{
    int32_t remaining;
    if (!readWord(s, remaining))
        return 0;
    remaining -= 2;
    while (remaining > 0) {
        if (!have(s, 2))
            return 0;
        const uint8_t *table = nextByte(s);
        s.dc_quant[table[0] & 15] = table[1];
        jmd_skip_input_data(s, 65);
        remaining -= 65;
    }
    return 1;
}

int jmd_read_restart_interval(JmdState &s)
{
    if (!have(s, 4))
        return 0;
    takeWord(s);
    s.restart_interval = takeWord(s);
    return 1;
}

int jmd_skip_segment(JmdState &s)
{
    int32_t length;
    if (!readWord(s, length))
        return 0;
    if (length - 2 >= 1)
        jmd_skip_input_data(s, length - 2);
    return 1;
}

int restartMarker(unsigned number)
{
    return kRst0 + int(number & 7);
}

} // namespace

uint32_t jmd_skip_input_data(JmdState &s, int32_t count)
{
    if (count > 0)
        s.bytes_left -= std::min(uint32_t(count), s.bytes_left);
    return s.bytes_left;
}

void jmd_reset_marker_reader(JmdState &s)
{
    s.unread_marker = 0;
    s.saw_SOI = 0;
}

int jmd_read_markers(JmdState &s)
{
    for (;;) {
        if (s.unread_marker == 0) {
            int fetched = s.saw_SOI ? jmd_scan_marker(s) : jmd_read_first_marker(s);
            if (!fetched)
                return kInputEnded;
        }
        int handled = 1;
        switch (s.unread_marker) {
        case kSof0:
        case kSof1:
        case kSof2:
            handled = jmd_read_frame(s);
            break;
        case kDht:
            handled = jmd_read_huffman(s);
            break;
        case kDac:
        case kDnl:
            handled = jmd_skip_segment(s);
            break;
        case kSoi:
            handled = jmd_read_soi(s);
            break;
        case kEoi:
            s.unread_marker = 0;
            return kImageEnded;
        case kSos:
            if (!jmd_read_scan(s))
                return kInputEnded;
            s.unread_marker = 0;
            return kScanReached;
        case kDqt:
            handled = jmd_read_quant(s);
            break;
        case kDri:
            handled = jmd_read_restart_interval(s);
            break;
        default:
            break;
        }
        if (!handled)
            return kInputEnded;
        s.unread_marker = 0;
    }
}

int jmd_read_restart_marker(JmdState &s)
{
    if (s.unread_marker == 0 && !jmd_scan_marker(s))
        return 0;
    if (s.unread_marker == restartMarker(unsigned(s.next_restart_num)))
        s.unread_marker = 0;
    else if (!jmd_resync_to_restart(s, s.next_restart_num))
        return 0;
    s.next_restart_num = (s.next_restart_num + 1) & 7;
    return 1;
}

// Markers below 0xC0 and the two restart markers just before the expected
// one are dropped; other markers and the two restart markers after it stay
// pending; any other restart marker stands in for the expected one.
int jmd_resync_to_restart(JmdState &s, int desired)
{
    for (;;) {
        int marker = s.unread_marker;
        bool drop;
        if (marker < kSof0)
            drop = true;
        else if (marker < kRst0 || marker > kRst7)
            return 1;
        else if (marker == restartMarker(unsigned(desired) + 1) ||
                 marker == restartMarker(unsigned(desired) + 2))
            return 1;
        else
            drop = marker == restartMarker(unsigned(desired) - 1) ||
                   marker == restartMarker(unsigned(desired) - 2);
        if (!drop) {
            s.unread_marker = 0;
            return 1;
        }
        s.unread_marker = 0;
        if (!jmd_scan_marker(s))
            return 0;
    }
}

} // namespace tarvo::jmd

using namespace tarvo::jmd;

extern "C" {

TARVO_API void reset_marker_reader(JmdContext *ctx)
{
    if (ctx)
        jmd_reset_marker_reader(stateOf(ctx));
}

TARVO_API int read_markers(JmdContext *ctx)
{
    return ctx ? jmd_read_markers(stateOf(ctx)) : 0;
}

TARVO_API int read_restart_marker(JmdContext *ctx)
{
    return ctx ? jmd_read_restart_marker(stateOf(ctx)) : 0;
}

TARVO_API int jpeg_resync_to_restart(JmdContext *ctx, int desired)
{
    return ctx ? jmd_resync_to_restart(stateOf(ctx), desired) : 0;
}
}
