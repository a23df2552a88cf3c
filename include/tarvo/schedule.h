/*
 * Weekly recording schedule read from "schedule.ini" in the working
 * directory: named sections, each a list of spans "WEEKDAY,HH:MM:SS,HH:MM:SS"
 * (weekday 0 Sunday to 6 Saturday), for example
 *
 *     [alarm]
 *     1,08:00:00,17:30:00
 *
 * The file is read in pieces of at most 63 characters.  Lines beginning with
 * ';', '#', a space or a tab hold no span; lines that are not seven numbers
 * are skipped; spans before the first section belong to none and are
 * dropped.  Section names are cut to SD_NAME_MAX characters.  The in-use
 * count of every process's schedule is guarded by one semaphore lock with
 * the fixed key SD_LOCK_KEY.
 */
#ifndef TARVO_SCHEDULE_H
#define TARVO_SCHEDULE_H

#include <time.h>

#include "api.h"

TARVO_BEGIN_DECLS

/* A loaded schedule; opaque, made by sdLoad and freed by sdRelease. */
typedef struct Schedule Schedule;

#define SD_LOCK_KEY 65524
#define SD_NAME_MAX 31

/*
 * (Re)read "schedule.ini" into *sd, making the handle when *sd is null.
 * 1 loaded; 0 when an InSchedule call is running on it (nothing done); -1 on
 * failure, with the handle released and *sd set to null: "Schedule: open
 * file schedule.ini fail" (the file must be a regular file openable for
 * writing; it is opened without blocking, so a FIFO in its place fails too),
 * "Schedule: allocate memory fail!", "Schedule: unreasonable format!" (a
 * header without ']'), or silently for a file without sections.
 */
TARVO_API int sdLoad(Schedule **sd);

/* Wait until no InSchedule call runs, remove the lock, free everything and
 * set *sd to null; nothing when it is already null. */
TARVO_API void sdRelease(Schedule **sd);

/* 1 when `when` (seconds since the epoch; 0 for now), in local time, lies in
 * a span of the named section, both ends included; else 0 (also for a null
 * or loading handle).  A span whose start is after its end never matches. */
TARVO_API int InSchedule(Schedule *sd, const char *name, time_t when);

TARVO_END_DECLS

#endif
