// Captures what a piece of code prints on a standard stream (fd 1 or 2).
#pragma once

#include <cstdio>
#include <string>
#include <unistd.h>

namespace tarvo::test
{

template <typename Body> std::string captureFd(int fd, Body &&body)
{
    fflush(nullptr);
    FILE *sink = tmpfile();
    int saved = dup(fd);
    dup2(fileno(sink), fd);
    body();
    fflush(nullptr);
    dup2(saved, fd);
    close(saved);
    fseek(sink, 0, SEEK_END);
    std::string text(size_t(ftell(sink)), '\0');
    rewind(sink);
    text.resize(fread(text.data(), 1, text.size(), sink));
    fclose(sink);
    return text;
}

template <typename Body> std::string captureStdout(Body &&body)
{
    return captureFd(1, std::forward<Body>(body));
}

template <typename Body> std::string captureStderr(Body &&body)
{
    return captureFd(2, std::forward<Body>(body));
}

} // namespace tarvo::test
