// The output stage: MCU layout, rows of MCUs, and the block map bytes.
#ifndef TARVO_JMD_OUTPUT_H
#define TARVO_JMD_OUTPUT_H

#include "state.h"

namespace tarvo::jmd
{

void jmd_init_clamp_table(JmdState &s);
void jmd_setup_mcu(JmdState &s);

// Decodes MCU row mcu_row: 3 = done and more rows follow, 4 = last row
// done, 0 = the input ran out.
int jmd_decode_mcu_row(JmdState &s);

} // namespace tarvo::jmd

#endif
