// Soak: one writer mixing both write styles, eight readers mixing the three
// ways of reading, readers killed at random moments and replaced.  Every
// frame a reader gets must be intact and carry its cell's number, and the
// writer must keep writing; every process has an alarm, so a deadlock fails.
//
//   ringbuf_soak_test [--seconds=N]   (default 3)
#include "tarvo/profile.h"

#include "support/child.h"
#include "support/frames.h"
#include "support/ipc_keys.h"
#include "support/soak.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <random>
#include <thread>

using namespace tarvo::test;

namespace
{

constexpr int kReaders = 8;

// Counters every process of the run writes into.
struct Tally {
    uint64_t written, dropped, frames[kReaders], corrupt[kReaders];
    int stop;
};

int runWriter(int key, Tally *tally, Signal &created)
{
    RingBuffer *ring = rbInitial(key, "soak", 64 * 1024, 48, 0);
    created.raise();
    std::mt19937 random(1);
    while (!__atomic_load_n(&tally->stop, __ATOMIC_ACQUIRE)) {
        uint32_t length = 8 + random() % 20000;
        bool inPlace = random() % 2;
        int result = writeFrame(ring, uint32_t(tally->written + 1), length, inPlace);
        result == 1 ? tally->written++ : tally->dropped++;
        timespec pace{0, 200000};
        nanosleep(&pace, nullptr);
    }
    // A reader may take a lock again before it notices the release; the
    // release then goes on where it stopped.
    for (int attempt = 0; attempt < 100; attempt++, sched_yield())
        if (rbRelease(ring) == 0)
            return 0;
    return 2;
}

// Reads until the release by rbLockRead (way 0), by number (way 1: one of
// the next few numbers, now and then 0) or as a profile (way 2).
int runReader(int profile, Tally *tally, int slot, unsigned seed)
{
    ProfileStream *stream = slot % 3 == 2 ? pfOpen(profile) : nullptr;
    RingBuffer *ring = slot % 3 != 2 ? rbAttach(pfGetPKey(profile), "soak reader")
                       : stream      ? stream->ring
                                     : nullptr;
    if (ring == nullptr) // started after the release
        return __atomic_load_n(&tally->stop, __ATOMIC_ACQUIRE) ? 0 : 1;
    std::mt19937 random(seed);
    for (uint32_t last = 0;;) {
        int wanted = slot % 3 == 1 && random() % 4 ? int(last + 1 + random() % 3) : 0;
        if (wanted != 0)
            rbSyncNewest(ring); // a numbered read keeps a parked place counted
        if (stream)
            pfRead(stream);
        void *payload = stream     ? stream->payload
                        : slot % 3 ? rbLockReadSync(ring, wanted)
                                   : rbLockRead(ring);
        if (payload == RB_RELEASED)
            break;
        if (payload == nullptr) {
            sched_yield();
            continue;
        }
        heldFrameIsIntact(ring, payload) ? tally->frames[slot]++ : tally->corrupt[slot]++;
        last = rbGetCellSeq(ring);
        if (!stream)
            rbUnlockRead(ring);
    }
    stream ? pfClose(stream) : void(rbDetach(ring));
    return 0;
}

TEST(Soak, ReadersSurviveKillsAndSeeOnlyIntactFrames)
{
    IpcKeys keys;
    int profile = keys.profileNumber();
    Tally *tally = sharedCounters<Tally>();
    ASSERT_NE(tally, nullptr);
    unsigned limit = unsigned(soakSeconds) + 60;
    Signal created;
    Child writer([&] { return runWriter(pfGetPKey(profile), tally, created); }, limit);
    ASSERT_EQ(created.await(), '!');
    auto start = [&](int slot, unsigned seed) {
        return std::make_unique<Child>([=] { return runReader(profile, tally, slot, seed); },
                                       limit);
    };
    std::unique_ptr<Child> readers[kReaders];
    for (int slot = 0; slot < kReaders; slot++)
        readers[slot] = start(slot, unsigned(slot));

    // About twenty kills per run whatever its length, so that the cells the
    // killed readers keep held stay well below what the ring can lose.
    std::mt19937 random(7);
    auto end = std::chrono::steady_clock::now() + std::chrono::seconds(soakSeconds);
    for (unsigned kills = 0; std::chrono::steady_clock::now() < end; kills++) {
        std::this_thread::sleep_for(std::chrono::milliseconds(soakSeconds * 1000 / 20));
        int slot = int(random() % kReaders);
        readers[slot]->killAndWait();
        readers[slot] = start(slot, 100 + kills);
    }
    __atomic_store_n(&tally->stop, 1, __ATOMIC_RELEASE);
    EXPECT_EQ(writer.wait(), 0);
    uint64_t frames = 0;
    for (int slot = 0; slot < kReaders; slot++) {
        EXPECT_EQ(readers[slot]->wait(), 0) << "reader " << slot;
        EXPECT_EQ(tally->corrupt[slot], 0u) << "reader " << slot;
        frames += tally->frames[slot];
    }
    EXPECT_GT(frames, 0u);
    EXPECT_LE(tally->dropped, tally->written / 100);
    printf("soak: %d s, %llu frames written, %llu dropped, %llu read\n", soakSeconds,
           (unsigned long long)tally->written, (unsigned long long)tally->dropped,
           (unsigned long long)frames);
}

} // namespace

int main(int argc, char **argv)
{
    return runSoak(argc, argv);
}
