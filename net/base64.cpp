// Base64 and the HTTP Basic credential.
#include "encodings.h"

#include <cstdint>

namespace tarvo::net
{

namespace
{

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

} // namespace

int base64Encode(const void *data, int length, TextBuilder &out)
{
    auto *bytes = static_cast<const uint8_t *>(data);
    for (int at = 0; at < length; at += 3) {
        int left = length - at;
        uint32_t group = uint32_t(bytes[at]) << 16;
        if (left > 1)
            group |= uint32_t(bytes[at + 1]) << 8;
        if (left > 2)
            group |= bytes[at + 2];
        char quad[4] = {kAlphabet[group >> 18], kAlphabet[(group >> 12) & 63],
                        left > 1 ? kAlphabet[(group >> 6) & 63] : '=',
                        left > 2 ? kAlphabet[group & 63] : '='};
        out.append(std::string_view(quad, 4));
    }
    return length > 0 ? base64Length(length) : 0;
}

bool basicCredentials(const char *user, const char *password, TextBuilder &out)
{
    char area[kCredentialsAreaSize];
    TextBuilder pair(area);
    pair.append(user).append(':').append(password);
    if (!pair.complete())
        return false;
    out.append("Basic ");
    base64Encode(area, pair.length(), out);
    return out.complete();
}

} // namespace tarvo::net
