#include "fan_out.h"

#include "owned_ring.h"
#include "reader_pool.h"
#include "ring_reader.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>
#include <vector>

namespace tarvo::bench
{

namespace
{

using Clock = std::chrono::steady_clock;

constexpr auto kRunTime = std::chrono::milliseconds(1500);

struct WriterRun {
    bool completed;
    uint64_t frames;
    double seconds;
};

// Calls sendFrame(number) with numbers 1, 2, ... for kRunTime or until it
// fails.
template <typename SendFrame> WriterRun runWriter(SendFrame &&sendFrame)
{
    Clock::time_point start = Clock::now();
    WriterRun run{true, 0, 0};
    Clock::duration elapsed;
    do {
        if (!sendFrame(uint32_t(run.frames + 1))) {
            run.completed = false;
            break;
        }
        run.frames++;
        elapsed = Clock::now() - start;
    } while (elapsed < kRunTime);
    run.seconds = std::chrono::duration<double>(Clock::now() - start).count();
    return run;
}

// Stops the readers and sums up what they got while the writer ran.
FanOut stopAndSummarise(ReaderPool &readers, const WriterRun &run, uint64_t dropped)
{
    FanOut result{};
    result.completed = readers.stopAndWait() && run.completed;
    result.writtenPerSecond = double(run.frames - dropped) / run.seconds;
    result.dropped = dropped;
    uint64_t slowest = UINT64_MAX, total = 0;
    for (int index = 0; index < kReaders; index++) {
        const ReaderTally &tally = readers.tally(index);
        slowest = std::min(slowest, tally.frames);
        total += tally.frames;
        result.faults += tally.faults;
    }
    result.slowestReaderPerSecond = double(slowest) / run.seconds;
    result.meanReaderPerSecond = double(total) / kReaders / run.seconds;
    return result;
}

// One socket pair per reader: the writer keeps end 0, the reader end 1.
class SocketFan
{
  public:
    SocketFan()
    {
        for (auto &pair : pairs_)
            if (socketpair(AF_UNIX, SOCK_STREAM, 0, pair.data()) != 0) pair = {-1, -1};
    }
    ~SocketFan()
    {
        closeWriterEnds();
        closeReaderEnds();
    }
    SocketFan(const SocketFan &) = delete;
    SocketFan &operator=(const SocketFan &) = delete;

    bool valid() const
    {
        return std::all_of(pairs_.begin(), pairs_.end(), [](auto &pair) { return pair[0] >= 0; });
    }
    int writerEnd(int index) const { return pairs_[index][0]; }
    int readerEnd(int index) const { return pairs_[index][1]; }

    // A reader must not hold a writer end, or it would never see the end of
    // its stream.
    void keepOnlyReaderEnd(int index)
    {
        closeWriterEnds();
        for (int other = 0; other < kReaders; other++)
            if (other != index) closeEnd(pairs_[other][1]);
    }
    void closeWriterEnds()
    {
        for (auto &pair : pairs_)
            closeEnd(pair[0]);
    }
    void closeReaderEnds()
    {
        for (auto &pair : pairs_)
            closeEnd(pair[1]);
    }

  private:
    static void closeEnd(int &fd)
    {
        if (fd >= 0) close(fd);
        fd = -1;
    }
    std::array<std::array<int, 2>, kReaders> pairs_;
};

bool writeWhole(int fd, const uint8_t *data, size_t length)
{
    while (length > 0) {
        ssize_t written = write(fd, data, length);
        if (written <= 0) return false;
        data += written;
        length -= size_t(written);
    }
    return true;
}

// False at the end of the stream.
bool readWhole(int fd, uint8_t *data, size_t length)
{
    while (length > 0) {
        ssize_t got = read(fd, data, length);
        if (got <= 0) return false;
        data += got;
        length -= size_t(got);
    }
    return true;
}

int readSocketFrames(int fd, uint32_t frameLength, ReaderLink &link)
{
    link.reportStart(true);
    std::vector<uint8_t> frame(frameLength);
    FrameCheck check(frameLength, FrameCheck::Order::EveryFrame, link.tally);
    while (readWhole(fd, frame.data(), frameLength))
        check.take(frame.data(), frameLength);
    return 0;
}

} // namespace

FanOut measureRingFanOut(int key, uint32_t frameLength)
{
    OwnedRing ring(key, frameLength);
    if (!ring.valid()) return {};
    ReaderPool readers;
    bool started = readers.start(
        [&](int, ReaderLink &link) { return readRingFrames(key, frameLength, link); });
    if (!started) return {};

    // A camera producer encodes straight into the cell it reserved, and
    // readers are not kept off the area lock meanwhile; the copy from
    // `encoded` stands in for the encoder.
    std::vector<uint8_t> encoded(frameLength, 0x5a);
    uint64_t dropped = 0;
    WriterRun run = runWriter([&](uint32_t number) {
        void *cell = rbLockWrite(ring.get(), frameLength);
        if (cell == RB_RELEASED) return false;
        if (cell == nullptr) {
            dropped++;
            return true;
        }
        std::memcpy(cell, encoded.data(), frameLength);
        stampFrame(static_cast<uint8_t *>(cell), frameLength, number);
        rbUnlockWrite(ring.get());
        return true;
    });
    return stopAndSummarise(readers, run, dropped);
}

FanOut measureSocketFanOut(uint32_t frameLength)
{
    SocketFan sockets;
    if (!sockets.valid()) return {};
    ReaderPool readers;
    bool started = readers.start([&](int index, ReaderLink &link) {
        sockets.keepOnlyReaderEnd(index);
        return readSocketFrames(sockets.readerEnd(index), frameLength, link);
    });
    sockets.closeReaderEnds();
    if (!started) return {};

    std::vector<uint8_t> encoded(frameLength, 0x5a);
    WriterRun run = runWriter([&](uint32_t number) {
        stampFrame(encoded.data(), frameLength, number);
        for (int index = 0; index < kReaders; index++)
            if (!writeWhole(sockets.writerEnd(index), encoded.data(), frameLength)) return false;
        return true;
    });
    sockets.closeWriterEnds();
    return stopAndSummarise(readers, run, 0);
}

} // namespace tarvo::bench
