// The connection layer under the clients: the reply reader, the bounded
// receives, complete sends, connect and close with their trace lines, and
// the HTTP response reader, fed piece by piece through socket pairs.
#include "net/connection.h"
#include "net/http_internal.h"

#include "loopback_port.h"

#include "support/capture.h"
#include "support/packet_feed.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstring>
#include <string>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

using namespace tarvo::net;
using namespace tarvo::test;

namespace
{

using Pieces = std::vector<std::string>;

TEST(ReadReply, FindsTheFinalLineAcrossPiecesAndReads)
{
    struct Case {
        const char *what;
        Pieces pieces;
        int code;
    };
    const std::vector<Case> cases = {
        {"one line", {"220 ready\r\n"}, 220},
        {"bare code", {"331\r\n"}, 331},
        {"continuation lines in one read", {"220-a\r\n220-b\r\n220 c\r\n"}, 220},
        {"continuation lines in separate reads", {"230-a\r\n", "230-b\r\n", "230 c\r\n"}, 230},
        {"code cut between reads", {"22", "0 rea", "dy\r\n"}, 220},
        {"reply cut after a continuation line", {"250-a\r\n250 ", "b\r\n"}, 250},
        {"missing CR LF before the peer closes", {"226 done"}, 226},
        {"missing CR LF after continuation lines", {"220-a\r\n", "220 b"}, 220},
        {"last line decides", {"550 no\r\n250 yes\r\n"}, 250},
        {"nothing at all", {}, -2},
        {"only a continuation line", {"220-a\r\n"}, -2},
        {"three bytes and the end", {"331"}, -2},
        {"no digits", {"abc def\r\n"}, -2},
        {"neither a code nor a final line", {"2x0 a\r\n", "220-b\r\n"}, -2},
        {"four digits", {"2200 a\r\n"}, -2},
    };
    NetConn conn{"ftp: ", 0, 0};
    for (const Case &c : cases) {
        PacketFeed feed(c.pieces);
        ASSERT_TRUE(feed.ok()) << c.what;
        EXPECT_EQ(readReply(conn, feed.fd()), c.code) << c.what;
    }
}

TEST(Receive, StopsAtTheFirstLineEndEvenMidReply)
{
    NetConn conn{"ftp: ", 0, 0};
    PacketFeed feed({"220-", "first\r\n", "220 second\r\n"});
    char buffer[64];
    EXPECT_EQ(recvLine(conn, feed.fd(), buffer, 63), 11);
    EXPECT_STREQ(buffer, "220-first\r\n");
    EXPECT_EQ(recvLine(conn, feed.fd(), buffer, 63), 12);
    EXPECT_EQ(recvLine(conn, feed.fd(), buffer, 63), 0) << "the peer closed";
    EXPECT_STREQ(buffer, "");
}

TEST(Receive, StopsWhenTheCapacityIsUsed)
{
    NetConn conn{"ftp: ", 0, 0};
    PacketFeed feed({"abcd", "efgh", "ij\r\n"});
    char buffer[9];
    EXPECT_EQ(recvLine(conn, feed.fd(), buffer, 8), 8);
    EXPECT_STREQ(buffer, "abcdefgh");
    EXPECT_EQ(recvLine(conn, feed.fd(), buffer, 0), 0);
}

TEST(Receive, HeaderStopsAtAnEmptyLineLeftInTheBuffer)
{
    NetConn conn{"hnotify: ", 0, 0};
    PacketFeed feed({"HTTP/1.1", " 200 OK\r\n"});
    char buffer[64] = "GET / HTTP/1.1\r\nHost: h\r\n\r\n";
    EXPECT_EQ(recvHeader(conn, feed.fd(), buffer, 63), 8) << "old text after the new counts";
    EXPECT_STREQ(buffer, "HTTP/1.1");
    char fresh[64] = {};
    PacketFeed again({"HTTP/1.1", " 200 OK\r\n"});
    EXPECT_EQ(recvHeader(conn, again.fd(), fresh, 63), 17);
}

TEST(Receive, ForceStopFailsEveryReceiveAndSend)
{
    NetConn conn{"email: ", 0, 1};
    PacketFeed feed({"220 ready\r\n"});
    char buffer[64];
    EXPECT_EQ(recvLine(conn, feed.fd(), buffer, 63), -1);
    EXPECT_EQ(readReply(conn, feed.fd()), -1);
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    EXPECT_EQ(netSend(conn, ends[0], "quit\r\n", 6, SendMode::Text), 6);
    EXPECT_EQ(sendCommand(conn, ends[0], "quit\r\n"), -1);
    EXPECT_EQ(recv(ends[1], buffer, sizeof buffer, MSG_DONTWAIT), -1) << "nothing was sent";
    close(ends[0]);
    close(ends[1]);
}

TEST(Send, SendsAllOrReportsWhatFailed)
{
    signal(SIGPIPE, SIG_IGN);
    NetConn conn{"hnotify: ", 1, 0};
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    std::string text;
    std::string out = captureStdout([&] {
        EXPECT_EQ(netSend(conn, ends[0], "", 0, SendMode::Text), 0);
        EXPECT_EQ(netSend(conn, ends[0], "GET /\r\n", 7, SendMode::Text), 0);
        EXPECT_EQ(netSend(conn, ends[0], "\x01\x02", 2, SendMode::Binary), 0);
        EXPECT_EQ(netSend(conn, ends[0], "abc", 3, SendMode::Silent), 0);
        char chunk[64];
        text.assign(chunk, size_t(recv(ends[1], chunk, sizeof chunk, 0)));
        close(ends[1]);
        EXPECT_EQ(netSend(conn, ends[0], "lost", 4, SendMode::Silent), -1);
    });
    EXPECT_EQ(text, "GET /\r\n\x01\x02"
                    "abc");
    EXPECT_EQ(out, "hnotify: http send text data: 0 bytes\n\n"
                   "hnotify: http send text data: 7 bytes\nGET /\r\n\n"
                   "hnotify: http send binary data: 2 bytes\n"
                   "hnotify: http send fail at 4!\n");
    close(ends[0]);
}

struct Host {
    int family;
    const char *name;
    const char *kind;
};
const Host kHosts[] = {
    {AF_INET, "127.0.0.1", "ipv4"}, {AF_INET6, "::1", "ipv6"}, {AF_INET, "localhost", "ipv4"}};

TEST(Connect, TracesTheFamilyAndFailures)
{
    NetConn conn{"ftp: ", 1, 0};
    for (const Host &host : kHosts) {
        LoopbackPort closed(host.family, false);
        ASSERT_GT(closed.port(), 0);
        std::string out = captureStdout(
            [&] { EXPECT_EQ(netConnect(conn, host.name, closed.port()), -1) << host.name; });
        EXPECT_EQ(out, std::string("ftp: http connect ") + host.kind + ": " + host.name + ": " +
                           std::to_string(closed.port()) + "\nftp: http connect fail!\n");
    }
    std::string out = captureStdout([&] { EXPECT_EQ(netConnect(conn, nullptr, 21), -1); });
    EXPECT_EQ(out, "ftp: http connect fail!\n");
}

TEST(Connect, ReachesListenersInBothFamiliesAndCloses)
{
    NetConn conn{"email: ", 1, 0};
    for (const Host &host : kHosts) {
        LoopbackPort listening(host.family, true);
        int sock = -1;
        std::string out = captureStdout([&] {
            sock = netConnect(conn, host.name, listening.port());
            EXPECT_GE(sock, 0) << host.name;
            EXPECT_EQ(netClose(conn, sock), 0);
            EXPECT_EQ(netClose(conn, -1), 0);
        });
        EXPECT_EQ(out, std::string("email: http connect ") + host.kind + ": " + host.name + ": " +
                           std::to_string(listening.port()) + "\nemail: http close!\n");
    }
}

TEST(Connect, QuietWithoutDebug)
{
    NetConn conn{"hnotify: ", 0, 0};
    LoopbackPort listening(AF_INET, true), closed(AF_INET, false);
    std::string out = captureStdout([&] {
        int32_t sock = netConnect(conn, "127.0.0.1", listening.port());
        EXPECT_GE(sock, 0);
        EXPECT_EQ(netSend(conn, sock, "x", 1, SendMode::Text), 0);
        closeConnection(conn, sock);
        EXPECT_EQ(sock, -1);
        EXPECT_EQ(netConnect(conn, "127.0.0.1", closed.port()), -1);
    });
    EXPECT_EQ(out, "");
}

TEST(ResponseReader, StatusAndStatusTextOrWhyNot)
{
    struct Case {
        const char *what;
        Pieces pieces;
        int status;
        const char *text;
    };
    const std::vector<Case> cases = {
        {"body in the header's piece",
         {"HTTP/1.1 200 OK\r\nContent-Length: 3\r\n\r\nok\n"},
         200,
         "200 OK"},
        {"body drained after the header",
         {"HTTP/1.1 404 Not Found\r\nContent-Length: 10\r\n\r\n", "01234", "56789"},
         404,
         "404 Not Found"},
        {"header in pieces", {"HTTP/1.0 302", " Found\r\n", "X: y\r\n", "\r\n"}, 302, "302 Found"},
        {"spaces before the code",
         {"HTTP/1.1   401 Unauthorized\r\nA: b\r\n\r\n"},
         401,
         "401 Unauthorized"},
        {"body cut short", {"HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nshort"}, -1, nullptr},
        {"nothing", {}, -2, nullptr},
        {"closed before the empty line", {"HTTP/1.1 200 OK\r\n"}, -2, nullptr},
        {"only a status line", {"HTTP/1.1 200 OK\r\n\r\n"}, -3, nullptr},
        {"not HTTP", {"SSH-2.0 hello\r\nA: b\r\n\r\n"}, -3, nullptr},
        {"no empty line in the room", {std::string(600, 'h'), std::string(600, 'h')}, -3, nullptr},
    };
    NetConn conn{"hnotify: ", 0, 0};
    for (const Case &c : cases) {
        PacketFeed feed(c.pieces);
        ASSERT_TRUE(feed.ok()) << c.what;
        char buf[1028] = "GET /x HTTP/1.1\r\nHost: h\r\n\r\n";
        EXPECT_EQ(readResponse(conn, feed.fd(), buf), c.status) << c.what;
        if (c.text) {
            EXPECT_STREQ(buf, c.text) << c.what;
        }
    }
}

} // namespace
