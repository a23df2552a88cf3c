/*
 * Shared media ring buffer: one writer process hands frames to any number of
 * reader processes through one System V shared-memory segment, guarded by two
 * semaphore locks (see semlock.h).
 *
 * A buffer with key K uses the segment with key K, the area lock with key K
 * and the writer lock with key K + 16.  The segment holds a 28-byte area
 * header (seven 32-bit words in host byte order: release, error, cellCount,
 * noSkip, cellsBytes, writeCell, firstCell) followed by a chain of cells, each
 * a 32-byte header (Used, Stay, WStat, Seq, size, length, Prev, Next; 32-bit
 * unsigned values stored most significant byte first on every host) and
 * `size` bytes of payload.
 *
 * Stored addresses (writeCell, firstCell, Prev, Next) are distances in bytes
 * from the start of the segment, in every process: firstCell is always 28 and
 * 0 means none.  A 32-bit and a 64-bit process can therefore share one area.
 *
 * Results: 0 / -1 for most calls, null for a handle that could not be made,
 * and RB_RELEASED (all bits set) from the frame calls when the buffer is being
 * released, after which the caller should detach.  Failures print one line on
 * standard output beginning with "rinbuf: ".  Every function accepts a null
 * handle and then does nothing.  One handle must not be used by two threads.
 *
 * A damaged area: the segment is writable by any local user (mode 0666), so
 * no size or link read from it is trusted.  A cell is used only while its
 * payload ends inside the segment and its Next is 0 or names the cell right
 * after it (and a Prev followed by the writer names the cell before it); a
 * walk of the chain takes at most as many steps as the segment can hold
 * cells (its size less 28, over 32).  A frame call that meets a cell
 * failing these checks, or a walk that runs out of steps, ends as on release
 * (-1 / RB_RELEASED) without touching the cell; rbResetAll and rbCheckBuffer
 * stop their walk there.  A writer killed in the middle of a frame can leave
 * such an area too: a restarted writer re-creates it.
 */
#ifndef TARVO_RINGBUF_H
#define TARVO_RINGBUF_H

#include <stdint.h>
#include <sys/time.h>

#include "api.h"

TARVO_BEGIN_DECLS

/* A process's handle on one ring buffer; opaque, freed by rbDetach/rbRelease. */
typedef struct RingBuffer RingBuffer;

/* The value a frame call returns while the buffer is being released. */
#define RB_RELEASED ((void *)~(uintptr_t)0)

/* Longest buffer name accepted, terminating zero excluded. */
#define RB_NAME_MAX 127

/*
 * Create (cellSize > 0) or attach to (cellSize <= 0) the buffer with `key`.
 * The creator sizes the segment 28 + cellCount * (cellSize + 32) bytes, makes
 * both locks afresh and initialises the area as one empty cell, even when a
 * segment already existed under the key (a restarted writer takes over).
 * `noSkip` non-zero makes the writer drop a frame instead of passing over a
 * cell that readers hold.  Null on failure, with one of the lines
 * "rinbuf: NAME - rbInitial: semaphore create fail!", "... shmget fail!",
 * "... shmat fail!".
 *
 * Refused with null before any IPC object is touched, nothing printed: a null
 * name or one longer than RB_NAME_MAX bytes; a creator whose cellCount is
 * below 1 or whose segment would exceed INT_MAX bytes.  A segment under the
 * key too small to hold an area header and one cell counts as no segment
 * ("shmget fail!").
 */
TARVO_API RingBuffer *rbInitial(int key, const char *name, int cellSize, int cellCount, int noSkip);

/* rbInitial(key, name, 0, 0, 0). */
TARVO_API RingBuffer *rbAttach(int key, const char *name);

/* Give back the cell held or parked on, detach the segment, free the handle.
 * The locks and the segment stay in the system.  Always 0. */
TARVO_API int rbDetach(RingBuffer *rb);

/*
 * Raise the area's release word, wait until neither lock is held, remove the
 * segment and both locks, detach and free the handle: 0.  -1 with
 * "rinbuf: rbRelease: shmctl fail!" or "rinbuf: rbRelease: semaphore release
 * fail!", the handle then staying allocated.  The second line comes when a
 * reader that has not yet noticed the release takes a lock again between the
 * wait and the removal; calling rbRelease again goes on from where the last
 * attempt stopped (nothing is removed twice).  Other users' next frame calls
 * return -1 / RB_RELEASED.
 */
TARVO_API int rbRelease(RingBuffer *rb);

/*
 * Writer side (the creating handle only; a handle with no current cell
 * writes nothing and gets 0 / null).  Frames are numbered 1, 2, 3, ... per
 * creating handle.
 *
 * rbSafeWrite copies `length` bytes into a cell: 1 written, 0 no cell could
 * take it (frame dropped; also for null data with a non-zero length), -1 the
 * buffer is being released.
 */
TARVO_API int rbSafeWrite(RingBuffer *rb, const void *data, uint32_t length);

/* Reserve a cell for `length` bytes and return its payload address, holding
 * the writer lock until rbUnlockWrite; null when no cell was found,
 * RB_RELEASED when the buffer is being released. */
TARVO_API void *rbLockWrite(RingBuffer *rb, uint32_t length);

/* Publish the cell reserved by rbLockWrite; nothing when none is reserved.
 * When another process damaged the cell meanwhile, it stays the write
 * position and the next write ends as on release. */
TARVO_API void rbUnlockWrite(RingBuffer *rb);

/*
 * Reader side.  rbLockRead holds the next frame and returns its payload,
 * which stays valid until rbUnlockRead; null when nothing is new (or a frame
 * is already held); RB_RELEASED when the buffer is being released.  A reader
 * that has caught up parks on the write position and, while a frame is being
 * written there with rbLockWrite, blocks until it is published.
 */
TARVO_API void *rbLockRead(RingBuffer *rb);

/* seq != 0: hold the frame whose number is nearest to seq (the one nearer the
 * start of the area on a tie); nothing when every frame is 999999 or more
 * away.  A reader parked by an earlier read keeps that place counted for the
 * life of the area (the writer can then no longer merge the cell away): call
 * rbSyncNewest first to leave it.  seq == 0: as rbLockRead, starting from
 * the newest frame unless the reader already follows the ring. */
TARVO_API void *rbLockReadSync(RingBuffer *rb, int seq);

/* Let go of the held frame and park on the cell after it. */
TARVO_API void rbUnlockRead(RingBuffer *rb);

/* Forget the reader's place so that the next read starts at the newest
 * frame; always 0. */
TARVO_API int rbSyncNewest(RingBuffer *rb);

/*
 * Inspection.  The three cell accessors describe the handle's current cell
 * (the one held after a read, or reserved by rbLockWrite) without locking;
 * they return 0 for a null handle and for a handle with no current cell.
 * rbGetCellLength passes on whatever length the segment holds: a consumer
 * must not read past rbGetCellSize bytes of the payload.
 */
TARVO_API uint32_t rbGetCellSize(RingBuffer *rb);
TARVO_API uint32_t rbGetCellLength(RingBuffer *rb);
TARVO_API uint32_t rbGetCellSeq(RingBuffer *rb);
TARVO_API uint32_t rbGetCellCount(RingBuffer *rb);
TARVO_API uint32_t rbGetError(RingBuffer *rb);

/* Writer side: forget every frame (cells keep their sizes and holders) and
 * restart numbering at 1; always 0.  Changes nothing on a handle with no
 * current cell. */
TARVO_API int rbResetAll(RingBuffer *rb);

/*
 * Dump the handle and the whole cell chain to standard output under the area
 * lock; returns the result of giving the lock back.  Addresses print as
 * distances from the segment start (the handle's cell 0 when it has none);
 * "Offset" prints the low 32 bits of this process's segment address.
 */
TARVO_API int rbCheckBuffer(RingBuffer *rb);

/*
 * Media payload and format descriptor.
 *
 * A MediaFormat word: bits 0-3 type (0 video, otherwise audio).  Video:
 * scale 4-7, frame rate 8-13, level 22-25.  Audio: depth 4-5, srate 6-8,
 * channels 9-10, length 11-31.
 */
typedef uint32_t MediaFormat;

TARVO_API extern const char *const rbMediaStr[7]; /* "JPG" ... "H263" */
TARVO_API extern const char *const rbDepthStr[2]; /* "8bit", "16bit" */
TARVO_API extern const char *const rbSrateStr[5]; /* "8K" ... "48K" */
TARVO_API extern const char *const rbLevelStr[5]; /* "lowest" ... "highest" */
TARVO_API extern const char *const rbScaleStr[3]; /* "VGA", "QVGA", "QQVGA" */
TARVO_API extern const uint32_t rbGetWidth2[3];   /* 640, 320, 160 */
TARVO_API extern const uint32_t rbGetHeight2[3];  /* 480, 240, 120 */

/* Milliseconds from *start to now (32-bit signed arithmetic); 0 for null. */
TARVO_API int CalTimeDuration(const struct timeval *start);

/* rbLockRead, tried again until 2000 ms have passed; null when nothing came.
 * It does not sleep between tries (it yields the processor): against a
 * writer that reserves cells with rbLockWrite each try blocks until the
 * frame is published; against rbSafeWrite alone it polls. */
TARVO_API void *rbGetPayload(RingBuffer *rb);

/* rbUnlockRead. */
TARVO_API void rbEndPayload(RingBuffer *rb);

/* "JPEG" for code 74 ('J'), otherwise "undefined". */
TARVO_API const char *rbGetTypeStr(uint32_t code);

/* Print the descriptor to standard error, one "name:\tvalue" line per field.
 * A field whose index lies beyond its table prints "undefined".  Returns the
 * result of the last fflush (or fprintf when that printed nothing). */
TARVO_API int rbShowFormat(MediaFormat format);

/* Pixel width and height for the scale field; 0 for scales beyond 2. */
TARVO_API uint32_t rbGetWidth(MediaFormat format);
TARVO_API uint32_t rbGetHeight(MediaFormat format);

TARVO_END_DECLS

#endif
