/*
 * What the network clients (httpnotify.h, ftpupload.h, mailupload.h) share
 * with the rest of the process.
 *
 * The clients resolve host names with gethostbyname and gethostbyname2,
 * whose answer lives in static storage; they hold g_mutex_sock around those
 * two calls and while copying the address out.  Code of the calling process
 * that uses the same resolver calls may take this lock around them too.
 */
#ifndef TARVO_NETCONN_H
#define TARVO_NETCONN_H

#include <pthread.h>

#include "api.h"

TARVO_BEGIN_DECLS

/* Statically initialised with default attributes; never destroyed. */
TARVO_API extern pthread_mutex_t g_mutex_sock;

TARVO_END_DECLS

#endif
