// The record forms: informs, queries, answers, system records, and the
// one-shot helpers that open a channel for a single call.
#include "tarvo/msgchannel.h"

#include <cstring>
#include <sys/time.h>

namespace
{

// Fills the header of the handle's record; data is left as it was.
void address(MsgChannel *channel, long mtype, int msgClass, int command)
{
    channel->record.mtype = mtype;
    channel->record.msgClass = msgClass;
    channel->record.command = command;
}

int sendValue(MsgChannel *channel, long mtype, int msgClass, int command, int value)
{
    if (channel == nullptr)
        return -1;
    address(channel, mtype, msgClass, command);
    channel->record.kind = MSG_KIND_VALUE;
    channel->record.data.value = value;
    return msgSend(channel, 1);
}

int sendText(MsgChannel *channel, long mtype, int msgClass, int command, const char *text)
{
    if (channel == nullptr || text == nullptr || strnlen(text, MSG_TEXT_MAX + 1) > MSG_TEXT_MAX)
        return -1;
    address(channel, mtype, msgClass, command);
    channel->record.kind = MSG_KIND_STRING;
    strcpy(channel->record.data.text, text);
    return msgSend(channel, 1);
}

int sendParams(MsgChannel *channel, long mtype, int msgClass, int command, int kind,
               const int *params)
{
    if (channel == nullptr || params == nullptr)
        return -1;
    address(channel, mtype, msgClass, command);
    channel->record.kind = kind;
    for (int i = 0; i < MSG_PARAMS; i++)
        channel->record.data.params[i] = params[i];
    return msgSend(channel, 1);
}

int receiveType(MsgChannel *channel, long mtype, int wait)
{
    if (channel == nullptr)
        return -1;
    channel->record.mtype = mtype;
    return msgRecv(channel, wait);
}

// Opens the key for one call and detaches afterwards; -1 when it cannot.
template <typename Call> int withChannel(int key, Call &&call)
{
    MsgChannel *channel = msgInitial(key);
    if (channel == nullptr)
        return -1;
    int result = call(channel);
    msgDetach(channel);
    return result;
}

} // namespace

extern "C" {

int msgInformVal(MsgChannel *channel, int command, int value)
{
    return sendValue(channel, MSG_TO_SERVER, MSG_CLASS_INFORM, command, value);
}

int msgInformStr(MsgChannel *channel, int command, const char *text)
{
    return sendText(channel, MSG_TO_SERVER, MSG_CLASS_INFORM, command, text);
}

int msgInformEvent(MsgChannel *channel, int command, int value)
{
    if (channel == nullptr)
        return -1;
    timeval now;
    gettimeofday(&now, nullptr);
    address(channel, MSG_TO_SERVER, MSG_CLASS_INFORM, command);
    channel->record.kind = MSG_KIND_EVENT;
    channel->record.data.event.seconds = int32_t(now.tv_sec);
    channel->record.data.event.microseconds = int32_t(now.tv_usec);
    channel->record.data.event.value = value;
    return msgSend(channel, 1);
}

int msgInformParam(MsgChannel *channel, int command, int kind, const int params[MSG_PARAMS])
{
    return sendParams(channel, MSG_TO_SERVER, MSG_CLASS_INFORM, command, kind, params);
}

int msgQuery(MsgChannel *channel, int command)
{
    if (channel == nullptr)
        return -1;
    sfLock(channel->queryLock);
    if (sfLocked(channel->queryLock) <= 0)
        return -1;
    address(channel, MSG_TO_SERVER, MSG_CLASS_QUERY, command);
    return msgSend(channel, 1);
}

int msgWaitAnswer(MsgChannel *channel, int wait)
{
    if (channel == nullptr)
        return -1;
    int result = receiveType(channel, MSG_TO_CLIENT, wait);
    sfUnlock(channel->queryLock);
    return result;
}

int msgWaitUser(MsgChannel *channel, int wait)
{
    return receiveType(channel, MSG_TO_SERVER, wait);
}

int msgAnswerVal(MsgChannel *channel, int command, int value)
{
    return sendValue(channel, MSG_TO_CLIENT, MSG_CLASS_ANSWER, command, value);
}

int msgAnswerStr(MsgChannel *channel, int command, const char *text)
{
    return sendText(channel, MSG_TO_CLIENT, MSG_CLASS_ANSWER, command, text);
}

int msgAnswerParam(MsgChannel *channel, int command, int kind, const int params[MSG_PARAMS])
{
    return sendParams(channel, MSG_TO_CLIENT, MSG_CLASS_ANSWER, command, kind, params);
}

int msgSendSys(MsgChannel *channel, long mtype, int command, int value)
{
    return sendValue(channel, mtype, MSG_CLASS_SYSTEM, command, value);
}

int msgWaitSys(MsgChannel *channel, long mtype, int wait)
{
    return receiveType(channel, mtype, wait);
}

int msgUserInform(int key, int command, int value)
{
    return withChannel(key, [&](MsgChannel *channel) {
        msgInformVal(channel, command, value);
        return 0;
    });
}

int msgUserInformVals(int key, int command, const int *values, int n)
{
    if (n < 0 || n > MSG_PARAMS || (values == nullptr && n > 0))
        return -1;
    return withChannel(key, [&](MsgChannel *channel) {
        address(channel, MSG_TO_SERVER, MSG_CLASS_INFORM, command);
        channel->record.kind = MSG_KIND_VALUE;
        for (int i = 0; i < n; i++)
            channel->record.data.params[i] = values[i];
        msgSend(channel, 1);
        return 0;
    });
}

int msgUserEvent(int key, int command, int value)
{
    return withChannel(key, [&](MsgChannel *channel) {
        msgInformEvent(channel, command, value);
        return 0;
    });
}

int msgUserQuery(int key, int command)
{
    return withChannel(key, [&](MsgChannel *channel) {
        msgQuery(channel, command);
        if (msgWaitAnswer(channel, 1) < 0)
            return -1;
        return int(channel->record.data.value);
    });
}

} // extern "C"
