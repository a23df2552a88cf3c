/*
 * FTP upload of one buffer (a snapshot) into a date-and-hour directory
 * tree that is created as needed, over a passive (PASV for IPv4, LPSV for
 * IPv6) or active (PORT, LPRT) data connection.
 *
 * ftpDebug and ftpForceStop are the client's switches: with debug on every
 * step prints a trace line beginning "ftp: " on standard output; force stop
 * makes every later transfer of this client fail at its next send or
 * receive and is never cleared in the life of the process (ftpInit does not
 * clear it either).  Connections time out after 30 seconds, a reply after
 * 100 one-second waits.  ftpInit sets SIGPIPE to be ignored.
 *
 * A reply whose continuation lines never end (a server that keeps sending
 * "220-" lines) is ended only by ftpForceStop.  A send blocked on a server
 * that does not read, and the accept of active mode, do not see a force
 * stop raised from another thread: only a signal to the calling thread,
 * caught by a handler installed without SA_RESTART, ends them (the step
 * then fails).
 *
 * Result codes, stored in result and returned:
 *   -101 connect  -102 no greeting  -103 USER not answered 331
 *   -104 PASS not answered 230  -105 REST 0 failed  -106 TYPE I failed
 *   -201..-205 active set-up (getsockname, socket, bind, getsockname,
 *   listen)  -206 LPRT not answered 200  -207 PORT not answered 200
 *   -301 getsockname  -303 LPSV answer has fewer than 21 numbers
 *   -304 LPSV answer not family 6, length 16, port length 2
 *   -305 LPSV address not convertible  -306 PASV not answered 227
 *   -307 data connect failed, or an address or port number of the PASV
 *   or LPSV answer lies outside 0..255 (nothing is connected then)
 *   -501 no control connection, no data or length < 1
 *   -502 work directory could not be entered or created
 *   -503 STOR not answered 150/125  -504 accept failed
 *   -505 data send failed or force-stopped
 *   -506 transfer end not answered 226/250
 * An LPSV answered with anything but 228 ends ftpWrite with the result it
 * had (0 after a login), uploading nothing.
 *
 * Over IPv6 the data connection needs LPSV (passive) or LPRT (active); many
 * servers answer both with 500.  A passive upload then returns 0 and stores
 * nothing, an active one returns -206.
 *
 * Every command is formatted into a 512-byte line; one that would be longer
 * (a long user name, password, directory or file name) is not sent and
 * fails its step with the code above.
 */
#ifndef TARVO_FTPUPLOAD_H
#define TARVO_FTPUPLOAD_H

#include <stdint.h>

#include "api.h"

TARVO_BEGIN_DECLS

#define FTP_WORKDIR_SIZE 256
#define FTP_FILE_NAME_SIZE 256

/* The caller's record of one upload; the field order is fixed. */
typedef struct FtpJob {
    int32_t ctrlSock;  /* control connection, -1 when none */
    int32_t dataSock;  /* data connection or listening socket, -1 when none */
    int32_t result;    /* 0 or one of the codes above */
    int32_t reply;     /* last reply code read (-1 receive error, -2 none) */
    int32_t passive;   /* 1 passive (default), 0 active */
    int32_t port;      /* server port */
    int32_t fixedName; /* non-zero: upload into directory as fileName */
    char *host;
    char *user;
    char *password;
    char *directory;                   /* base directory, normalised in place by ftpUpload */
    char *subdir;                      /* optional directory under the base, may be null */
    char workDir[FTP_WORKDIR_SIZE];    /* remote directory, ending in "/" */
    char fileName[FTP_FILE_NAME_SIZE]; /* remote file name */
} FtpJob;

/* ctrlSock = dataSock = -1, result = reply = 0, passive = 1, fixedName = 0,
 * subdir = null; SIGPIPE ignored.  Always 0 (a null record is left alone). */
TARVO_API int ftpInit(FtpJob *job);

/* The switches described above; both return 1. */
TARVO_API int ftpDebug(int on);
TARVO_API int ftpForceStop(void);

/* Connects to host:port and logs in: greeting, USER (must be answered 331,
 * a server answering 230 at once is refused), PASS (230), REST 0, TYPE I.
 * On failure the connection is closed (ftpClose).  Returns result; -1 for
 * a null job.  A null user or password is sent as empty text. */
TARVO_API int ftpOpen(FtpJob *job);

/*
 * On a logged-in connection: enters workDir when it is non-empty, first as
 * "CWD /<workDir>", then, when that is refused, component by component
 * from the login directory ("CWD name", else "MKD name" and "CWD name"),
 * opens the data connection, stores data as fileName, and reads the
 * transfer's end.  workDir and fileName must end within their fields
 * (else -502 and -503).  Returns result; -1 for a null job.  In active mode
 * the accept of the server's data connection waits as long as it takes.
 */
TARVO_API int ftpWrite(FtpJob *job, char *data, int length);

/* Closes the data socket, then sends QUIT (its answer is not kept) and
 * closes the control connection.  A null job is left alone. */
TARVO_API void ftpClose(FtpJob *job);

/*
 * The whole upload: returns result, or -1 (record untouched) when job,
 * host, user, password, directory or data is null or length is 0.
 *
 * directory is normalised in place when non-empty: one leading "/" is
 * dropped and a "/" is appended when it does not end in one, so a
 * directory that neither starts nor ends with "/" needs one spare byte in
 * the caller's buffer.  Unless fixedName is set, workDir becomes directory
 * (followed by subdir and "/" when subdir is non-empty) followed by
 * "YYYYMMDD/hh/" of the local time, and fileName "hhmmss_t.jpg" with t the
 * tenths of the second; with fixedName, workDir is directory and fileName
 * stays as the caller set it.  A work directory longer than
 * FTP_WORKDIR_SIZE - 1 bytes gives -502 without connecting.  Then
 * ftpOpen, ftpWrite and ftpClose.  length is taken as an int: more than
 * INT_MAX bytes gives -501.
 */
TARVO_API int ftpUpload(FtpJob *job, char *data, unsigned length);

TARVO_END_DECLS

#endif
