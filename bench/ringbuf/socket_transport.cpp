#include "transport.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <vector>

namespace tarvo::bench
{

namespace
{

bool writeWhole(int fd, const uint8_t *data, size_t length)
{
    while (length > 0) {
        ssize_t written = write(fd, data, length);
        if (written <= 0)
            return false;
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
        if (got <= 0)
            return false;
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
    while (readWhole(fd, frame.data(), frameLength) && !link.stopRequested())
        check.take(frame.data(), frameLength);
    return 0;
}

// One socket pair per reader: the writer keeps end 0, the reader end 1.
class SocketTransport final : public Transport
{
  public:
    explicit SocketTransport(uint32_t frameLength)
        : frameLength_(frameLength), frame_(frameLength), encoded_(frameLength, 0x5a)
    {
        for (auto &pair : pairs_)
            if (socketpair(AF_UNIX, SOCK_STREAM, 0, pair.data()) != 0)
                pair = {-1, -1};
    }
    ~SocketTransport() override
    {
        closeWriterEnds();
        closeReaderEnds();
    }

    bool start() override
    {
        if (!std::all_of(pairs_.begin(), pairs_.end(), [](auto &pair) { return pair[0] >= 0; }))
            return false;
        bool started = readers_.start([&](int index, ReaderLink &link) {
            keepOnlyReaderEnd(index);
            return readSocketFrames(pairs_[index][1], frameLength_, link);
        });
        closeReaderEnds();
        return started;
    }

    // The copy from `encoded_` stands in for the encoder writing the frame,
    // as it does into the ring's cell.
    bool prepare(uint32_t number) override
    {
        std::memcpy(frame_.data(), encoded_.data(), frameLength_);
        stampFrame(frame_.data(), frameLength_, number);
        return true;
    }

    bool publish() override
    {
        for (auto &pair : pairs_)
            if (!writeWhole(pair[0], frame_.data(), frameLength_))
                return false;
        return true;
    }

    // Readers waiting in read see the end of their stream.
    bool stop() override
    {
        return readers_.stopAndWait([&] { closeWriterEnds(); });
    }

    uint64_t dropped() const override { return 0; }
    const ReaderPool &readers() const override { return readers_; }

  private:
    // A reader must not hold a writer end, or it would never see the end of
    // its stream.
    void keepOnlyReaderEnd(int index)
    {
        closeWriterEnds();
        for (int other = 0; other < kReaders; other++)
            if (other != index)
                closeEnd(pairs_[other][1]);
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
    static void closeEnd(int &fd)
    {
        if (fd >= 0)
            close(fd);
        fd = -1;
    }

    uint32_t frameLength_;
    std::vector<uint8_t> frame_;
    std::vector<uint8_t> encoded_;
    std::array<std::array<int, 2>, kReaders> pairs_;
    ReaderPool readers_;
};

} // namespace

std::unique_ptr<Transport> makeSocketTransport(uint32_t frameLength)
{
    return std::make_unique<SocketTransport>(frameLength);
}

} // namespace tarvo::bench
