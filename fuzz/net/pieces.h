// Splits a fuzzer's input into the pieces a peer sends, each arriving as
// one read, at most as many as a socket pair queues.
#ifndef TARVO_FUZZ_NET_PIECES_H
#define TARVO_FUZZ_NET_PIECES_H

#include "support/packet_feed.h"

#include <fuzzer/FuzzedDataProvider.h>

#include <string>
#include <vector>

inline std::vector<std::string> takePieces(FuzzedDataProvider &input)
{
    std::vector<std::string> pieces;
    while (input.remaining_bytes() > 0 && pieces.size() < tarvo::test::PacketFeed::kMaxPieces)
        pieces.push_back(input.ConsumeRandomLengthString(2048));
    return pieces;
}

#endif
