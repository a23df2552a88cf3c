// The FTP and e-mail reply reader on replies arriving in arbitrary pieces:
// "\" followed by another character separates the pieces of an input.
#include "net/connection.h"
#include "support/packet_feed.h"

#include <fuzzer/FuzzedDataProvider.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static tarvo::net::NetConn conn{"ftp: ", 0, 0};
    FuzzedDataProvider input(data, size);
    tarvo::test::PacketFeed feed(tarvo::test::takePieces(input));
    if (int code = feed.fd < 0 ? 0 : tarvo::net::readReply(conn, feed.fd); code < -2 || code > 999)
        __builtin_trap();
    return 0;
}
