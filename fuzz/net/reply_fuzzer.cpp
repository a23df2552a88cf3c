// The FTP and e-mail reply reader on replies arriving in arbitrary pieces:
// "\" followed by another character separates the pieces of an input.
#include "pieces.h"

#include "net/connection.h"

#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static tarvo::net::NetConn conn{"ftp: ", 0, 0};
    FuzzedDataProvider input(data, size);
    tarvo::test::PacketFeed feed(takePieces(input));
    if (feed.ok()) {
        int code = tarvo::net::readReply(conn, feed.fd());
        if (code < -2 || code > 999)
            __builtin_trap();
    }
    return 0;
}
