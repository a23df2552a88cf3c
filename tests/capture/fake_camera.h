/* The fake camera's driver requests, used by the fake devices' ioctl. */
#ifndef TARVO_TESTS_FAKE_CAMERA_H
#define TARVO_TESTS_FAKE_CAMERA_H

#include "fake_devices.h"

/* Answers one request on the open camera as the driver would: 0, or -1 with
 * errno set. */
int fakeCameraIoctl(FakeDevices *fake, unsigned long request, void *argument);

#endif
