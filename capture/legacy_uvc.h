/*
 * Extension-unit requests of the older uvcvideo interface: the sensor's
 * driver registers a vendor control with UVCIOC_CTRL_ADD and sets it with
 * UVCIOC_CTRL_SET.  Current kernel headers carry only their successors
 * (UVCIOC_CTRL_MAP, UVCIOC_CTRL_QUERY), so the two records and requests are
 * defined here as that interface gave them.  Plain C, for the test fakes too.
 */
#ifndef TARVO_CAPTURE_LEGACY_UVC_H
#define TARVO_CAPTURE_LEGACY_UVC_H

#include <linux/ioctl.h>
#include <linux/types.h>

/* A control of an extension unit, as UVCIOC_CTRL_ADD registers it. */
struct uvc_xu_control_info {
    __u8 entity[16]; /* the unit's GUID */
    __u8 index;      /* bit index in the unit's control bitmap */
    __u8 selector;
    __u16 size; /* bytes of the control's value */
    __u32 flags;
};

/* A value for UVCIOC_CTRL_SET: size bytes at data, for unit and selector. */
struct uvc_xu_control {
    __u8 unit;
    __u8 selector;
    __u16 size;
    __u8 *data;
};

#define UVCIOC_CTRL_ADD _IOW('U', 1, struct uvc_xu_control_info)
#define UVCIOC_CTRL_SET _IOW('U', 4, struct uvc_xu_control)

#endif
