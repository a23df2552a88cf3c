/*
 * Profile streams: streaming profile n is the ring buffer with key n + 4097
 * and the name "Profile%02d".  A consumer opens it by number and reads frame
 * after frame, each read waiting up to 2000 ms.
 */
#ifndef TARVO_PROFILE_H
#define TARVO_PROFILE_H

#include <sys/time.h>

#include "api.h"
#include "ringbuf.h"

TARVO_BEGIN_DECLS

/* A consumer's handle on one profile; callers read its fields. */
typedef struct ProfileStream {
    int profile;           /* number given to pfOpen */
    int frames;            /* successful pfRead calls since opening */
    void *payload;         /* frame now held, 0 when none, RB_RELEASED at the end */
    RingBuffer *ring;      /* the attached ring buffer */
    struct timeval opened; /* time of opening */
} ProfileStream;

/* profile + 4097. */
TARVO_API int pfGetPKey(int profile);

/* Attach to the profile's ring buffer; null with "profile: streaming not
 * ready" when the producer has not created it (or no memory). */
TARVO_API ProfileStream *pfOpen(int profile);

/* Let go of the previous frame and wait up to 2000 ms for the next, left in
 * payload.  Returns the length field of the ring's current cell, which is the
 * frame's length only when payload is non-zero: test payload, not the length.
 * 0 for a null handle. */
TARVO_API int pfRead(ProfileStream *ps);

/* Let go of the held frame, if any. */
TARVO_API void pfUnlock(ProfileStream *ps);

/* Let go, detach and free. */
TARVO_API void pfClose(ProfileStream *ps);

TARVO_END_DECLS

#endif
