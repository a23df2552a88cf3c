// The marker reader: header segments up to the first SOS, and the restart
// markers met during entropy decoding.
#ifndef TARVO_JMD_MARKERS_H
#define TARVO_JMD_MARKERS_H

#include "state.h"

namespace tarvo::jmd
{

// Steps over min(count, bytes left) input bytes; returns the bytes left.
uint32_t jmd_skip_input_data(JmdState &s, int32_t count);

void jmd_reset_marker_reader(JmdState &s);

// 1 = SOS read, 2 = EOI before any SOS, 0 = input ran out.
int jmd_read_markers(JmdState &s);

// 1 = restart marker dealt with, 0 = input ran out.
int jmd_read_restart_marker(JmdState &s);
int jmd_resync_to_restart(JmdState &s, int desired);

} // namespace tarvo::jmd

#endif
