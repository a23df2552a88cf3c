// The HTTP response reader on a buffer that held a request (the input's
// first piece) and a response arriving in arbitrary pieces (the rest);
// "\" followed by another character separates the pieces.
#include "pieces.h"

#include "net/http_internal.h"

#include <cstdint>
#include <cstring>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static tarvo::net::NetConn conn{"hnotify: ", 0, 0};
    FuzzedDataProvider input(data, size);
    // The record's buffer: 1028 bytes, of which the reader uses 1024 + 1.
    char buf[1028];
    std::string request = input.ConsumeRandomLengthString(sizeof buf - 1);
    memcpy(buf, request.c_str(), request.size() + 1);
    tarvo::test::PacketFeed feed(takePieces(input));
    if (feed.ok()) {
        if (tarvo::net::readResponse(conn, feed.fd(), buf) < -3)
            __builtin_trap();
    }
    return 0;
}
