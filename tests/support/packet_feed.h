// Feeds a reader that takes a socket: the far end of a SOCK_SEQPACKET pair
// holds the pieces as separate records (each recv() returns exactly one)
// and is shut for writing behind them, while what the reader sends queues
// there unread.  Empty pieces are left out (they would read as the peer
// closing).
#pragma once

#include <string>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

namespace tarvo::test
{

struct PacketFeed {
    static constexpr size_t kMaxPieces = 24;

    explicit PacketFeed(const std::vector<std::string> &pieces)
    {
        int ends[2];
        if (pieces.size() > kMaxPieces || socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends) != 0)
            return;
        fd = ends[0], peer = ends[1];
        for (const std::string &piece : pieces)
            if (!piece.empty())
                send(peer, piece.data(), piece.size(), MSG_DONTWAIT);
        shutdown(peer, SHUT_WR);
    }
    ~PacketFeed() { close(fd), close(peer); }
    int fd = -1, peer = -1;
};

// A fuzzer's input (a FuzzedDataProvider) as the pieces of a feed.
template <typename Provider> std::vector<std::string> takePieces(Provider &input)
{
    std::vector<std::string> pieces;
    while (input.remaining_bytes() > 0 && pieces.size() < PacketFeed::kMaxPieces)
        pieces.push_back(input.ConsumeRandomLengthString(2048));
    return pieces;
}

} // namespace tarvo::test
