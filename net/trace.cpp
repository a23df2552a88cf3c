// Trace lines of the connection layer's instances.
#include "connection.h"

#include <cstdarg>
#include <cstdio>

namespace tarvo::net
{

void trace(const NetConn &conn, const char *format, ...)
{
    if (!conn.tracing())
        return;
    fputs(conn.prefix, stdout);
    va_list arguments;
    va_start(arguments, format);
    vprintf(format, arguments);
    va_end(arguments);
}

void traceText(const NetConn &conn, const char *text, int length)
{
    if (conn.tracing())
        printf("%.*s\n", length > 0 ? length : 0, text);
}

} // namespace tarvo::net
