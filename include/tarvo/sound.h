/*
 * Sound capture: the microphone through the Open Sound System device
 * "/dev/dsp0", opened exclusively for recording and named by its plain
 * descriptor.  The driver's fragment size and count stay as they are.
 */
#ifndef TARVO_SOUND_H
#define TARVO_SOUND_H

#include "api.h"

TARVO_BEGIN_DECLS

/* The device asInitial opens. */
#define AS_DEVICE_PATH "/dev/dsp0"

/*
 * Opens AS_DEVICE_PATH read-only and exclusively, then resets it and sets the
 * channel count, the sample format (an AFMT_* value of <sys/soundcard.h>) and
 * the rate in samples per second, in that order; the values the driver writes
 * back are not looked at.  Returns the descriptor, or -1 with "Sound: Unable
 * to open device file /dev/dsp0" (also while another process records) or
 * "Sound: Set Format fail!" (the device is closed again then).
 */
TARVO_API int asInitial(int channels, int rate, int format);

/* One read of up to length bytes, blocking until the driver has data: its
 * result.  A negative length reads nothing: -1 with errno EINVAL. */
TARVO_API int asRead(int fd, void *buffer, int length);

/* Closes the device: the result of close. */
TARVO_API int asClose(int fd);

TARVO_END_DECLS

#endif
