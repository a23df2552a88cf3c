// The demo's notice board: one anonymous shared mapping made by the
// supervisor before it forks, where every process posts its counters and the
// motion process its latest block changes and events, for the status line,
// the summary and the live page.  It is no System V object, so nothing of it
// outlives the processes.
#ifndef TARVO_DEMO_BOARD_H
#define TARVO_DEMO_BOARD_H

#include <sys/types.h>

#include <atomic>
#include <cstdint>

namespace demo
{

// The processes of the server, in the order the supervisor starts them.
enum Role { kReceiver, kEvents, kCapture, kMotion, kRecorder, kStreaming, kRoleCount };

inline constexpr const char *kRoleNames[kRoleCount] = {"receiver", "events",   "capture",
                                                       "motion",   "recorder", "streaming"};

// The block map of a 640x480 frame: one block per 8x8 luminance pixels.
inline constexpr int kMapColumns = 80;
inline constexpr int kMapRows = 60;
inline constexpr int kMapBlocks = kMapColumns * kMapRows;

// The last events, kept for the live page.
inline constexpr int kEventSlots = 16;

struct EventNote {
    std::atomic<uint32_t> number; // 1, 2, ...; 0 for an empty slot
    int64_t time;                 // seconds since the epoch
    int32_t changedBlocks;
    int32_t left, top, right, bottom; // bounding box of the changed blocks
};

struct Board {
    pid_t supervisor;
    std::atomic<pid_t> pid[kRoleCount];
    // Frames each process handled: written by capture, read by the readers,
    // sent to viewers by streaming.
    std::atomic<uint64_t> frames[kRoleCount];
    std::atomic<uint64_t> recordedBytes;
    std::atomic<int32_t> viewers;
    std::atomic<int32_t> streamPort; // the live view's port once it listens
    std::atomic<int32_t> receiverPort;
    std::atomic<int32_t> motionLevel; // blocks changed in the last frame
    std::atomic<uint32_t> eventsRaised;
    std::atomic<uint32_t> eventsLogged;
    std::atomic<uint32_t> notificationsReceived;
    // Blocks changed in the last frame (1 changed, 0 not), numbered by
    // changedSequence so that a reader can tell a fresh mask.
    std::atomic<uint32_t> changedSequence;
    uint8_t changed[kMapBlocks];
    EventNote events[kEventSlots];
};

// The board, mapped shared and zero-filled; null when no memory.
Board *makeBoard();

} // namespace demo

#endif
