// Demo pipeline: a producer process feeds numbered frames through streaming
// profile 1 at a camera's pace, and two consumer processes read them with
// pfRead, check every byte, and report frames per second and bytes verified.
//
//   tarvo_demo [--seconds=N] [--fps=N] [--frame-bytes=N]
#include "tarvo/profile.h"
#include "tarvo/ringbuf.h"

#include <sched.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr int kProfile = 1;
constexpr int kConsumers = 2;

struct Options {
    int seconds = 5;
    int framesPerSecond = 30;
    uint32_t frameBytes = 64 * 1024;
};

// Frame bytes derive from the frame number; the first four hold the number.
uint8_t patternByte(uint32_t number, uint32_t index)
{
    return uint8_t((number * 2654435761u + index * 40503u) >> 13);
}

void fillFrame(uint8_t *frame, uint32_t number, uint32_t length)
{
    std::memcpy(frame, &number, 4);
    for (uint32_t i = 4; i < length; i++)
        frame[i] = patternByte(number, i);
}

bool frameIsIntact(const uint8_t *frame, uint32_t length)
{
    uint32_t number;
    std::memcpy(&number, frame, 4);
    for (uint32_t i = 4; i < length; i++)
        if (frame[i] != patternByte(number, i))
            return false;
    return true;
}

double secondsSince(const timespec &start)
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return double(now.tv_sec - start.tv_sec) + double(now.tv_nsec - start.tv_nsec) / 1e9;
}

// Reads until the producer releases the profile; prints once a second.
int consume(int index)
{
    ProfileStream *stream = pfOpen(kProfile);
    if (stream == nullptr)
        return 1;
    timespec start;
    clock_gettime(CLOCK_MONOTONIC, &start);
    unsigned long long verified = 0, corrupt = 0, framesThisSecond = 0;
    int reported = 0;
    for (;;) {
        int length = pfRead(stream);
        if (stream->payload == RB_RELEASED)
            break;
        if (stream->payload != nullptr) {
            if (frameIsIntact(static_cast<const uint8_t *>(stream->payload), uint32_t(length))) {
                verified += uint32_t(length);
                framesThisSecond++;
            } else {
                corrupt++;
            }
        }
        if (secondsSince(start) >= reported + 1) {
            reported++;
            printf("consumer %d: %llu frames/s, %llu bytes verified, %llu corrupt\n", index,
                   framesThisSecond, verified, corrupt);
            fflush(stdout);
            framesThisSecond = 0;
        }
    }
    printf("consumer %d: done, %d frames read, %llu bytes verified, %llu corrupt\n", index,
           stream->frames - 1, verified, corrupt);
    fflush(stdout);
    pfClose(stream);
    return corrupt == 0 ? 0 : 2;
}

// Writes frames at the given pace, alternating in-place and copied writes.
int produce(RingBuffer *ring, const Options &options)
{
    uint8_t *scratch = static_cast<uint8_t *>(malloc(options.frameBytes));
    if (scratch == nullptr)
        return 1;
    timespec next, start;
    clock_gettime(CLOCK_MONOTONIC, &start);
    next = start;
    long periodNs = 1000000000L / options.framesPerSecond;
    uint32_t number = 1;
    unsigned long long dropped = 0;
    while (secondsSince(start) < options.seconds) {
        uint32_t length = options.frameBytes - (number * 7919) % (options.frameBytes / 4);
        if (number % 2) {
            void *payload = rbLockWrite(ring, length);
            if (payload != nullptr && payload != RB_RELEASED) {
                fillFrame(static_cast<uint8_t *>(payload), number++, length);
                rbUnlockWrite(ring);
            } else {
                dropped++;
            }
        } else {
            fillFrame(scratch, number, length);
            rbSafeWrite(ring, scratch, length) == 1 ? number++ : dropped++;
        }
        next.tv_nsec += periodNs;
        if (next.tv_nsec >= 1000000000L) {
            next.tv_sec++;
            next.tv_nsec -= 1000000000L;
        }
        clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &next, nullptr);
    }
    printf("producer: %u frames written in %d s, %llu dropped\n", number - 1, options.seconds,
           dropped);
    free(scratch);
    return 0;
}

Options parse(int argc, char **argv)
{
    Options options;
    for (int i = 1; i < argc; i++) {
        if (std::strncmp(argv[i], "--seconds=", 10) == 0)
            options.seconds = atoi(argv[i] + 10);
        else if (std::strncmp(argv[i], "--fps=", 6) == 0)
            options.framesPerSecond = atoi(argv[i] + 6);
        else if (std::strncmp(argv[i], "--frame-bytes=", 14) == 0)
            options.frameBytes = uint32_t(atoi(argv[i] + 14));
    }
    if (options.seconds < 1)
        options.seconds = 1;
    if (options.framesPerSecond < 1)
        options.framesPerSecond = 1;
    if (options.frameBytes < 64)
        options.frameBytes = 64;
    return options;
}

} // namespace

int main(int argc, char **argv)
{
    Options options = parse(argc, argv);
    printf("demo: profile %d, %d s at %d frames/s of up to %u bytes, %d consumers\n", kProfile,
           options.seconds, options.framesPerSecond, options.frameBytes, kConsumers);
    RingBuffer *ring =
        rbInitial(pfGetPKey(kProfile), "Profile01", int(options.frameBytes), 16, 0);
    if (ring == nullptr)
        return 1;
    pid_t consumers[kConsumers];
    for (int i = 0; i < kConsumers; i++) {
        fflush(stdout);
        consumers[i] = fork();
        if (consumers[i] == 0)
            _exit(consume(i + 1));
    }
    int result = produce(ring, options);
    fflush(stdout);
    // A consumer may take a lock again before it notices the release; the
    // release then goes on where it stopped.
    int attempts = 1;
    while (rbRelease(ring) != 0 && attempts++ < 100)
        sched_yield();
    if (attempts > 100)
        result = 1;
    for (pid_t consumer : consumers) {
        int status = 0;
        waitpid(consumer, &status, 0);
        if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
            result = 1;
    }
    printf("demo: %s\n", result == 0 ? "every frame intact" : "FAILED");
    return result;
}
