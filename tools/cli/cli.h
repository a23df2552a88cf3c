// What the command-line tools share: their exit codes, and a reader of
// "--name value" / "--name=value" options and plain arguments that prints
// usage errors the same way in every tool.
#ifndef TARVO_TOOLS_CLI_H
#define TARVO_TOOLS_CLI_H

namespace tarvo::cli
{

enum ExitCode : int {
    kExitOk = 0,
    kExitFailure = 1, // the work could not be done (no such ring, no answer, bad file)
    kExitUsage = 2,   // the command line is wrong
    kExitDamaged = 3, // tarvo-rbstat: the ring's chain of cells is damaged
};

class CommandLine
{
  public:
    // `usage` is the --help text; it is printed to standard output when any
    // argument is --help or -h, and helpWanted() then says so.
    CommandLine(const char *tool, const char *usage, int argc, char **argv);

    bool helpWanted() const { return helpWanted_; }
    bool done() const { return next_ >= argc_; }

    // Whether the next argument is the option `name` (given with its
    // dashes); it is then taken, with its value when it has one.
    bool option(const char *name);
    // The value of the option just taken: text, or a whole number in
    // min..max (decimal, or hex with 0x).  False after printing a usage
    // error when it is missing or out of range.
    bool text(const char *&value);
    bool number(long min, long max, long &value);
    // The next argument as a plain one; null (and a usage error printed)
    // when it looks like an unknown option.
    const char *plain();

    // "TOOL: MESSAGE" on standard error; usageError adds where help is and
    // returns kExitUsage, failure returns kExitFailure.
    int usageError(const char *format, ...) const __attribute__((format(printf, 2, 3)));
    int failure(const char *format, ...) const __attribute__((format(printf, 2, 3)));

  private:
    const char *tool_;
    int argc_;
    char **argv_;
    int next_ = 1;
    const char *option_ = nullptr; // the option just taken
    const char *value_ = nullptr;  // its "=value" part, if it had one
    bool helpWanted_ = false;
};

} // namespace tarvo::cli

#endif
