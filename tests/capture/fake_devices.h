/*
 * The fake UVC camera on "/dev/video0" and fake OSS device on "/dev/dsp0"
 * that the device suites preload: they answer open, ioctl, mmap, munmap,
 * select, read and close for those two devices, record every such call and
 * misbehave when asked; every other call goes on to the C library.  Their
 * state is one shared page made when the object is loaded, so processes
 * forked by a test see the same devices.  Plain C.
 */
#ifndef TARVO_TESTS_FAKE_DEVICES_H
#define TARVO_TESTS_FAKE_DEVICES_H

#include <stddef.h>
#include <stdint.h>
#include <sys/time.h>
#include <linux/videodev2.h>

#include "legacy_uvc.h"

#define FAKE_BUFFER_COUNT 2
#define FAKE_BUFFER_LENGTH 8192
#define FAKE_MAX_CALLS 64
#define FAKE_MAX_FAILURES 8
#define FAKE_PASS (-1) /* in failErrnos: this call goes through */

enum FakeCallKind {
    FAKE_OPEN,
    FAKE_IOCTL,
    FAKE_MMAP,
    FAKE_MUNMAP,
    FAKE_SELECT,
    FAKE_READ,
    FAKE_CLOSE
};

typedef struct FakeCall {
    int kind;              /* a FakeCallKind */
    unsigned long request; /* the ioctl request, 0 for the other calls */
} FakeCall;

typedef struct FakeDevices {
    /* Answers and faults, set by a test. */
    unsigned long failRequest;            /* the ioctl request whose calls take, one each, */
    int failErrnos[FAKE_MAX_FAILURES];    /* these errors (or FAKE_PASS) until a 0 */
    int failMmap, failMunmap, failSelect; /* error of every such call, 0 for none */
    uint32_t capabilities;                /* VIDIOC_QUERYCAP */
    uint32_t answerWidth, answerHeight;   /* VIDIOC_S_FMT, 0 keeps what was asked */
    uint32_t answerPixelFormat;           /* VIDIOC_S_FMT, 0 keeps what was asked */
    uint32_t frameBytes;                  /* bytesused of every frame */
    int noFrame;                          /* no frame comes: select times out, DQBUF EAGAIN */

    /* What the devices went through. */
    FakeCall calls[FAKE_MAX_CALLS];
    int callCount;
    int failuresUsed;
    int videoFd, soundFd; /* -1 while closed */
    int videoFlags, soundFlags;
    struct v4l2_format askedFormat;
    struct v4l2_requestbuffers askedBuffers;
    struct v4l2_streamparm askedParm;
    int streaming;
    uint32_t queued[FAKE_BUFFER_COUNT]; /* place in the driver's queue, 0 when out */
    uint32_t queueTicket;
    uint32_t frames; /* frames dequeued so far */
    int mapProt, mapFlags;
    int mapped[FAKE_BUFFER_COUNT];
    size_t unmapLength[FAKE_BUFFER_COUNT];
    uint8_t *memory[FAKE_BUFFER_COUNT]; /* the buffers as mmap hands them out */
    struct timeval selectTimeout;
    struct uvc_xu_control_info addedControl;
    struct uvc_xu_control sentControl;
    uint8_t sentData[16];
    int channels, format, rate;
} FakeDevices;

/* Byte `offset` of frame number `frame`, and of everything read from the
 * sound device (frame 0). */
static inline uint8_t fakeByte(uint32_t frame, uint32_t offset)
{
    return (uint8_t)(frame * 37u + offset * 7u + 1u);
}

#ifdef __cplusplus
extern "C" {
#endif

/* Restores the default answers, forgets every call, fault and open device,
 * and returns the state.  Tests find it with dlsym, which fails when the fake
 * devices are not preloaded. */
FakeDevices *fakeDevicesReset(void);

#ifdef __cplusplus
}
#endif

#endif
