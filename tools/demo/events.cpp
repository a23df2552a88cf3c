// The events process: serves the event channel and logs each motion event
// that arrives on it.
#include "roles.h"

#include "tarvo/logx.h"
#include "tarvo/msgchannel.h"

#include <cerrno>
#include <cstring>
#include <ctime>

namespace demo
{

int runEvents(const Config &config, Board &board, int readyFd)
{
    MsgChannel *channel = msgInitial(config.eventKey());
    if (channel == nullptr)
        return 1;
    reportReady(readyFd);
    while (!stopRequested()) {
        if (msgWaitUser(channel, 1) != MSG_RECORD_SIZE) {
            if (errno == EINTR)
                continue; // the stop signal
            logx(LOGX_ERROR, "event channel: %s", strerror(errno));
            break;
        }
        const MsgRecord &record = channel->record;
        if (record.kind != MSG_KIND_EVENT || record.command != kMotionEvent)
            continue;
        unsigned number = unsigned(record.data.event.value);
        const EventNote &note = board.events[number % kEventSlots];
        time_t when = record.data.event.seconds;
        char clock[16];
        strftime(clock, sizeof clock, "%H:%M:%S", localtime(&when));
        logx(LOGX_CAMERA, "motion event %u at %s: %d blocks changed, blocks %d,%d to %d,%d", number,
             clock, note.changedBlocks, note.left, note.top, note.right, note.bottom);
        board.eventsLogged++;
    }
    msgRelease(channel);
    return 0;
}

} // namespace demo
