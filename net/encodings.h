// The text encodings of the network clients: base64, URL encoding of query
// values and the Basic credential for HTTP; base64 body lines and RFC 2047
// encoded words for e-mail.
#ifndef TARVO_NET_ENCODINGS_H
#define TARVO_NET_ENCODINGS_H

#include "bounded_text.h"
#include "connection.h"

#include <string_view>

namespace tarvo::net
{

// Characters base64 makes of `length` bytes.
constexpr int base64Length(int length)
{
    return (length + 2) / 3 * 4;
}

// Appends the padded base64 form of the bytes, without line breaks; the
// number of characters it takes.
int base64Encode(const void *data, int length, TextBuilder &out);

// Appends the text URL-encoded: space as "+", each of ";/?:@&=+$,%" as
// "%XX", every other byte as it is; the number of characters it takes.
int urlEncode(std::string_view text, TextBuilder &out);

// The "user:password" work area, NUL included.
inline constexpr int kCredentialsAreaSize = 256;

// Appends "Basic " and the base64 form of "user:password"; false (and out
// incomplete) when the pair exceeds the work area or out.
bool basicCredentials(const char *user, const char *password, TextBuilder &out);

enum class Base64Mode { Text, Binary };

// Sends the data as base64 lines of 76 characters (57 bytes) and CR LF.
// 0 when all went out; otherwise the bytes not yet sent (the failed line's
// included), or length itself when it is below 1 or force stop was raised.
int sendBase64Lines(NetConn &conn, int sock, const void *data, int length, Base64Mode mode);

// Sends the text as RFC 2047 "B" encoded words in the charset, each word
// after the first on a folded line.  Results as sendBase64Lines.
int sendEncodedSubject(NetConn &conn, int sock, std::string_view text, std::string_view charset);

} // namespace tarvo::net

#endif
