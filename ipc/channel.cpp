// Message channel lifetime and raw transfer.
#include "tarvo/msgchannel.h"

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <sys/ipc.h>
#include <sys/msg.h>

// The 36 bytes that travel follow mtype directly, on every host.
static_assert(offsetof(MsgRecord, msgClass) == sizeof(long));
static_assert(offsetof(MsgRecord, data) + sizeof(MsgRecord::data) ==
              sizeof(long) + MSG_RECORD_SIZE);

namespace
{

constexpr int kCreateMode = IPC_CREAT | 0666;

int waitFlag(int wait)
{
    return wait ? 0 : IPC_NOWAIT;
}

} // namespace

extern "C" {

MsgChannel *msgInitial(int key)
{
    auto *channel = static_cast<MsgChannel *>(calloc(1, sizeof(MsgChannel)));
    if (channel == nullptr)
        return nullptr;
    channel->queue = msgget(key, 0);
    if (channel->queue >= 0) {
        channel->queryLock = sfInitial(key, 0);
    } else {
        channel->queue = msgget(key, kCreateMode);
        if (channel->queue >= 0)
            channel->queryLock = sfInitial(key, 1);
        else
            puts("cammsgctrl: Fail to create message queue!");
    }
    if (channel->queue >= 0 && channel->queryLock >= 0) {
        channel->key = key;
        return channel;
    }
    msgRelease(channel);
    return nullptr;
}

void msgDetach(MsgChannel *channel)
{
    free(channel);
}

void msgRelease(MsgChannel *channel)
{
    if (channel == nullptr)
        return;
    if (channel->queue >= 0) {
        if (channel->queryLock > 0) {
            sfWaitUnlock(channel->queryLock);
            sfRelease(channel->queryLock);
        }
        msgctl(channel->queue, IPC_RMID, nullptr);
    }
    free(channel);
}

int msgClean(MsgChannel *channel, long mtype)
{
    if (channel == nullptr)
        return 0;
    int removed = 0;
    while (msgrcv(channel->queue, &channel->record, MSG_RECORD_SIZE, mtype, IPC_NOWAIT) >= 0)
        removed++;
    return removed;
}

int msgSend(MsgChannel *channel, int wait)
{
    if (channel == nullptr)
        return -1;
    return msgsnd(channel->queue, &channel->record, MSG_RECORD_SIZE, waitFlag(wait));
}

int msgRecv(MsgChannel *channel, int wait)
{
    if (channel == nullptr)
        return -1;
    return int(msgrcv(channel->queue, &channel->record, MSG_RECORD_SIZE, channel->record.mtype,
                      waitFlag(wait)));
}

} // extern "C"
