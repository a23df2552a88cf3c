// The marker reader: header segments up to the first SOS, and the restart
// markers met during entropy decoding.
#ifndef TARVO_JMD_MARKERS_H
#define TARVO_JMD_MARKERS_H

#include "state.h"

namespace tarvo::jmd
{

// The marker codes the reader acts on.
enum Marker : int {
    kSof0 = 0xC0,
    kSof1 = 0xC1,
    kSof2 = 0xC2,
    kDht = 0xC4,
    kDac = 0xCC,
    kRst0 = 0xD0,
    kRst7 = 0xD7,
    kSoi = 0xD8,
    kEoi = 0xD9,
    kSos = 0xDA,
    kDqt = 0xDB,
    kDnl = 0xDC,
    kDri = 0xDD
};

// Steps over min(count, bytes left) input bytes; returns the bytes left.
uint32_t jmd_skip_input_data(JmdState &s, int32_t count);

void jmd_reset_marker_reader(JmdState &s);

// How reading the header's markers ended.
enum HeaderEnd : int {
    kInputEnded = 0,  // the input ran out
    kScanReached = 1, // an SOS segment was read
    kImageEnded = 2   // EOI came before any SOS
};

int jmd_read_markers(JmdState &s);

// 1 = restart marker dealt with, 0 = input ran out.
int jmd_read_restart_marker(JmdState &s);
int jmd_resync_to_restart(JmdState &s, int desired);

} // namespace tarvo::jmd

#endif
