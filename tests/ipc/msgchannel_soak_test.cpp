// Soak: a server and four clients on one channel, each client sending an event
// and a query over and over, all but the first (whose memory scripts/soak.sh
// samples) killed at random and replaced.  A killed client's answer stays in
// the queue (answers name no client), so a client takes answers, holding the
// query lock, until its own comes.  All must be right, at most one left behind
// per kill.  Each child process has an alarm, so a deadlock fails.
//
//   msgchannel_soak_test [--seconds=N]   (default 3)
#include "tarvo/msgchannel.h"

#include "support/child.h"
#include "support/ipc_keys.h"
#include "support/soak.h"

#include <chrono>
#include <memory>
#include <random>
#include <thread>

using namespace tarvo::test;

namespace
{

constexpr int kClients = 4;

// Counters every process of the run adds to; 32 bits wide, which every target
// updates atomically.
struct Tally {
    unsigned events, answers, leftBehind, wrong, clientsStarted;
};

auto count = [](unsigned &counter) { __atomic_add_fetch(&counter, 1, __ATOMIC_RELAXED); };

// The value an event of a command carries, and the answer to its query.
constexpr auto valueFor = [](int32_t command) { return command ^ 0x5a5a; };
constexpr auto answerTo = [](int32_t command) { return int32_t(uint32_t(command) * 3 + 1); };

// Serves until an inform of command -1; 1 when the channel fails.
int runServer(MsgChannel *owner, Tally *tally)
{
    for (MsgRecord &got = owner->record; msgWaitUser(owner, 1) > 0;) {
        int32_t command = got.command;
        if (command < 0)
            return 0;
        if (got.msgClass != MSG_CLASS_QUERY)
            count(got.kind == MSG_KIND_EVENT && got.data.event.value == valueFor(command)
                      ? tally->events
                      : tally->wrong);
        else if (msgAnswerVal(owner, command, answerTo(command)) != 0)
            return 1;
    }
    return 1;
}

// Events and queries until killed; 1 when the channel fails.
int runClient(int key, Tally *tally)
{
    MsgChannel *channel = msgInitial(key);
    // Commands that no client started near this one uses.
    const int32_t first =
        int32_t(__atomic_fetch_add(&tally->clientsStarted, 1, __ATOMIC_RELAXED) & 0xFFFF) << 15;
    for (int32_t command = first; channel; command = first | ((command + 1) & 0x7FFF)) {
        if (msgUserEvent(key, command, valueFor(command)) != 0 || msgQuery(channel, command) != 0)
            return 1;
        // As msgWaitAnswer, but until this query's answer comes.
        MsgRecord &answer = channel->record;
        do {
            answer.mtype = MSG_TO_CLIENT;
            if (msgRecv(channel, 1) < 0)
                return 1;
            bool right = answer.msgClass == MSG_CLASS_ANSWER &&
                         answer.data.value == answerTo(answer.command);
            count(!right                      ? tally->wrong
                  : answer.command == command ? tally->answers
                                              : tally->leftBehind);
        } while (answer.command != command);
        sfUnlock(channel->queryLock);
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return 1;
}

TEST(Soak, ClientsKilledAtRandomGetOnlyRightAnswers)
{
    IpcKeys keys;
    int key = keys.next();
    Tally *tally = sharedCounters<Tally>();
    ASSERT_NE(tally, nullptr);
    MsgChannel *owner = msgInitial(key);
    ASSERT_NE(owner, nullptr);
    unsigned limit = unsigned(soakSeconds) + 60;
    Child server([&] { return runServer(owner, tally); }, limit);
    auto start = [&] {
        return std::make_unique<Child>([=] { return runClient(key, tally); }, limit);
    };
    std::unique_ptr<Child> clients[kClients];
    for (auto &client : clients)
        client = start();

    std::mt19937 random(7);
    unsigned kills = kClients; // with the last ones
    auto end = std::chrono::steady_clock::now() + std::chrono::seconds(soakSeconds);
    for (; std::chrono::steady_clock::now() < end; kills++) {
        std::this_thread::sleep_for(std::chrono::milliseconds(random() % 200));
        auto &client = clients[1 + random() % (kClients - 1)];
        EXPECT_EQ(client->killAndWait(), 1000 + SIGKILL) << "a client that failed";
        client = start();
    }
    for (auto &client : clients)
        EXPECT_EQ(client->killAndWait(), 1000 + SIGKILL) << "a client that failed";
    EXPECT_EQ(msgInformVal(owner, -1, 0), 0);
    EXPECT_EQ(server.wait(), 0);
    msgRelease(owner);
    EXPECT_EQ(tally->wrong, 0u);
    EXPECT_TRUE(tally->events > 0 && tally->answers > 0);
    EXPECT_LE(tally->leftBehind, kills);
    printf("soak: %d s, %u events, %u answers, %u left behind by %u killed clients\n", soakSeconds,
           tally->events, tally->answers, tally->leftBehind, kills);
}

} // namespace

int main(int argc, char **argv)
{
    return runSoak(argc, argv);
}
