// The e-mail client's encoded sends: base64 body lines and RFC 2047 words.
#include "encodings.h"

#include <algorithm>
#include <cstdint>

namespace tarvo::net
{

namespace
{

constexpr int kLineBytes = 57; // 76 base64 characters
// Base64 characters and charset together; with the seven delimiter
// characters an encoded word stays within RFC 2047's 75.
constexpr int kWordBudget = 68;

} // namespace

int sendBase64Lines(NetConn &conn, int sock, const void *data, int length, Base64Mode mode)
{
    if (mode == Base64Mode::Text) {
        trace(conn, "http send base64 data from %d text :\n", length);
        traceText(conn, static_cast<const char *>(data), length);
    } else {
        trace(conn, "http send base64 data from %d binary\n", length);
    }
    if (length < 1 || conn.stopped())
        return length;
    auto *next = static_cast<const uint8_t *>(data);
    for (int remaining = length; remaining > 0;) {
        int chunk = std::min(remaining, kLineBytes);
        char line[base64Length(kLineBytes) + 3];
        TextBuilder text(line);
        base64Encode(next, chunk, text);
        text.append("\r\n");
        if (netSend(conn, sock, line, text.length(), SendMode::Silent) != 0)
            return remaining;
        next += chunk;
        remaining -= chunk;
        if (conn.stopped())
            return remaining;
    }
    return 0;
}

int sendEncodedSubject(NetConn &conn, int sock, std::string_view text, std::string_view charset)
{
    trace(conn, "http send RFC2047 subject: %.*s, charset: %.*s\n", int(text.size()), text.data(),
          int(charset.size()), charset.data());
    int chunkBytes = std::max((kWordBudget - int(charset.size())) / 4 * 3, 3);
    int length = int(text.size());
    if (length < 1 || conn.stopped())
        return length;
    for (int sent = 0; sent < length;) {
        int chunk = std::min(length - sent, chunkBytes);
        char opening[kCommandSize];
        TextBuilder open(opening);
        open.format("%s=?%.*s?B?", sent == 0 ? "" : "\r\n\t", int(charset.size()), charset.data());
        char word[base64Length(kWordBudget) + 3];
        TextBuilder encoded(word);
        base64Encode(text.data() + sent, chunk, encoded);
        encoded.append("?=");
        if (netSend(conn, sock, opening, open.length(), SendMode::Silent) != 0 ||
            netSend(conn, sock, word, encoded.length(), SendMode::Silent) != 0)
            return length - sent;
        sent += chunk;
        if (conn.stopped())
            return length - sent;
    }
    return 0;
}

} // namespace tarvo::net
