/*
 * INI file reader: the whole file is loaded once, values are looked up by
 * section and key as integers or strings.  A section header is the name
 * between square brackets, the '[' first on its line; a key is first on its
 * line and followed (after blanks) by '='.  Blanks are space and tab; lines
 * end at a line feed; carriage returns, quotes and comment characters are
 * ordinary characters.
 */
#ifndef TARVO_INIFILE_H
#define TARVO_INIFILE_H

#include "api.h"

TARVO_BEGIN_DECLS

/* A loaded file; opaque, made by infLoad and freed by infRelease. */
typedef struct IniFile IniFile;

/* Longest section name looked up; longer names are not found (-1). */
#define INF_SECTION_MAX 63
/* Bytes infGetStr may write, its NUL included: a longer value is cut to
 * INF_VALUE_MAX - 1 characters.  The caller's buffer must hold this many. */
#define INF_VALUE_MAX 256

/*
 * Load `path` into *ini, making the record when *ini is null (-1, *ini left
 * null, when memory runs out).  Otherwise 0, also when the file cannot be
 * read: then "inf: open file PATH fail, FD, SIZE!" is printed and lookups
 * fail until a load succeeds.  Files of any size are read whole (the buffer
 * grows to the file; files of 2 GiB or more are refused as unreadable).
 * The file is opened without blocking and anything but a regular file (a
 * FIFO, a device) is refused as unreadable, SIZE then printed as -1.  A
 * record that is loaded is not read again for an empty path.  Every lookup
 * below looks at each line from its start once: it takes time linear in
 * the file's size, whatever its lines hold.
 */
TARVO_API int infLoad(IniFile **ini, const char *path);

/* Free the record and set *ini to null; nothing when it is already null. */
TARVO_API void infRelease(IniFile **ini);

/* Make the named section the current one: 0, or -1 when there is none (or
 * the header is on the last line, so the section has no body). */
TARVO_API int infFindSector(IniFile *ini, const char *section);

/* The key's value in the section, converted as atoi does: 0, or -1 when the
 * file is not loaded or the section or key is missing (*value untouched). */
TARVO_API int infGetInt(IniFile *ini, const char *section, const char *key, int *value);

/* The key's value, from the first non-blank after '=' to the last non-blank
 * of the line (empty when there is none), into value with a NUL: 0, or -1
 * as infGetInt.  See INF_VALUE_MAX for the buffer. */
TARVO_API int infGetStr(IniFile *ini, const char *section, const char *key, char *value);

/*
 * Scanners over text in memory; each takes a position and a bound and
 * returns a position.  A null position is returned as it is.
 *
 * SFindLineStart: the first character of p's line, not before start; p + 1
 * when p is a line feed.
 * SFindLineEnd: the last character of p's line (before its line feed), or
 * end when no line feed comes before end; p - 1 when p is a line feed.
 * SForSkipSpace: the first non-blank at or after p, end when only blanks
 * lie before end, p when p is not before end.
 * SBackSkipSpace: the last non-blank at or before p, start when only blanks
 * lie after start, p when p is not after start.
 */
TARVO_API char *SFindLineStart(char *p, char *start);
TARVO_API char *SFindLineEnd(char *p, char *end);
TARVO_API char *SForSkipSpace(char *p, char *end);
TARVO_API char *SBackSkipSpace(char *p, char *start);

TARVO_END_DECLS

#endif
