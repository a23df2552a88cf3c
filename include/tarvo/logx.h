/*
 * The callers' logger: one levelled line to standard error and to syslog.
 */
#ifndef TARVO_LOGX_H
#define TARVO_LOGX_H

#include "api.h"

TARVO_BEGIN_DECLS

/* Levels and their prefixes ("[XCEPTION] " is spelled so on purpose). */
#define LOGX_INFO 0      /* "[INFO] " */
#define LOGX_WARNING 1   /* "[WARNING] " */
#define LOGX_ERROR 2     /* "[ERROR] " */
#define LOGX_EXCEPTION 3 /* "[XCEPTION] " */
#define LOGX_CAMERA 4    /* "ipcam: " */

/* Longest expansion of the format that is logged as it is. */
#define LOGX_LINE_MAX 512

/*
 * Write the level's prefix and the printf-style expansion of format to
 * standard error (with a newline) and to syslog (priority LOG_ERR, the
 * process's own ident and facility).  An expansion longer than
 * LOGX_LINE_MAX characters (the prefix not counted), or one that fails,
 * reaches only syslog, as "logx(FORMAT) buffer overflow" with the format
 * string itself; nothing is written past the line buffer.  A level outside
 * 0..4 gets no prefix.  Always 0.
 */
TARVO_API int logx(int level, const char *format, ...) __attribute__((format(printf, 2, 3)));

TARVO_END_DECLS

#endif
