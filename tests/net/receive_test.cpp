// The connection layer's readers fed piece by piece through socket pairs,
// each piece one receive: what each returns and leaves in the buffer.
#include "net/http_internal.h"
#include "support/packet_feed.h"

#include <gtest/gtest.h>

using namespace tarvo::net;

TEST(Receive, EachReaderOnPiecesAsTheyArrive)
{
    struct Case {
        char reader; // readReply, readResponse, recvHeader (capacity 63), recvLine (63, 8 or 0)
        std::vector<std::string> pieces;
        int result;
        const char *left = nullptr; // in the buffer, which held an HTTP request before
    };
    // clang-format off
    const Case cases[] = {
        {'r', {"220 ready\r\n"}, 220}, {'r', {"331\r\n"}, 331}, {'r', {"226 done"}, 226},
        {'r', {"220-a\r\n220-b\r\n220 c\r\n"}, 220}, {'r', {"230-a\r\n", "230-b\r\n", "230 c\r\n"}, 230},
        {'r', {"22", "0 rea", "dy\r\n"}, 220}, {'r', {"250-a\r\n250 ", "b\r\n"}, 250}, {'r', {"220-a\r\n", "220 b"}, 220},
        {'r', {"550 no\r\n250 yes\r\n"}, 250}, {'r', {}, -2}, {'r', {"220-a\r\n"}, -2}, {'r', {"331"}, -2},
        {'r', {"abc def\r\n"}, -2}, {'r', {"2x0 a\r\n", "220-b\r\n"}, -2}, {'r', {"2200 a\r\n"}, -2},
        {'l', {"220-", "first\r\n", "abcd"}, 11, "220-first\r\n"}, {'8', {"abcd", "efgh", "ij\r\n"}, 8, "abcdefgh"},
        {'0', {"abcd"}, 0, ""}, {'l', {}, 0, ""}, {'h', {"HTTP/1.1", " 200 OK\r\n"}, 8, "HTTP/1.1"}, // old empty line
        {'R', {"HTTP/1.1 200 OK\r\nContent-Length: 3\r\n\r\nok\n"}, 200, "200 OK"},
        {'R', {"HTTP/1.1 404 Not Found\r\nContent-Length: 10\r\n\r\n", "01234", "56789"}, 404, "404 Not Found"},
        {'R', {"HTTP/1.0 302", " Found\r\n", "X: y\r\n", "\r\n"}, 302, "302 Found"},
        {'R', {"HTTP/1.1   401 Unauthorized\r\nA: b\r\n\r\n"}, 401, "401 Unauthorized"},
        {'R', {"HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nshort"}, -1}, {'R', {}, -2},
        {'R', {"HTTP/1.1 200 OK\r\n"}, -2}, {'R', {"HTTP/1.1 200 OK\r\n\r\n"}, -3},
        {'R', {"HTTP/1.1 -5 Odd\r\nA: b\r\n\r\n"}, -5}, {'R', {"HTTP/1.1 4294967496 Odd\r\nA: b\r\n\r\n"}, -3},
        {'R', {"SSH-2.0 hello\r\nA: b\r\n\r\n"}, -3}, {'R', {std::string(600, 'h'), std::string(600, 'h')}, -3}};
    // clang-format on
    NetConn conn{"ftp: ", 0, 0};
    for (const Case &c : cases) {
        tarvo::test::PacketFeed feed(c.pieces);
        char buf[1028] = "GET / HTTP/1.1\r\nHost: h\r\n\r\n";
        int result = c.reader == 'r'   ? readReply(conn, feed.fd)
                     : c.reader == 'R' ? readResponse(conn, feed.fd, buf)
                     : c.reader == 'h'
                         ? recvHeader(conn, feed.fd, buf, 63)
                         : recvLine(conn, feed.fd, buf, c.reader == 'l' ? 63 : c.reader - '0');
        EXPECT_EQ(result, c.result) << &c - cases;
        EXPECT_STREQ(c.left ? buf : "", c.left ? c.left : "") << &c - cases;
    }
}
