/*
 * The fake UVC camera on "/dev/video0" and OSS microphone on "/dev/dsp0",
 * preloaded into the device suite: open, ioctl, mmap, munmap, select and
 * close on them are answered as their drivers would, other calls go on to
 * the C library.  Tests get the state from fakeDevicesReset (by dlsym), which
 * closes the devices and forgets every trouble.  Plain C.
 */
#pragma once

#include <stdint.h>
#include <sys/time.h>
#include <linux/videodev2.h>

#define FAKE_BUFFER_LENGTH 8192

enum { FAKE_CAMERA = 1, FAKE_MICROPHONE };

/* The calls a test can make fail besides the ioctl requests. */
enum { FAKE_OPEN = 1, FAKE_MMAP, FAKE_MUNMAP, FAKE_SELECT };

/* The calls of `call` after the first `after` fail with `errors` in turn, up
 * to a 0; the camera lacks capabilities or answers a format (0: as asked). */
typedef struct FakeTrouble {
    unsigned long call;
    int after, errors[8];
    uint32_t lacks, pixelFormat, width, height;
} FakeTrouble;

typedef struct FakeDevices {
    FakeTrouble trouble;
    uint32_t frameBytes; /* of every frame */

    /* What the devices went through. */
    int failUsed, fds[3], soundFlags; /* fds by device, -1 while closed */
    struct v4l2_fract timePerFrame;
    struct timeval wait; /* of the last select */
    int streaming, controlAdded, mapped[2];
    uint32_t queued[2], nextFrame; /* queued: 1 + the frame a buffer holds, 0 while out */
    uint8_t command[11];
    int channels, sampleFormat, rate; /* 0 while unset */
    uint8_t memory[2][FAKE_BUFFER_LENGTH];
} FakeDevices;

/* Byte `offset` of frame number `frame`. */
#define FAKE_BYTE(frame, offset) ((uint8_t)((frame)*37u + (offset)*7u + 1u))
