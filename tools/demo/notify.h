// Reporting a motion event over the configured clients: HTTP always (to the
// demo's own receiver unless a host is set), FTP and e-mail with the
// snapshot when they are configured.  Each prints one line with its result.
#ifndef TARVO_DEMO_NOTIFY_H
#define TARVO_DEMO_NOTIFY_H

#include "board.h"
#include "config.h"

#include <vector>

namespace demo
{

void notifyEvent(const Config &config, const Board &board, unsigned number, int changedBlocks,
                 std::vector<char> &snapshot);

} // namespace demo

#endif
