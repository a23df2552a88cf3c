/*
 * Video sensor: Motion-JPEG frames from the USB video-class sensor on
 * "/dev/video0" through Video4Linux2 memory-mapped streaming with two driver
 * buffers, and vendor commands to the sensor's image processor (ASIC) through
 * one extension-unit control.
 *
 * Failures print one line on standard output beginning with "Sensor: " and
 * return -1 (or null from psInitial); the handle stays usable.  The grabs
 * return PS_NO_FRAME when streaming could not be started or no frame came in
 * time, so that callers can tell no frame from an error.  One handle must not
 * be used by two threads.
 */
#ifndef TARVO_SENSOR_H
#define TARVO_SENSOR_H

/* <time.h> first: videodev2.h needs struct timespec, which strict C11 gets there. */
#include <time.h>
#include <linux/videodev2.h>

#include "api.h"

TARVO_BEGIN_DECLS

/* Driver buffers mapped per handle. */
#define PS_BUFFER_COUNT 2

/* What the grabs return when there is no frame. */
#define PS_NO_FRAME 9999999

/* The device psInitial opens. */
#define PS_DEVICE_PATH "/dev/video0"

/*
 * A sensor handle; callers read its fields.  Made by psInitial with malloc
 * and zero-filled; psRelease does not free it: the caller frees it with free
 * after psRelease.
 */
typedef struct SensorDevice {
    int fd;                             /* the open device, -1 after psRelease */
    int streaming;                      /* 1 between stream start and stop */
    int ready;                          /* 1 once initialised, 0 after psRelease */
    int width, height;                  /* asked for, or as the driver adjusted them */
    int framerate;                      /* frames per second last set successfully */
    struct v4l2_format format;          /* as the driver answered VIDIOC_S_FMT */
    struct v4l2_capability capability;  /* as VIDIOC_QUERYCAP answered */
    struct v4l2_streamparm streamParm;  /* as the last VIDIOC_S_PARM left it */
    struct v4l2_buffer buffer;          /* the last buffer queued, dequeued or queried */
    struct v4l2_requestbuffers request; /* as VIDIOC_REQBUFS answered */
    void *mapped[PS_BUFFER_COUNT];      /* the driver buffers, mapped read-only */
} SensorDevice;

/*
 * Prints "Sensor: Initial UVC device!", opens PS_DEVICE_PATH read-write,
 * checks it captures video by streaming, asks for width x height in MJPEG
 * (any field), requests and maps the two buffers, sets fps and registers the
 * ASIC extension-unit control.  Streaming is not started.
 *
 * A driver that answers another size prints "Sensor: Format asked
 * unavailable: W x H" and the handle keeps the driver's size.  A failed
 * registration of the extension-unit control does not stop initialisation
 * (the driver may have it already); only its giving-up line can show it.
 *
 * Null on failure, after the step's own line (e.g. "Sensor: Caon't open
 * device!", "Sensor: Unable to query device!", "Sensor: unsupport mjpeg
 * format!") and "Sensor: Init v4L2 failed!".  Nothing is left behind then:
 * the buffers mapped so far are unmapped, the device is closed and the
 * record is freed.  "Sensor: allocate memory fail!" when there is no memory.
 */
TARVO_API SensorDevice *psInitial(int width, int height, int fps);

/*
 * Stops streaming if it runs, unmaps both buffers with the length held in
 * `buffer` ("Sensor: Can't unmap buffer N" for each failure) and closes the
 * device.  The record is left with fd -1, ready 0, streaming 0 and no
 * mappings, so that the grabs then refuse it and a second psRelease does
 * nothing; the caller frees it.  Null is ignored.
 */
TARVO_API void psRelease(SensorDevice *sensor);

/* Queues both buffers ("Sensor: Unable to queue buffer!") and starts streaming
 * ("Sensor: Unable to start capture!"): 0, or -1.  -1 for null. */
TARVO_API int psVideoEnable(SensorDevice *sensor);

/* Stops streaming: 0, or -1 with "Sensor: Unable to stop capture!".  0 at
 * once, without a driver call, when not streaming.  -1 for null. */
TARVO_API int psVideoDisable(SensorDevice *sensor);

/* Asks the driver for 1/fps seconds per frame and stores fps: 0, or -1 with
 * "Sensor: ioctl set Framerate faile!" (framerate unchanged).  -1 for null. */
TARVO_API int psSetFramerate(SensorDevice *sensor, int fps);

/*
 * Waits for the next frame (starting streaming first if needed), copies it to
 * dest and gives the buffer back to the driver: the frame's length, -1, or
 * PS_NO_FRAME with "Sensor: video not start" when streaming cannot start.
 * dest must hold the largest frame; the copy is the frame's used bytes, never
 * more than one driver buffer (buffer.length).  "Sensor: device not ready"
 * and -1 for a null, released or uninitialised handle.
 */
TARVO_API int psGrabImage(SensorDevice *sensor, void *dest);

/*
 * Waits at most timeout milliseconds for a frame and takes its buffer from
 * the driver without copying: the frame's length, -1 ("Sensor: Grab error!"
 * when the wait fails, also for a negative timeout or a descriptor beyond
 * FD_SETSIZE), or PS_NO_FRAME when no frame came in time.  The buffer stays
 * with the caller until psReadGrab, which must come before the next
 * psSelectGrab.  Not-ready handles and stream start as psGrabImage.
 */
TARVO_API int psSelectGrab(SensorDevice *sensor, int timeout);

/*
 * Copies the frame psSelectGrab took to dest (unless dest is null) and gives
 * its buffer back: the frame's length, or -1 ("Sensor: Unable to requeue
 * buffer!").  Without a frame taken it gives back whichever buffer `buffer`
 * names, which the driver normally refuses.  "Sensor: device not ready" and
 * -1 for a null, released or uninitialised handle.
 */
TARVO_API int psReadGrab(SensorDevice *sensor, void *dest);

/*
 * Sends one ASIC command on the open device fd: 11 bytes (0x81, the low 16
 * bits of command high byte first, the low 8 bits of value, seven zeros) to
 * extension unit 6, selector 6.  A call failing with EINTR, EAGAIN or
 * ETIMEDOUT is made again, at most 5 calls in all; when the fourth or fifth
 * call fails for good, "Sensor: ioctl (R) retried 4 times - giving up:
 * ERROR)" comes first (R the request number, ERROR the error text).
 * 0, or -1 with "Sensor: Set ASIC failed".
 */
TARVO_API int SetASICCommand(int fd, int command, int value);

TARVO_END_DECLS

#endif
