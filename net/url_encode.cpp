// URL encoding of the values put into a notification's request target.
#include "encodings.h"

namespace tarvo::net
{

namespace
{

constexpr std::string_view kReserved = ";/?:@&=+$,%";

} // namespace

int urlEncode(std::string_view text, TextBuilder &out)
{
    int written = 0;
    for (char c : text) {
        if (c == ' ') {
            out.append('+');
            written++;
        } else if (kReserved.find(c) != std::string_view::npos) {
            out.format("%%%02X", static_cast<unsigned char>(c));
            written += 3;
        } else {
            out.append(c);
            written++;
        }
    }
    return written;
}

} // namespace tarvo::net
