// Soak: one writer mixing both write styles, eight readers mixing the three
// ways of reading, readers killed at random moments and replaced.  Every
// frame a reader gets must be intact and carry its cell's number, and the
// writer must keep writing; every process has an alarm, so a deadlock fails.
//
//   ringbuf_soak_test [--seconds=N]   (default 3)
#include "tarvo/profile.h"
#include "tarvo/ringbuf.h"

#include "support/child.h"
#include "support/frames.h"
#include "support/ipc_keys.h"

#include <gtest/gtest.h>

#include <sys/mman.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <thread>

using namespace tarvo::test;
using Clock = std::chrono::steady_clock;

namespace
{

int soakSeconds = 3;

constexpr int kReaders = 8;
constexpr int kCellSize = 64 * 1024;
constexpr int kCellCount = 48;
constexpr uint32_t kLongestFrame = 20000;

// Counters every process of the run writes into; shared, anonymous memory.
struct Tally {
    uint64_t written, dropped;
    struct Reader {
        uint64_t frames, corrupt;
    } readers[kReaders];
    int stop;
};

bool stopRequested(const Tally *tally)
{
    return __atomic_load_n(&tally->stop, __ATOMIC_ACQUIRE) != 0;
}

int runWriter(int key, Tally *tally, Signal &created)
{
    RingBuffer *ring = rbInitial(key, "soak", kCellSize, kCellCount, 0);
    if (ring == nullptr)
        return 1;
    created.raise();
    std::mt19937 random(1);
    std::vector<uint8_t> frame(kLongestFrame);
    while (!stopRequested(tally)) {
        uint32_t number = uint32_t(tally->written + 1);
        uint32_t length = 8 + random() % (kLongestFrame - 8);
        bool written;
        if (random() % 2) {
            fillFrame(frame.data(), number, length);
            written = rbSafeWrite(ring, frame.data(), length) == 1;
        } else if (void *payload = rbLockWrite(ring, length); payload && payload != RB_RELEASED) {
            fillFrame(static_cast<uint8_t *>(payload), number, length);
            rbUnlockWrite(ring);
            written = true;
        } else {
            written = false;
        }
        written ? tally->written++ : tally->dropped++;
        timespec pace{0, 200000};
        nanosleep(&pace, nullptr);
    }
    // A reader may take a lock again before it notices the release; the
    // release then goes on where it stopped.
    for (int attempt = 0; attempt < 100; attempt++) {
        if (rbRelease(ring) == 0)
            return 0;
        sched_yield();
    }
    return 2;
}

// Checks one received frame against its cell.
void check(RingBuffer *ring, const void *payload, Tally::Reader &me)
{
    uint32_t length = rbGetCellLength(ring);
    bool intact = frameIsIntact(payload, length) && frameNumber(payload) == rbGetCellSeq(ring);
    intact ? me.frames++ : me.corrupt++;
}

int runRingReader(int key, const Tally *tally, Tally::Reader &me, bool bySequence, unsigned seed)
{
    RingBuffer *ring = rbAttach(key, "soak reader");
    if (ring == nullptr)
        return stopRequested(tally) ? 0 : 1;
    std::mt19937 random(seed);
    uint32_t last = 0;
    for (;;) {
        int wanted = bySequence && random() % 4 ? int(last + 1 + random() % 3) : 0;
        // A numbered read from a parked place keeps that place counted; a
        // careful reader leaves it first.
        if (wanted != 0)
            rbSyncNewest(ring);
        void *payload = bySequence ? rbLockReadSync(ring, wanted) : rbLockRead(ring);
        if (payload == RB_RELEASED)
            break;
        if (payload == nullptr) {
            sched_yield();
            continue;
        }
        check(ring, payload, me);
        last = rbGetCellSeq(ring);
        rbUnlockRead(ring);
    }
    rbDetach(ring);
    return 0;
}

int runProfileReader(int profile, const Tally *tally, Tally::Reader &me)
{
    ProfileStream *stream = pfOpen(profile);
    if (stream == nullptr)
        return stopRequested(tally) ? 0 : 1;
    for (;;) {
        pfRead(stream);
        if (stream->payload == RB_RELEASED)
            break;
        if (stream->payload != nullptr)
            check(stream->ring, stream->payload, me);
    }
    pfClose(stream);
    return 0;
}

std::unique_ptr<Child> startReader(int profile, Tally *tally, int slot, unsigned seed)
{
    return std::make_unique<Child>(
        [=] {
            Tally::Reader &me = tally->readers[slot];
            switch (slot % 3) {
            case 0:
                return runRingReader(pfGetPKey(profile), tally, me, false, seed);
            case 1:
                return runRingReader(pfGetPKey(profile), tally, me, true, seed);
            default:
                return runProfileReader(profile, tally, me);
            }
        },
        unsigned(soakSeconds) + 60);
}

TEST(Soak, ReadersSurviveKillsAndSeeOnlyIntactFrames)
{
    IpcKeys keys;
    int profile = keys.profileNumber();
    auto *tally = static_cast<Tally *>(
        mmap(nullptr, sizeof(Tally), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(tally, MAP_FAILED);
    std::memset(tally, 0, sizeof *tally);

    Signal created;
    Child writer([&] { return runWriter(pfGetPKey(profile), tally, created); },
                 unsigned(soakSeconds) + 60);
    ASSERT_EQ(created.await(), '!');
    std::unique_ptr<Child> readers[kReaders];
    for (int slot = 0; slot < kReaders; slot++)
        readers[slot] = startReader(profile, tally, slot, unsigned(slot));

    // About twenty kills per run whatever its length, so that the cells the
    // killed readers keep held stay well below what the ring can lose.
    std::mt19937 random(7);
    auto end = Clock::now() + std::chrono::seconds(soakSeconds);
    auto interval = std::chrono::milliseconds(soakSeconds * 1000 / 20);
    int kills = 0;
    while (Clock::now() < end) {
        std::this_thread::sleep_for(interval);
        int slot = int(random() % kReaders);
        readers[slot]->killAndWait();
        readers[slot] = startReader(profile, tally, slot, unsigned(100 + kills++));
    }
    __atomic_store_n(&tally->stop, 1, __ATOMIC_RELEASE);
    EXPECT_EQ(writer.wait(), 0);
    uint64_t frames = 0;
    for (int slot = 0; slot < kReaders; slot++) {
        EXPECT_EQ(readers[slot]->wait(), 0) << "reader " << slot;
        const Tally::Reader &reader = tally->readers[slot];
        EXPECT_EQ(reader.corrupt, 0u) << "reader " << slot;
        frames += reader.frames;
    }
    EXPECT_GT(tally->written, 0u);
    EXPECT_LE(tally->dropped, tally->written / 100);
    EXPECT_GT(frames, 0u);
    printf("soak: %d s, %llu frames written, %llu dropped, %llu read, %d readers killed\n",
           soakSeconds, (unsigned long long)tally->written, (unsigned long long)tally->dropped,
           (unsigned long long)frames, kills);
    munmap(tally, sizeof *tally);
}

} // namespace

int main(int argc, char **argv)
{
    ::testing::InitGoogleTest(&argc, argv);
    for (int i = 1; i < argc; i++)
        if (std::strncmp(argv[i], "--seconds=", 10) == 0)
            soakSeconds = std::max(1, std::atoi(argv[i] + 10));
    return RUN_ALL_TESTS();
}
