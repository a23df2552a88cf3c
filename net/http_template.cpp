// Expansion of a notification's request template.
#include "encodings.h"
#include "http_internal.h"
#include "local_time.h"

#include <cstdio>

namespace tarvo::net
{

namespace
{

// "MM/DD/YYYY hh:mm:ss" of the local time.
void localTimeText(char (&text)[80])
{
    tm local = localTimeNow().calendar;
    snprintf(text, sizeof text, "%02d/%02d/%04d %02d:%02d:%02d", local.tm_mon + 1, local.tm_mday,
             local.tm_year + 1900, local.tm_hour, local.tm_min, local.tm_sec);
}

} // namespace

bool expandTemplate(const char *url, std::string_view event, const char *message, TextBuilder &path)
{
    for (const char *at = url; *at; at++) {
        char marker = at[0] == '#' ? at[1] : '\0';
        if (marker == 's') {
            urlEncode(event, path);
        } else if (marker == 'm') {
            if (message && *message)
                urlEncode(message, path);
            else
                path.append("error");
        } else if (marker == 't') {
            char now[80];
            localTimeText(now);
            urlEncode(now, path);
        } else {
            // Any other character, "#" before anything else included, is
            // copied; the character after a lone "#" is read normally.
            path.append(*at);
            continue;
        }
        at++;
    }
    return path.complete();
}

} // namespace tarvo::net
