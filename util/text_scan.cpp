// Position-returning scanners over text in memory.
#include "tarvo/inifile.h"

namespace
{

bool isBlank(char c)
{
    return c == ' ' || c == '\t';
}

} // namespace

extern "C" {

char *SFindLineStart(char *p, char *start)
{
    if (p == nullptr || *p == '\n')
        return p ? p + 1 : p;
    while (p > start && p[-1] != '\n')
        p--;
    return p;
}

char *SFindLineEnd(char *p, char *end)
{
    if (p == nullptr || *p == '\n')
        return p ? p - 1 : p;
    for (; p < end; p++)
        if (*p == '\n')
            return p - 1;
    return end;
}

char *SForSkipSpace(char *p, char *end)
{
    if (p == nullptr)
        return p;
    while (p < end && isBlank(*p))
        p++;
    return p;
}

char *SBackSkipSpace(char *p, char *start)
{
    if (p == nullptr)
        return p;
    while (p > start && isBlank(*p))
        p--;
    return p;
}

} // extern "C"
