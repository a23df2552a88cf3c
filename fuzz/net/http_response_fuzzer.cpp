// The HTTP response reader on a buffer that held a request (the input's
// first piece) and a response arriving in arbitrary pieces (the rest):
// "\" followed by another character separates the pieces.
#include "net/http_internal.h"
#include "support/packet_feed.h"

#include <cstring>
#include <fuzzer/FuzzedDataProvider.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static tarvo::net::NetConn conn{"hnotify: ", 0, 0};
    FuzzedDataProvider input(data, size);
    char buf[1028]; // the record's buffer, of which the reader uses 1024 + 1
    std::string request = input.ConsumeRandomLengthString(sizeof buf - 1);
    memcpy(buf, request.c_str(), request.size() + 1);
    tarvo::test::PacketFeed feed(tarvo::test::takePieces(input));
    if (feed.fd >= 0 && tarvo::net::readResponse(conn, feed.fd, buf) < -3)
        __builtin_trap();
    return 0;
}
