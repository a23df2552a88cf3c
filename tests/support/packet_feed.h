// Feeds a reader that takes a socket: the far end of a SOCK_SEQPACKET pair
// already holds the pieces as separate records (so each recv() returns
// exactly one piece) and is closed behind them.  Empty pieces are left out
// (they would read as the peer closing); a pair queues about ten records.
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
            if (!piece.empty())
                send(ends[1], piece.data(), piece.size(), MSG_DONTWAIT);
        close(ends[1]);
    }
    ~PacketFeed() { close(near_); }
    bool ok() const { return near_ >= 0; }
    int fd() const { return near_; }

  private:
    int near_ = -1;
};

} // namespace tarvo::test

#endif
