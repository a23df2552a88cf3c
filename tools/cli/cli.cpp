#include "cli.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace tarvo::cli
{

CommandLine::CommandLine(const char *tool, const char *usage, int argc, char **argv)
    : tool_(tool), argc_(argc), argv_(argv)
{
    for (int i = 1; i < argc; i++)
        if (std::strcmp(argv[i], "--help") == 0 || std::strcmp(argv[i], "-h") == 0)
            helpWanted_ = true;
    if (helpWanted_)
        std::fputs(usage, stdout);
}

bool CommandLine::option(const char *name)
{
    if (done())
        return false;
    const char *argument = argv_[next_];
    size_t length = std::strlen(name);
    if (std::strncmp(argument, name, length) != 0 ||
        (argument[length] != '\0' && argument[length] != '='))
        return false;
    next_++;
    option_ = name;
    value_ = argument[length] == '=' ? argument + length + 1 : nullptr;
    return true;
}

bool CommandLine::text(const char *&value)
{
    if (value_ == nullptr && !done() && std::strncmp(argv_[next_], "--", 2) != 0)
        value_ = argv_[next_++];
    if (value_ == nullptr) {
        usageError("%s needs a value", option_);
        return false;
    }
    value = value_;
    value_ = nullptr;
    return true;
}

bool CommandLine::number(long min, long max, long &value)
{
    // A negative number is a value here, not an option.
    if (value_ == nullptr && !done() && argv_[next_][0] == '-' && argv_[next_][1] >= '0' &&
        argv_[next_][1] <= '9')
        value_ = argv_[next_++];
    const char *given;
    if (!text(given))
        return false;
    char *end = nullptr;
    errno = 0;
    value = std::strtol(given, &end, 0);
    if (errno != 0 || end == given || *end != '\0' || value < min || value > max) {
        usageError("%s wants a whole number from %ld to %ld, not \"%s\"", option_, min, max, given);
        return false;
    }
    return true;
}

const char *CommandLine::plain()
{
    const char *argument = argv_[next_];
    bool negativeNumber = argument[0] == '-' && argument[1] >= '0' && argument[1] <= '9';
    if (argument[0] == '-' && argument[1] != '\0' && !negativeNumber) {
        usageError("unknown option %s", argument);
        return nullptr;
    }
    next_++;
    return argument;
}

// "TOOL: MESSAGE" and the tail on standard error.
static void printMessage(const char *tool, const char *tail, const char *format, va_list arguments)
{
    std::fprintf(stderr, "%s: ", tool);
    std::vfprintf(stderr, format, arguments);
    std::fputs(tail, stderr);
}

int CommandLine::usageError(const char *format, ...) const
{
    char tail[96];
    std::snprintf(tail, sizeof tail, " (%s --help shows the usage)\n", tool_);
    va_list arguments;
    va_start(arguments, format);
    printMessage(tool_, tail, format, arguments);
    va_end(arguments);
    return kExitUsage;
}

int CommandLine::failure(const char *format, ...) const
{
    va_list arguments;
    va_start(arguments, format);
    printMessage(tool_, "\n", format, arguments);
    va_end(arguments);
    return kExitFailure;
}

} // namespace tarvo::cli
