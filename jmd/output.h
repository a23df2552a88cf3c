// The output stage: MCU layout, rows of MCUs, and the block map bytes.
#ifndef TARVO_JMD_OUTPUT_H
#define TARVO_JMD_OUTPUT_H

#include "state.h"

namespace tarvo::jmd
{

void jmd_init_clamp_table(JmdState &s);
void jmd_setup_mcu(JmdState &s);

// What decoding an MCU row came to.
enum RowResult : int {
    kRowSuspended = 0, // the input ran out
    kRowDone = 3,      // more rows follow
    kScanDone = 4      // that was the last row
};

// Decodes MCU row mcu_row.
RowResult jmd_decode_mcu_row(JmdState &s);

} // namespace tarvo::jmd

#endif
