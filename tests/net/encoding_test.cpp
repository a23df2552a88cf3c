// The encodings: base64, URL encoding and the Basic credential with their
// bounds, and the e-mail client's base64 lines and RFC 2047 words as they
// leave on a socket.
#include "net/encodings.h"

#include <gtest/gtest.h>

#include <string>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

using namespace tarvo::net;

namespace
{

std::string base64(const std::string &bytes)
{
    char text[512];
    TextBuilder out(text);
    EXPECT_EQ(base64Encode(bytes.data(), int(bytes.size()), out), base64Length(int(bytes.size())));
    return text;
}

TEST(Base64, PadsTheLastGroup)
{
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"", ""},
        {"a", "YQ=="},
        {"ab", "YWI="},
        {"abc", "YWJj"},
        {std::string("\xff\x00\xfe", 3), "/wD+"},
        {"user:password", "dXNlcjpwYXNzd29yZA=="},
    };
    for (const auto &[bytes, text] : cases)
        EXPECT_EQ(base64(bytes), text) << bytes;
}

TEST(UrlEncode, EncodesSpacesAndTheReservedSetOnly)
{
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"", ""},
        {"a b/c", "a+b%2Fc"},
        {";/?:@&=+$,%", "%3B%2F%3F%3A%40%26%3D%2B%24%2C%25"},
        {"#\"<>~\xc3\xa9", "#\"<>~\xc3\xa9"},
        {"06/15/2024 13:05:09", "06%2F15%2F2024+13%3A05%3A09"},
    };
    for (const auto &[text, encoded] : cases) {
        char out[128];
        TextBuilder builder(out);
        EXPECT_EQ(urlEncode(text, builder), int(encoded.size()));
        EXPECT_EQ(std::string(out), encoded) << text;
    }
}

TEST(BasicCredentials, EncodesThePairWithinItsBounds)
{
    struct Case {
        std::string user, password;
        size_t room;
        bool fits;
        std::string expected;
    };
    std::string longUser(185 - 6, 'u');
    const std::vector<Case> cases = {
        {"", "", 256, true, "Basic Og=="},
        {"cam", "secret", 256, true, "Basic Y2FtOnNlY3JldA=="},
        // 186 bytes of pair fill the authorization field, 187 do not.
        {longUser, "secret", 256, true, ""},
        {longUser + "u", "secret", 256, false, ""},
        // The work area takes 255 bytes of pair, whatever the room after it.
        {std::string(200, 'u'), std::string(54, 'p'), 1024, true, ""},
        {std::string(200, 'u'), std::string(55, 'p'), 1024, false, ""},
    };
    for (const Case &c : cases) {
        std::vector<char> out(c.room);
        TextBuilder builder(out.data(), out.size());
        EXPECT_EQ(basicCredentials(c.user.c_str(), c.password.c_str(), builder), c.fits)
            << c.user.size() << "+" << c.password.size();
        std::string expected =
            c.expected.empty() ? "Basic " + base64(c.user + ":" + c.password) : c.expected;
        if (c.fits) {
            EXPECT_EQ(std::string(out.data()), expected);
        }
    }
}

// What the e-mail encoders put on a connection.
class EncodedSends : public ::testing::Test
{
  protected:
    void SetUp() override { ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends_), 0); }
    void TearDown() override
    {
        close(ends_[0]);
        close(ends_[1]);
    }
    std::string sent()
    {
        std::string text;
        char chunk[4096];
        for (ssize_t got; (got = recv(ends_[1], chunk, sizeof chunk, MSG_DONTWAIT)) > 0;)
            text.append(chunk, size_t(got));
        return text;
    }

    NetConn conn_{"email: ", 0, 0};
    int ends_[2];
};

TEST_F(EncodedSends, Base64LinesCarry76CharactersEach)
{
    const std::vector<std::pair<size_t, std::vector<size_t>>> cases = {
        {57, {76}}, {58, {76, 4}}, {1, {4}}, {171, {76, 76, 76}}};
    for (const auto &[length, lineLengths] : cases) {
        std::string data(length, '\0');
        for (size_t i = 0; i < length; i++)
            data[i] = char(i * 7);
        ASSERT_EQ(sendBase64Lines(conn_, ends_[0], data.data(), int(length), Base64Mode::Binary),
                  0);
        std::string wire = sent(), decoded;
        size_t at = 0;
        for (size_t lineLength : lineLengths) {
            size_t end = wire.find("\r\n", at);
            ASSERT_NE(end, std::string::npos);
            EXPECT_EQ(end - at, lineLength) << length;
            at = end + 2;
        }
        EXPECT_EQ(at, wire.size()) << length;
        std::string expected;
        for (size_t i = 0; i < length; i += 57)
            expected += base64(data.substr(i, 57)) + "\r\n";
        EXPECT_EQ(wire, expected);
    }
}

TEST_F(EncodedSends, NothingToSendOrStoppedSendsNothing)
{
    EXPECT_EQ(sendBase64Lines(conn_, ends_[0], "", 0, Base64Mode::Text), 0);
    EXPECT_EQ(sendEncodedSubject(conn_, ends_[0], "", "UTF-8"), 0);
    conn_.forceStop = 1;
    EXPECT_EQ(sendBase64Lines(conn_, ends_[0], "abc", 3, Base64Mode::Text), 3);
    EXPECT_EQ(sendEncodedSubject(conn_, ends_[0], "abc", "UTF-8"), 3);
    EXPECT_EQ(sent(), "");
}

TEST_F(EncodedSends, SubjectWordsFoldAfterFixedByteCounts)
{
    struct Case {
        std::string charset;
        size_t length;
        std::vector<size_t> chunks;
    };
    const std::vector<Case> cases = {
        {"UTF-8", 100, {45, 45, 10}},
        {"ISO-8859-15", 60, {42, 18}},
        {"Big5", 48, {48}},
    };
    for (const Case &c : cases) {
        std::string subject;
        for (size_t i = 0; i < c.length; i++)
            subject += char('A' + i % 26);
        ASSERT_EQ(sendEncodedSubject(conn_, ends_[0], subject, c.charset), 0);
        std::string expected;
        size_t at = 0;
        for (size_t chunk : c.chunks) {
            expected += (at ? "\r\n\t=?" : "=?") + c.charset + "?B?" +
                        base64(subject.substr(at, chunk)) + "?=";
            at += chunk;
        }
        EXPECT_EQ(sent(), expected) << c.charset;
    }
}

} // namespace
