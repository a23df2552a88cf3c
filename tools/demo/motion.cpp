// The motion process: every frame of the profile becomes its block map;
// blocks that changed since the last frame are the motion level, and motion
// lasting minFrames frames within the schedule's "alarm" spans is an event.
#include "block_changes.h"
#include "jpeg_frame.h"
#include "notify.h"
#include "roles.h"

#include "tarvo/jmd.h"
#include "tarvo/msgchannel.h"
#include "tarvo/profile.h"
#include "tarvo/schedule.h"

#include <cstdio>
#include <cstring>
#include <ctime>
#include <vector>

namespace demo
{
namespace
{

// Counts motion frames in a row; says when a run of them becomes an event,
// and when enough still frames end it.
class MotionRun
{
  public:
    MotionRun(int minFrames, int quietFrames) : minFrames_(minFrames), quietFrames_(quietFrames) {}
    // True for the frame that starts an event.
    bool step(bool motion)
    {
        moving_ = motion ? moving_ + 1 : 0;
        still_ = motion ? 0 : still_ + 1;
        if (inEvent_ && still_ >= quietFrames_)
            inEvent_ = false;
        if (inEvent_ || moving_ < minFrames_)
            return false;
        inEvent_ = true;
        return true;
    }

  private:
    int minFrames_, quietFrames_;
    int moving_ = 0, still_ = 0;
    bool inEvent_ = false;
};

void postChanges(Board &board, const BlockChanges &changes)
{
    memcpy(board.changed, changes.changed, sizeof board.changed);
    board.changedSequence++;
    board.motionLevel = changes.count;
}

void raiseEvent(const Config &config, Board &board, const uint8_t *map, const BlockChanges &changes,
                const void *frame, uint32_t length)
{
    unsigned number = board.eventsRaised + 1;
    EventNote &note = board.events[number % kEventSlots];
    note.time = time(nullptr);
    note.changedBlocks = changes.count;
    note.left = changes.left;
    note.top = changes.top;
    note.right = changes.right;
    note.bottom = changes.bottom;
    note.number = number;
    board.eventsRaised = number;

    char picture[32];
    snprintf(picture, sizeof picture, "event-%03u.pgm", number);
    if (!writeChangesPicture(picture, map, changes))
        printf("motion: cannot write %s\n", picture);
    msgUserEvent(config.eventKey(), kMotionEvent, int(number));
    std::vector<char> snapshot(static_cast<const char *>(frame),
                               static_cast<const char *>(frame) + length);
    notifyEvent(config, board, number, changes.count, snapshot);
}

} // namespace

int runMotion(const Config &config, Board &board, int readyFd)
{
    static JmdContext decoder;
    static uint8_t maps[2][kMapBlocks];
    static BlockChanges changes;
    JpegMDInitial(&decoder);
    Schedule *schedule = nullptr;
    if (sdLoad(&schedule) != 1)
        printf("motion: the schedule did not load: no events\n");
    ProfileStream *stream = pfOpen(config.profile);
    if (stream == nullptr) {
        sdRelease(&schedule);
        return 1;
    }
    reportReady(readyFd);
    MotionRun run(config.minFrames, config.quietFrames);
    uint64_t decoded = 0;
    while (uint32_t length = readJpegFrame(stream)) {
        uint8_t *map = maps[decoded % 2];
        JpegMDecode(&decoder, stream->payload, length, map);
        board.frames[kMotion]++;
        if (decoded++ == 0)
            continue;
        compareMaps(maps[decoded % 2], map, config.threshold, changes);
        postChanges(board, changes);
        if (run.step(changes.count >= config.minBlocks) && InSchedule(schedule, "alarm", 0))
            raiseEvent(config, board, map, changes, stream->payload, length);
    }
    pfClose(stream);
    sdRelease(&schedule);
    return 0;
}

} // namespace demo
