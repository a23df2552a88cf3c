// The callers' logger.
#include "tarvo/logx.h"

#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <syslog.h>

namespace
{

constexpr std::array<const char *, 5> kPrefixes = {"[INFO] ", "[WARNING] ", "[ERROR] ",
                                                   "[XCEPTION] ", "ipcam: "};
constexpr size_t kLongestPrefix = 11;

} // namespace

extern "C" int logx(int level, const char *format, ...)
{
    // Room for the longest prefix, a full-length expansion, one character
    // more (so that an over-long one shows) and the NUL.
    char line[kLongestPrefix + LOGX_LINE_MAX + 2];
    const char *prefix = level >= 0 && level < int(kPrefixes.size()) ? kPrefixes[level] : "";
    size_t prefixLength = strlen(prefix);
    memcpy(line, prefix, prefixLength);

    va_list arguments;
    va_start(arguments, format);
    int expanded =
        format ? vsnprintf(line + prefixLength, sizeof line - prefixLength, format, arguments) : -1;
    va_end(arguments);

    if (expanded < 0 || expanded > LOGX_LINE_MAX) {
        syslog(LOG_ERR, "logx(%s) buffer overflow", format ? format : "(null)");
        return 0;
    }
    fprintf(stderr, "%s\n", line);
    syslog(LOG_ERR, "%s", line);
    return 0;
}
