// The connection layer and the encodings under the clients: readers fed
// piece by piece through socket pairs, sends and connects with their trace
// lines, and what the e-mail encoders put on a connection.
#include "net/encodings.h"
#include "net/http_internal.h"
#include "tarvo/httpnotify.h"

#include "peer.h"

#include "support/capture.h"
#include "support/packet_feed.h"

using namespace tarvo::net;
using namespace tarvo::test;

namespace
{

using Pieces = std::vector<std::string>;

TEST(Readers, ReplyCodeFromTheFinalLineAcrossPieces)
{
    // clang-format off
    const std::pair<Pieces, int> cases[] = {
        {{"220 ready\r\n"}, 220}, {{"331\r\n"}, 331}, {{"220-a\r\n220-b\r\n220 c\r\n"}, 220},
        {{"230-a\r\n", "230-b\r\n", "230 c\r\n"}, 230}, {{"22", "0 rea", "dy\r\n"}, 220},
        {{"250-a\r\n250 ", "b\r\n"}, 250}, {{"226 done"}, 226}, {{"220-a\r\n", "220 b"}, 220},
        {{"550 no\r\n250 yes\r\n"}, 250}, {{}, -2}, {{"220-a\r\n"}, -2}, {{"331"}, -2},
        {{"abc def\r\n"}, -2}, {{"2x0 a\r\n", "220-b\r\n"}, -2}, {{"2200 a\r\n"}, -2}};
    // clang-format on
    NetConn conn{"ftp: ", 0, 0};
    for (const auto &[pieces, code] : cases) {
        PacketFeed feed(pieces);
        EXPECT_EQ(readReply(conn, feed.fd()), code) << &pieces - &cases[0].first;
    }
}

TEST(Readers, ReceivesEndAtALineEndTheCapacityOrAnEmptyLineLeftInTheBuffer)
{
    NetConn conn{"ftp: ", 0, 0};
    char buffer[64] = "GET / HTTP/1.1\r\nHost: h\r\n\r\n";
    PacketFeed header({"HTTP/1.1", " 200 OK\r\n"}), again({"HTTP/1.1", " 200 OK\r\n"});
    EXPECT_EQ(recvHeader(conn, header.fd(), buffer, 63), 8) << "the old empty line counts";
    char fresh[64] = {};
    EXPECT_EQ(recvHeader(conn, again.fd(), fresh, 63), 17);
    PacketFeed line({"220-", "first\r\n", "abcd", "efgh", "ij\r\n"});
    EXPECT_EQ(recvLine(conn, line.fd(), buffer, 63), 11);
    EXPECT_STREQ(buffer, "220-first\r\n");
    EXPECT_EQ(recvLine(conn, line.fd(), buffer, 8), 8);
    EXPECT_EQ(recvLine(conn, line.fd(), buffer, 0), 0);
    EXPECT_EQ(recvLine(conn, line.fd(), buffer, 63), 4);
    EXPECT_EQ(recvLine(conn, line.fd(), buffer, 63), 0);
    EXPECT_STREQ(buffer, "");
}

TEST(Readers, HttpStatusAndItsTextOrWhyNot)
{
    struct Case {
        Pieces pieces;
        int status;
        const char *text;
    };
    // clang-format off
    const Case cases[] = {
        {{"HTTP/1.1 200 OK\r\nContent-Length: 3\r\n\r\nok\n"}, 200, "200 OK"},
        {{"HTTP/1.1 404 Not Found\r\nContent-Length: 10\r\n\r\n", "01234", "56789"}, 404, "404 Not Found"},
        {{"HTTP/1.0 302", " Found\r\n", "X: y\r\n", "\r\n"}, 302, "302 Found"},
        {{"HTTP/1.1   401 Unauthorized\r\nA: b\r\n\r\n"}, 401, "401 Unauthorized"},
        {{"HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nshort"}, -1, nullptr}, {{}, -2, nullptr},
        {{"HTTP/1.1 200 OK\r\n"}, -2, nullptr}, {{"HTTP/1.1 200 OK\r\n\r\n"}, -3, nullptr},
        {{"SSH-2.0 hello\r\nA: b\r\n\r\n"}, -3, nullptr},
        {{std::string(600, 'h'), std::string(600, 'h')}, -3, nullptr}};
    // clang-format on
    NetConn conn{"hnotify: ", 0, 0};
    for (const Case &c : cases) {
        PacketFeed feed(c.pieces);
        char buf[HTTP_BUF_SIZE] = "GET /x HTTP/1.1\r\nHost: h\r\n\r\n";
        EXPECT_EQ(readResponse(conn, feed.fd(), buf), c.status) << c.status;
        EXPECT_STREQ(c.text ? buf : "", c.text ? c.text : "");
    }
}

TEST(Layer, SendsAllOrSaysWhatFailedAndAForceStopSendsAndReceivesNothing)
{
    signal(SIGPIPE, SIG_IGN);
    NetConn conn{"hnotify: ", 1, 0};
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    std::string out = captureStdout([&] {
        EXPECT_EQ(netSend(conn, ends[0], "", 0, SendMode::Text), 0);
        EXPECT_EQ(netSend(conn, ends[0], "GET /\r\n", 7, SendMode::Text), 0);
        EXPECT_EQ(netSend(conn, ends[0], "\x01\x02", 2, SendMode::Binary), 0);
        EXPECT_EQ(netSend(conn, ends[0], "abc", 3, SendMode::Silent), 0);
        conn.forceStop = 1;
        conn.debug = 0;
        EXPECT_EQ(netSend(conn, ends[0], "quit\r\n", 6, SendMode::Text), 6);
        EXPECT_EQ(sendCommand(conn, ends[0], "quit\r\n"), -1);
        EXPECT_EQ(readReply(conn, ends[1]), -1);
        conn.forceStop = 0;
        conn.debug = 1;
    });
    char chunk[64];
    EXPECT_EQ(std::string(chunk, size_t(recv(ends[1], chunk, sizeof chunk, 0))), "GET /\r\n\x01\x02"
                                                                                 "abc");
    close(ends[1]);
    out +=
        captureStdout([&] { EXPECT_EQ(netSend(conn, ends[0], "lost", 4, SendMode::Silent), -1); });
    close(ends[0]);
    EXPECT_EQ(out, "hnotify: http send text data: 0 bytes\n\n"
                   "hnotify: http send text data: 7 bytes\nGET /\r\n\n"
                   "hnotify: http send binary data: 2 bytes\n"
                   "hnotify: http send fail at 4!\n");
}

std::string base64(const std::string &bytes)
{
    char text[512];
    TextBuilder out(text);
    EXPECT_EQ(base64Encode(bytes.data(), int(bytes.size()), out), base64Length(int(bytes.size())));
    return text;
}

TEST(Encodings, Base64UrlEncodingAndBasicCredentials)
{
    using Texts = std::pair<std::string, std::string>;
    const Texts urlCases[] = {{"", ""},
                              {"a b/c", "a+b%2Fc"},
                              {";/?:@&=+$,%", "%3B%2F%3F%3A%40%26%3D%2B%24%2C%25"},
                              {"#\"<>~\xc3\xa9", "#\"<>~\xc3\xa9"}};
    for (auto &[text, encoded] : urlCases) {
        char out[128];
        TextBuilder builder(out);
        EXPECT_EQ(urlEncode(text, builder), int(encoded.size()));
        EXPECT_EQ(std::string(out), encoded);
    }
    // The authorization field takes a pair of 186 bytes, the work area 255.
    const std::tuple<std::string, std::string, int, bool> pairs[] = {
        {"", "", 256, true},
        {std::string(179, 'u'), "secret", HTTP_AUTH_SIZE, true},
        {std::string(180, 'u'), "secret", HTTP_AUTH_SIZE, false},
        {std::string(200, 'u'), std::string(54, 'p'), 1024, true},
        {std::string(200, 'u'), std::string(55, 'p'), 1024, false}};
    for (auto &[user, password, room, fits] : pairs) {
        std::vector<char> out(size_t(room), 0);
        TextBuilder builder(out.data(), out.size());
        EXPECT_EQ(basicCredentials(user.c_str(), password.c_str(), builder), fits) << user.size();
        EXPECT_EQ(out.data(), fits ? "Basic " + base64(user + ":" + password) : out.data());
    }
}

TEST(Encodings, MailLinesAndSubjectWordsAsTheyLeave)
{
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    auto sent = [&] {
        std::string text;
        char chunk[4096];
        for (ssize_t got; (got = recv(ends[1], chunk, sizeof chunk, MSG_DONTWAIT)) > 0;)
            text.append(chunk, size_t(got));
        return text;
    };
    NetConn conn{"email: ", 0, 0};
    std::string data = snapshotBytes(171);
    for (size_t length : {1u, 57u, 58u, 171u}) {
        ASSERT_EQ(sendBase64Lines(conn, ends[0], data.data(), int(length), Base64Mode::Binary), 0);
        std::string expected;
        for (size_t at = 0; at < length; at += 57)
            expected += base64(data.substr(at, std::min<size_t>(57, length - at))) + "\r\n";
        EXPECT_EQ(sent(), expected) << length;
    }
    const std::pair<std::string, std::vector<size_t>> words[] = {
        {"UTF-8", {45, 45, 10}}, {"ISO-8859-15", {42, 18}}, {"Big5", {48}}};
    for (auto &[charset, chunks] : words) {
        size_t length = 0;
        for (size_t chunk : chunks)
            length += chunk;
        std::string subject = data.substr(0, length);
        ASSERT_EQ(sendEncodedSubject(conn, ends[0], subject, charset), 0);
        std::string expected;
        size_t at = 0;
        for (size_t chunk : chunks) {
            expected += (at ? "\r\n\t=?" : "=?") + charset + "?B?" +
                        base64(subject.substr(at, chunk)) + "?=";
            at += chunk;
        }
        EXPECT_EQ(sent(), expected) << charset;
    }
    EXPECT_EQ(sendBase64Lines(conn, ends[0], "", 0, Base64Mode::Text), 0);
    EXPECT_EQ(sendEncodedSubject(conn, ends[0], "", "UTF-8"), 0);
    conn.forceStop = 1;
    EXPECT_EQ(sendBase64Lines(conn, ends[0], "abc", 3, Base64Mode::Text), 3);
    EXPECT_EQ(sendEncodedSubject(conn, ends[0], "abc", "UTF-8"), 3);
    EXPECT_EQ(sent(), "");
    close(ends[0]);
    close(ends[1]);
}

} // namespace
