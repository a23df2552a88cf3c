// The exchange between a 32-bit and a 64-bit process, the same code on both
// sides: frames through one ring buffer each way (the first writer hands the
// ring over to the other process), and records through one message channel
// each way, each side receiving the system records typed with its width.
#pragma once

#include "support/frames.h"
#include "tarvo/msgchannel.h"
#include "tarvo/profile.h"

namespace tarvo::test::widths
{

constexpr uint32_t kFrames = 300;
enum Command { kRingReady = 1, kParked, kFramesRead, kDone };
constexpr long kMine = 8 * sizeof(long), kTheirs = 96 - kMine; // 32 or 64

inline bool tell(MsgChannel *channel, Command command, int value = 0)
{
    return msgSendSys(channel, kTheirs, command, value) == 0;
}

inline bool heard(MsgChannel *channel, Command command)
{
    return msgWaitSys(channel, kMine, 1) == MSG_RECORD_SIZE && channel->record.command == command;
}

// Every frame written copied into a ring large enough to hold them all.
inline bool writeFrames(RingBuffer *ring)
{
    for (uint32_t number = 1; number <= kFrames; number++)
        if (writeFrame(ring, number, frameLength(number)) != 1)
            return false;
    return true;
}

// Reads until a frame is missing or damaged, closes the stream and returns
// how many came whole and in order.
inline int readFrames(ProfileStream *stream)
{
    uint32_t number = 1;
    for (; number <= kFrames; number++) {
        int length = pfRead(stream); // the cell's length field
        void *payload = stream->payload;
        if (!payload || payload == RB_RELEASED || length != int(frameLength(number)) ||
            !frameIsIntact(payload, number, frameLength(number)))
            break;
    }
    pfClose(stream);
    return int(number - 1);
}

// Creates the ring (taking it over after the first phase), waits for the
// reader to park and writes; the last writer removes the ring.
inline int writePhase(MsgChannel *channel, int profile, bool last)
{
    RingBuffer *ring = rbInitial(pfGetPKey(profile), "widths", 1 << 20, 1, 0);
    if (!ring || !tell(channel, kRingReady) || !heard(channel, kParked) || !writeFrames(ring))
        return 1;
    if (!heard(channel, kFramesRead) || channel->record.data.value != int(kFrames))
        return 2;
    return (last ? rbRelease(ring) : rbDetach(ring)) == 0 && tell(channel, kDone) ? 0 : 3;
}

inline int readPhase(MsgChannel *channel, int profile)
{
    ProfileStream *stream = heard(channel, kRingReady) ? pfOpen(profile) : nullptr;
    // The reader parks on the empty write position before any frame comes.
    if (!stream || rbLockRead(stream->ring) != nullptr || !tell(channel, kParked))
        return 4;
    return tell(channel, kFramesRead, readFrames(stream)) && heard(channel, kDone) ? 0 : 5;
}

// One side: writes then reads, or reads then writes; 0, or the failed step.
inline int exchange(int channelKey, int profile, bool writesFirst)
{
    MsgChannel *channel = msgInitial(channelKey);
    for (int phase = 0; phase < 2; phase++) {
        int failed = (phase == 0) == writesFirst ? writePhase(channel, profile, phase == 1)
                                                 : readPhase(channel, profile);
        if (failed)
            return failed;
    }
    msgDetach(channel);
    return 0;
}

} // namespace tarvo::test::widths
