/* The whole public interface of libTarvo. */
#ifndef TARVO_TARVO_H
#define TARVO_TARVO_H

#include "semlock.h"
#include "ringbuf.h"
#include "profile.h"
#include "msgchannel.h"
#include "logx.h"
#include "inifile.h"
#include "schedule.h"
#include "sensor.h"
#include "sound.h"
#include "jmd.h"
#include "netconn.h"
#include "httpnotify.h"
#include "ftpupload.h"
#include "mailupload.h"

#endif
