/*
 * Message channels: one System V message queue per key, shared by every
 * process that opens the key, carrying fixed-size records: informs and
 * queries to the process that serves the key (type MSG_TO_SERVER), answers
 * back (type MSG_TO_CLIENT), and system records of a caller-chosen type.  A
 * semaphore lock with the same key lets one query at a time wait for its
 * answer, so that every client gets the answer to its own query.
 *
 * The wait argument of the transfer calls is a flag: non-zero blocks, zero
 * passes IPC_NOWAIT.  Sends return 0 or -1, receives MSG_RECORD_SIZE or -1,
 * as msgsnd and msgrcv do.  Every call accepts a null handle and then does
 * nothing (-1).  One handle must not be used by two threads: its record is
 * the buffer of every send and receive, and keeps the last one.
 *
 * The queue is created with mode 0666: any local user can send into it.
 * Receives do not truncate, so a longer record of a foreign size at the head
 * of the queue jams it: receives of its type fail with E2BIG (-1) and
 * msgClean cannot remove it; only removing the queue clears it.
 */
#ifndef TARVO_MSGCHANNEL_H
#define TARVO_MSGCHANNEL_H

#include <stdint.h>

#include "api.h"
#include "semlock.h"

TARVO_BEGIN_DECLS

/* Queue message types. */
#define MSG_TO_SERVER 300
#define MSG_TO_CLIENT 200

/* Record classes. */
#define MSG_CLASS_SYSTEM 1000
#define MSG_CLASS_INFORM 2000
#define MSG_CLASS_ANSWER 3000
#define MSG_CLASS_QUERY 4000

/* Data kinds; the parameter forms carry a caller-given kind instead. */
#define MSG_KIND_VALUE 0
#define MSG_KIND_STRING 1
#define MSG_KIND_EVENT 2

/* Bytes after mtype that travel on the queue, on every host. */
#define MSG_RECORD_SIZE 36
/* Longest string a record carries (a NUL follows it). */
#define MSG_TEXT_MAX 23
/* Words in a parameter record. */
#define MSG_PARAMS 6

/* The record on the queue: the System V type, then 36 bytes in host order. */
typedef struct MsgRecord {
    long mtype;
    int32_t msgClass;
    int32_t command;
    int32_t kind;
    union {
        int32_t value;
        char text[MSG_TEXT_MAX + 1];
        struct {
            int32_t seconds;
            int32_t microseconds;
            int32_t value;
        } event;
        int32_t params[MSG_PARAMS];
    } data;
} MsgRecord;

/* A process's handle on one channel; callers read `record` after a receive. */
typedef struct MsgChannel {
    int32_t queue;     /* msgget's identifier, negative for none */
    int32_t key;       /* the key it was opened with */
    SemLock queryLock; /* the semaphore with the same key */
    MsgRecord record;
} MsgChannel;

/* Open the queue under key and its lock, creating both when the queue does
 * not exist (printing "cammsgctrl: Fail to create message queue!" when that
 * fails).  Null on failure; a queue whose lock cannot be had is removed. */
TARVO_API MsgChannel *msgInitial(int key);

/* Free the handle only; the queue and the lock stay for other processes. */
TARVO_API void msgDetach(MsgChannel *channel);

/* Wait until the query lock is free, remove it and the queue, free the
 * handle (the owner's way out).  A lock identifier of 0 is left alone. */
TARVO_API void msgRelease(MsgChannel *channel);

/* Receive and drop every record of type mtype (0: every type) without
 * waiting; the number removed. */
TARVO_API int msgClean(MsgChannel *channel, long mtype);

/* Send the record as it stands / receive the first record of the type now
 * in record.mtype into it. */
TARVO_API int msgSend(MsgChannel *channel, int wait);
TARVO_API int msgRecv(MsgChannel *channel, int wait);

/*
 * Client side: records of type MSG_TO_SERVER, class MSG_CLASS_INFORM, sent
 * blocking.  A string longer than MSG_TEXT_MAX characters (or null) is
 * refused with -1 and nothing is sent.
 */
TARVO_API int msgInformVal(MsgChannel *channel, int command, int value);
TARVO_API int msgInformStr(MsgChannel *channel, int command, const char *text);
/* The event carries the current time and the value. */
TARVO_API int msgInformEvent(MsgChannel *channel, int command, int value);
TARVO_API int msgInformParam(MsgChannel *channel, int command, int kind,
                             const int params[MSG_PARAMS]);

/* Take the query lock (blocking) and send a query; kind and data are left as
 * the record last held them.  -1, nothing sent, when the lock cannot be
 * confirmed held.  The lock stays held until msgWaitAnswer. */
TARVO_API int msgQuery(MsgChannel *channel, int command);

/* Receive the answer (type MSG_TO_CLIENT) and give the query lock back
 * whether or not one came.  Call it only after msgQuery: giving back a lock
 * this process does not hold blocks until somebody takes it. */
TARVO_API int msgWaitAnswer(MsgChannel *channel, int wait);

/* Serving side: the next inform or query, into record. */
TARVO_API int msgWaitUser(MsgChannel *channel, int wait);

/* Answers: type MSG_TO_CLIENT, class MSG_CLASS_ANSWER, sent blocking. */
TARVO_API int msgAnswerVal(MsgChannel *channel, int command, int value);
TARVO_API int msgAnswerStr(MsgChannel *channel, int command, const char *text);
TARVO_API int msgAnswerParam(MsgChannel *channel, int command, int kind,
                             const int params[MSG_PARAMS]);

/* System records of the caller's type: class MSG_CLASS_SYSTEM, a value. */
TARVO_API int msgSendSys(MsgChannel *channel, long mtype, int command, int value);
TARVO_API int msgWaitSys(MsgChannel *channel, long mtype, int wait);

/*
 * One-shot helpers: open the key, act, detach.  -1 when the channel cannot
 * be opened; otherwise 0 (the send's own result is not reported).
 * msgUserInformVals sends the first n words of values (n at most
 * MSG_PARAMS; more, a negative n or null values give -1 and nothing sent).
 * msgUserQuery returns the answer's value word, or -1 when no answer came.
 */
TARVO_API int msgUserInform(int key, int command, int value);
TARVO_API int msgUserInformVals(int key, int command, const int *values, int n);
TARVO_API int msgUserEvent(int key, int command, int value);
TARVO_API int msgUserQuery(int key, int command);

TARVO_END_DECLS

#endif
