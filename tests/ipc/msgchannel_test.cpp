// Message channels between real processes: queries answered to the right
// client, records as another process reads them off the queue, cleaning,
// and not waiting.
#include "tarvo/msgchannel.h"

#include "support/child.h"
#include "support/ipc_keys.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <sys/msg.h>
#include <sys/time.h>
#include <vector>

using namespace tarvo::test;

namespace
{

constexpr int kClients = 4;
constexpr int kQueriesPerClient = 200;
constexpr int kStop = -1;

int answerFor(int command)
{
    return command * 3 + 1;
}

// Answers every query with answerFor(command) until it is told to stop.
int serve(int key)
{
    MsgChannel *channel = msgInitial(key);
    if (channel == nullptr)
        return 1;
    while (msgWaitUser(channel, 1) == MSG_RECORD_SIZE && channel->record.command != kStop) {
        if (channel->record.msgClass == MSG_CLASS_QUERY)
            msgAnswerVal(channel, channel->record.command, answerFor(channel->record.command));
    }
    msgDetach(channel);
    return 0;
}

TEST(MsgChannel, EveryClientGetsTheAnswerToItsOwnQuery)
{
    IpcKeys keys;
    int key = keys.next();
    MsgChannel *owner = msgInitial(key);
    ASSERT_NE(owner, nullptr);
    Child server([&] { return serve(key); });
    std::vector<std::unique_ptr<Child>> clients;
    for (int id = 0; id < kClients; id++) {
        clients.push_back(std::make_unique<Child>([=] {
            int wrong = 0;
            for (int i = 0; i < kQueriesPerClient; i++) {
                int command = (id + 1) * 10000 + i;
                wrong += msgUserQuery(key, command) != answerFor(command);
            }
            return wrong;
        }));
    }
    for (auto &client : clients)
        EXPECT_EQ(client->wait(), 0) << "answers that went to another client";
    EXPECT_EQ(msgInformVal(owner, kStop, 0), 0);
    EXPECT_EQ(server.wait(), 0);
    EXPECT_EQ(sfLocked(owner->queryLock), 0);
    msgRelease(owner);
    EXPECT_LT(msgget(key, 0), 0);
    EXPECT_LT(semget(key, 0, 0), 0);
}

// A record as another process takes it off the queue with msgrcv.
struct Wire {
    long mtype;
    int32_t words[MSG_RECORD_SIZE / 4];
};

Wire receiveRaw(int key, long mtype)
{
    Wire wire{};
    wire.mtype = -1;
    int queue = msgget(key, 0);
    if (msgrcv(queue, &wire, MSG_RECORD_SIZE, mtype, IPC_NOWAIT) != MSG_RECORD_SIZE)
        wire.mtype = -1;
    return wire;
}

class Records : public ::testing::Test
{
  protected:
    void SetUp() override
    {
        key_ = keys_.next();
        channel_ = msgInitial(key_);
        ASSERT_NE(channel_, nullptr);
    }
    void TearDown() override { msgRelease(channel_); }

    // What a reader in another process finds first on the queue for mtype.
    Wire readElsewhere(long mtype)
    {
        Wire wire{};
        int pipeEnds[2];
        EXPECT_EQ(pipe(pipeEnds), 0);
        Child reader([&] {
            Wire found = receiveRaw(key_, mtype);
            return write(pipeEnds[1], &found, sizeof found) == sizeof found ? 0 : 1;
        });
        EXPECT_EQ(reader.wait(), 0);
        EXPECT_EQ(read(pipeEnds[0], &wire, sizeof wire), ssize_t(sizeof wire));
        close(pipeEnds[0]);
        close(pipeEnds[1]);
        return wire;
    }

    IpcKeys keys_;
    int key_ = 0;
    MsgChannel *channel_ = nullptr;
};

TEST_F(Records, InformsAnswersAndSystemRecordsOnTheQueue)
{
    const int params[MSG_PARAMS] = {1, -2, 3, -4, 5, -6};
    const char text23[] = "abcdefghijklmnopqrstuvw";

    ASSERT_EQ(msgInformVal(channel_, 11, -7), 0);
    Wire wire = readElsewhere(MSG_TO_SERVER);
    EXPECT_EQ(wire.mtype, MSG_TO_SERVER);
    EXPECT_EQ(std::vector<int32_t>(wire.words, wire.words + 4),
              (std::vector<int32_t>{MSG_CLASS_INFORM, 11, MSG_KIND_VALUE, -7}));

    ASSERT_EQ(msgInformStr(channel_, 12, text23), 0);
    wire = readElsewhere(MSG_TO_SERVER);
    EXPECT_EQ(wire.words[2], MSG_KIND_STRING);
    EXPECT_STREQ(reinterpret_cast<const char *>(&wire.words[3]), text23);

    ASSERT_EQ(msgAnswerParam(channel_, 13, 77, params), 0);
    wire = readElsewhere(MSG_TO_CLIENT);
    EXPECT_EQ(wire.mtype, MSG_TO_CLIENT);
    EXPECT_EQ(std::vector<int32_t>(wire.words, wire.words + 9),
              (std::vector<int32_t>{MSG_CLASS_ANSWER, 13, 77, 1, -2, 3, -4, 5, -6}));

    timeval before;
    gettimeofday(&before, nullptr);
    ASSERT_EQ(msgInformEvent(channel_, 14, 99), 0);
    wire = readElsewhere(MSG_TO_SERVER);
    EXPECT_EQ(wire.words[2], MSG_KIND_EVENT);
    EXPECT_GE(wire.words[3], int32_t(before.tv_sec));
    EXPECT_LE(wire.words[3], int32_t(before.tv_sec) + 60);
    EXPECT_LT(wire.words[4], 1000000);
    EXPECT_EQ(wire.words[5], 99);

    ASSERT_EQ(msgSendSys(channel_, 5555, 15, 42), 0);
    wire = readElsewhere(5555);
    EXPECT_EQ(std::vector<int32_t>(wire.words, wire.words + 4),
              (std::vector<int32_t>{MSG_CLASS_SYSTEM, 15, MSG_KIND_VALUE, 42}));

    const int values[3] = {7, 8, 9};
    ASSERT_EQ(msgUserInformVals(key_, 16, values, 3), 0);
    wire = readElsewhere(MSG_TO_SERVER);
    EXPECT_EQ(std::vector<int32_t>(wire.words + 3, wire.words + 6),
              (std::vector<int32_t>{7, 8, 9}));
}

TEST_F(Records, CleaningNotWaitingRefusalsAndSecondOpeners)
{
    for (int i = 0; i < 3; i++)
        ASSERT_EQ(msgSendSys(channel_, 7, i, i), 0);
    ASSERT_EQ(msgSendSys(channel_, 8, 0, 0), 0);
    EXPECT_EQ(msgClean(channel_, 7), 3);
    EXPECT_EQ(msgClean(channel_, 7), 0);
    EXPECT_EQ(msgClean(channel_, 0), 1);

    errno = 0;
    EXPECT_EQ(msgWaitUser(channel_, 0), -1);
    EXPECT_EQ(errno, ENOMSG);
    EXPECT_EQ(msgWaitSys(channel_, 123, 0), -1);

    // Overlong input is refused and nothing sent.
    const int values[7] = {};
    EXPECT_EQ(msgInformStr(channel_, 1, "abcdefghijklmnopqrstuvwx"), -1);
    EXPECT_EQ(msgAnswerStr(channel_, 1, nullptr), -1);
    EXPECT_EQ(msgUserInformVals(key_, 1, values, 7), -1);
    EXPECT_EQ(msgUserInformVals(key_, 1, nullptr, 2), -1);
    EXPECT_EQ(msgClean(channel_, 0), 0);

    MsgChannel *second = msgInitial(key_);
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(second->queue, channel_->queue);
    EXPECT_EQ(second->queryLock, channel_->queryLock);
    EXPECT_EQ(second->key, key_);
    msgDetach(second);
    ASSERT_EQ(msgInformVal(channel_, 3, 4), 0);
    EXPECT_EQ(msgWaitUser(channel_, 0), MSG_RECORD_SIZE);
    EXPECT_EQ(channel_->record.command, 3);
    EXPECT_EQ(channel_->record.data.value, 4);

    const int params[MSG_PARAMS] = {};
    msgDetach(nullptr);
    msgRelease(nullptr);
    EXPECT_EQ(msgClean(nullptr, 0), 0);
    EXPECT_EQ(msgSend(nullptr, 0) & msgRecv(nullptr, 0) & msgInformVal(nullptr, 1, 1) &
                  msgInformEvent(nullptr, 1, 1) & msgInformParam(nullptr, 1, 1, params) &
                  msgQuery(nullptr, 1) & msgWaitAnswer(nullptr, 0) & msgAnswerVal(nullptr, 1, 1) &
                  msgWaitSys(nullptr, 1, 0),
              -1);
}

} // namespace
