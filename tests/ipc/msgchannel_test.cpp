// Message channels between real processes, and records as any reader sees them.
#include "tarvo/msgchannel.h"

#include "support/child.h"
#include "support/ipc_keys.h"

#include <gtest/gtest.h>

#include <deque>

using namespace tarvo::test;

// Four clients at once each get the answer to their own query, one at a time.
TEST(MsgChannel, ClientsGetTheirOwnAnswersOneQueryAtATime)
{
    IpcKeys keys;
    int key = keys.next();
    MsgChannel *owner = msgInitial(key);
    ASSERT_NE(owner, nullptr);
    Child server([&] {
        int overlaps = 0;
        for (msqid_ds queue; msgWaitUser(owner, 1) > 0 && owner->record.command >= 0;) {
            overlaps += msgctl(owner->queue, IPC_STAT, &queue) != 0 || queue.msg_qnum != 0;
            msgAnswerVal(owner, 0, owner->record.command * 3 + 1);
        }
        return overlaps;
    });
    std::deque<Child> clients;
    for (int first = 10000; first <= 40000; first += 10000)
        clients.emplace_back([=] {
            int wrong = 0;
            for (int command = first; command < first + 200; command++)
                wrong += msgUserQuery(key, command) != command * 3 + 1;
            return wrong;
        });
    for (Child &client : clients)
        EXPECT_EQ(client.wait(), 0) << "answers that went to another client";
    EXPECT_EQ(msgInformVal(owner, -1, 0), 0);
    EXPECT_EQ(server.wait(), 0) << "queries queued while another was served";
    msgRelease(owner);
    EXPECT_LT(msgget(key, 0) & semget(key, 0, 0), 0) << "the owner removes queue and lock";
}

TEST(MsgChannel, RecordsRefusalsCleaningAndNullHandles)
{
    IpcKeys keys;
    int key = keys.next();
    MsgChannel *channel = msgInitial(key);
    ASSERT_NE(channel, nullptr);
    const int params[MSG_PARAMS + 1] = {1, -2, 3, -4, 5, -6};
    time_t before = time(nullptr);
    for (int sent :
         {msgInformVal(channel, 11, -7), msgInformStr(channel, 12, "abcdefghijklmnopqrstuvw"),
          msgUserInformVals(key, 13, params, 3), msgUserEvent(key, 14, 99),
          msgAnswerParam(channel, 15, 77, params), msgSendSys(channel, 5555, 16, 42),
          msgQuery(channel, 17)})
        ASSERT_EQ(sent, 0);
    // Type, class, command, kind and first data words of each, in sending order.
    const std::vector<int32_t> heads[] = {
        {MSG_TO_SERVER, MSG_CLASS_INFORM, 11, MSG_KIND_VALUE, -7},
        {MSG_TO_SERVER, MSG_CLASS_INFORM, 12, MSG_KIND_STRING},
        {MSG_TO_SERVER, MSG_CLASS_INFORM, 13, MSG_KIND_VALUE, 1, -2, 3},
        {MSG_TO_SERVER, MSG_CLASS_INFORM, 14, MSG_KIND_EVENT},
        {MSG_TO_CLIENT, MSG_CLASS_ANSWER, 15, 77, 1, -2, 3, -4, 5, -6},
        {5555, MSG_CLASS_SYSTEM, 16, MSG_KIND_VALUE, 42},
        {MSG_TO_SERVER, MSG_CLASS_QUERY, 17}};
    struct {
        long mtype;
        int32_t words[MSG_RECORD_SIZE / 4];
    } wire[std::size(heads)];
    for (size_t i = 0; i < std::size(heads); i++) {
        ASSERT_EQ(msgrcv(channel->queue, &wire[i], MSG_RECORD_SIZE, 0, IPC_NOWAIT),
                  MSG_RECORD_SIZE);
        EXPECT_EQ(wire[i].mtype, heads[i][0]);
        EXPECT_TRUE(std::equal(heads[i].begin() + 1, heads[i].end(), wire[i].words)) << heads[i][2];
    }
    EXPECT_STREQ(reinterpret_cast<const char *>(&wire[1].words[3]), "abcdefghijklmnopqrstuvw");
    // Seconds (time() may trail the clock gettimeofday reads), microseconds, value.
    const int32_t *event = &wire[3].words[3];
    EXPECT_TRUE(event[0] >= before && event[0] <= time(nullptr) + 1 &&
                uint32_t(event[1]) < 1000000 && event[2] == 99);
    EXPECT_EQ(msgWaitAnswer(channel, 0), -1); // and gives the query lock back
    EXPECT_EQ(sfLocked(channel->queryLock), 0);

    // Over-long or missing input is refused and nothing sent; cleaning by type.
    for (int refused :
         {msgInformStr(channel, 1, "abcdefghijklmnopqrstuvwx"), msgAnswerStr(channel, 1, nullptr),
          msgUserInformVals(key, 1, params, MSG_PARAMS + 1), msgUserInformVals(key, 1, nullptr, 2)})
        EXPECT_EQ(refused, -1);
    for (int mtype : {7, 7, 8, 7})
        ASSERT_EQ(msgSendSys(channel, mtype, 0, 0), 0);
    EXPECT_EQ(std::vector<int>({msgClean(channel, 7), msgClean(channel, 0), msgWaitUser(channel, 0),
                                msgWaitSys(channel, 8, 0)}),
              std::vector<int>({3, 1, -1, -1}));
    // A foreign record of our size is read; one a byte longer jams its type.
    const MsgRecord foreign[2] = {{9, 0, 0, 0, {}}}; // room for the byte more
    for (size_t size : {MSG_RECORD_SIZE, MSG_RECORD_SIZE + 1})
        ASSERT_EQ(msgsnd(channel->queue, &foreign, size, 0), 0);
    EXPECT_EQ(msgClean(channel, 9), 1);
    EXPECT_TRUE(msgWaitSys(channel, 9, 0) == -1 && errno == E2BIG);

    // A second opener shares the lock, and leaves the queue when it detaches.
    MsgChannel *second = msgInitial(key);
    ASSERT_NE(second, nullptr);
    EXPECT_TRUE(second->queryLock == channel->queryLock && second->key == key);
    msgDetach(second);
    EXPECT_EQ(msgInformVal(channel, 3, 4), 0);
    EXPECT_EQ(msgWaitUser(channel, 0), MSG_RECORD_SIZE);
    msgDetach(channel);

    // Under a key whose lock is held but which has no queue, no channel opens
    // and no queue stays behind.
    int heldKey = keys.next();
    SemLock held = sfInitial(heldKey, 1);
    ASSERT_EQ(sfLock(held), 0);
    EXPECT_EQ(msgInitial(heldKey), nullptr);
    EXPECT_LT(msgget(heldKey, 0), 0);
    sfUnlock(held);

    msgDetach(nullptr);
    msgRelease(nullptr);
    EXPECT_EQ(msgClean(nullptr, 0), 0);
    EXPECT_EQ(msgSend(nullptr, 0) & msgRecv(nullptr, 0) & msgInformVal(nullptr, 1, 1) &
                  msgInformEvent(nullptr, 1, 1) & msgInformParam(nullptr, 1, 1, params) &
                  msgQuery(nullptr, 1) & msgWaitAnswer(nullptr, 0) & msgAnswerVal(nullptr, 1, 1) &
                  msgWaitSys(nullptr, 1, 0),
              -1);
}
