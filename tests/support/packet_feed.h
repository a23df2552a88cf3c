// Feeds a reader that takes a socket: a socket pair whose far end already
// holds the given pieces as separate records (SOCK_SEQPACKET), so that each
// recv() on the near end returns exactly one piece however fast the reader
// is.  The far end is closed behind the pieces, so a read past the last one
// finds the peer gone.  Empty pieces are left out (an empty record would
// read as the peer closing).  A pair queues about ten records on Linux.
#ifndef TARVO_TESTS_PACKET_FEED_H
#define TARVO_TESTS_PACKET_FEED_H

#include <string>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

namespace tarvo::test
{

class PacketFeed
{
  public:
    static constexpr size_t kMaxPieces = 10;

    explicit PacketFeed(const std::vector<std::string> &pieces)
    {
        int ends[2];
        if (pieces.size() > kMaxPieces || socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends) != 0)
            return;
        near_ = ends[0];
        for (const std::string &piece : pieces)
            if (!piece.empty() &&
                send(ends[1], piece.data(), piece.size(), MSG_DONTWAIT) != ssize_t(piece.size()))
                queued_ = false;
        close(ends[1]);
    }
    ~PacketFeed()
    {
        if (near_ >= 0)
            close(near_);
    }
    PacketFeed(const PacketFeed &) = delete;
    PacketFeed &operator=(const PacketFeed &) = delete;

    // False when the pair could not be made or a piece did not fit.
    bool ok() const { return near_ >= 0 && queued_; }
    int fd() const { return near_; }

  private:
    int near_ = -1;
    bool queued_ = true;
};

} // namespace tarvo::test

#endif
