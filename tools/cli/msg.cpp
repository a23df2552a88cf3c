// tarvo-msg: an inform, an event or a query on a message channel from the
// shell, or the channel's serving side: wait for records and print them.
#include "cli.h"

#include "tarvo/msgchannel.h"

#include <cctype>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <sys/msg.h>
#include <unistd.h>

using namespace tarvo::cli;

namespace
{

const char kUsage[] =
    "Usage: tarvo-msg --key K inform COMMAND (VALUE | --text TEXT)\n"
    "       tarvo-msg --key K event COMMAND VALUE\n"
    "       tarvo-msg --key K query COMMAND [--timeout S]\n"
    "       tarvo-msg --key K wait [--count N] [--answer VALUE] [--timeout S]\n"
    "\n"
    "  inform    send an inform with a value, or a text of at most 23 characters\n"
    "  event     send an event: the value and the time now\n"
    "  query     send a query and print the answer (its value, text or words);\n"
    "            gives up after S seconds (default 5)\n"
    "  wait      serve the channel: print each inform and query as it arrives, one\n"
    "            line each; answer queries with VALUE when --answer is given (an\n"
    "            unanswered query keeps its sender waiting); stop after N records,\n"
    "            or with exit status 1 when nothing came for S seconds (default:\n"
    "            wait until interrupted).  A channel that does not exist is made,\n"
    "            and removed again at the end.\n"
    "\n"
    "Sending needs a channel that exists: the process that serves it makes it.\n"
    "A query that timed out leaves its record in the queue, and a late answer\n"
    "would go to the next query.\n"
    "\n"
    "Exit status: 0 done; 1 no such channel, sending or receiving failed, no answer\n"
    "or nothing within the time; 2 usage error.\n";

volatile sig_atomic_t lastSignal = 0;

void noteSignal(int number)
{
    lastSignal = number;
}

// The signals that end a wait interrupt the blocking call instead of
// restarting it, so that the channel is left tidily.
void catchSignals()
{
    struct sigaction action = {};
    action.sa_handler = noteSignal;
    for (int number : {SIGALRM, SIGINT, SIGTERM, SIGHUP})
        sigaction(number, &action, nullptr);
}

// One line for a record: its class, command and data by kind.
void printRecord(const MsgRecord &record)
{
    switch (record.msgClass) {
    case MSG_CLASS_INFORM:
        std::printf("inform command %d", int(record.command));
        break;
    case MSG_CLASS_QUERY:
        std::printf("query command %d", int(record.command));
        return;
    case MSG_CLASS_ANSWER:
        std::printf("answer command %d", int(record.command));
        break;
    default:
        std::printf("class %d command %d", int(record.msgClass), int(record.command));
        break;
    }
    switch (record.kind) {
    case MSG_KIND_VALUE:
        std::printf(" value %d", int(record.data.value));
        break;
    case MSG_KIND_STRING:
        // Any process can send: the text is shown up to its end or the
        // record's, with bytes that are not printable escaped.
        std::printf(" text \"");
        for (int i = 0; i <= MSG_TEXT_MAX && record.data.text[i] != '\0'; i++) {
            unsigned char c = static_cast<unsigned char>(record.data.text[i]);
            std::printf(std::isprint(c) && c != '"' && c != '\\' ? "%c" : "\\x%02x", c);
        }
        std::printf("\"");
        break;
    case MSG_KIND_EVENT:
        std::printf(" event %d at %d.%06d", int(record.data.event.value),
                    int(record.data.event.seconds), int(record.data.event.microseconds));
        break;
    default:
        std::printf(" kind %d words", int(record.kind));
        for (int32_t word : record.data.params)
            std::printf(" %d", int(word));
        break;
    }
}

// Why a receive failed, and what to do about it.
int receiveFailure(const CommandLine &line, int key)
{
    if (errno == E2BIG)
        return line.failure("a record of a foreign size jams the channel with key %d: only "
                            "removing the queue clears it (ipcs -q; ipcrm -q ID)",
                            key);
    if (errno == EIDRM || errno == EINVAL)
        return line.failure("the channel with key %d was removed", key);
    return line.failure("receiving on key %d failed: %s", key, std::strerror(errno));
}

int serve(const CommandLine &line, int key, long count, bool answering, long answer, long timeout)
{
    bool existed = msgget(key, 0) >= 0;
    MsgChannel *channel = msgInitial(key);
    if (channel == nullptr)
        return line.failure("cannot open or make the channel with key %d: is another user's "
                            "queue or semaphore under the key? (ipcs -q -s)",
                            key);
    std::fprintf(stderr, "tarvo-msg: waiting on key %d (%s)\n", key,
                 existed ? "an existing channel" : "made here");
    int status = kExitOk;
    for (long received = 0; lastSignal == 0 && (count == 0 || received < count); received++) {
        alarm(unsigned(timeout));
        int result = msgWaitUser(channel, 1);
        alarm(0);
        if (result < 0 && lastSignal == SIGALRM) {
            status = line.failure("nothing came on key %d within %ld s", key, timeout);
            break;
        }
        if (result < 0 && lastSignal != 0)
            break;
        if (result < 0) {
            status = receiveFailure(line, key);
            break;
        }
        printRecord(channel->record);
        if (channel->record.msgClass == MSG_CLASS_QUERY && answering) {
            int command = channel->record.command;
            if (msgAnswerVal(channel, command, int(answer)) == 0)
                std::printf(", answered %ld", answer);
            else
                std::printf(", answer failed: %s", std::strerror(errno));
        }
        std::printf("\n");
        std::fflush(stdout);
    }
    if (existed) {
        msgDetach(channel);
        return status;
    }
    // Removal waits for the query lock, which a client keeps until its
    // answer comes; one that nobody here answered may wait for ever.
    if (!answering && sfLocked(channel->queryLock) == 1)
        std::fprintf(stderr,
                     "tarvo-msg: a query on key %d waits for its answer; the channel goes "
                     "once it gives up (interrupt again to leave the channel's lock)\n",
                     key);
    msgRelease(channel);
    return status;
}

// A query: the lock is awaited by polling so that the time limit also
// covers another client's query, then the answer under an alarm.
int query(const CommandLine &line, MsgChannel *channel, int command, long timeout)
{
    int key = channel->key;
    constexpr long kPollMilliseconds = 10;
    for (long waited = 0; sfLocked(channel->queryLock) == 1; waited += kPollMilliseconds) {
        if (waited >= timeout * 1000)
            return line.failure("another query on key %d has waited for its answer for %ld s: "
                                "is the serving process running? (ipcs -q -s)",
                                key, timeout);
        usleep(kPollMilliseconds * 1000);
    }
    if (msgQuery(channel, command) != 0)
        return line.failure("sending the query on key %d failed: %s", key, std::strerror(errno));
    alarm(unsigned(timeout));
    int result = msgWaitAnswer(channel, 1);
    alarm(0);
    if (result < 0 && lastSignal == SIGALRM)
        return line.failure("no answer on key %d within %ld s: is the serving process running, "
                            "and does it answer command %d?",
                            key, timeout, command);
    if (result < 0)
        return receiveFailure(line, key);
    const MsgRecord &answer = channel->record;
    if (answer.kind == MSG_KIND_VALUE) {
        std::printf("%d\n", int(answer.data.value));
    } else {
        printRecord(answer);
        std::printf("\n");
    }
    return kExitOk;
}

int send(const CommandLine &line, int key, const char *verb, int command, long value,
         const char *text, long timeout)
{
    if (msgget(key, 0) < 0)
        return line.failure("no message channel with key %d: is the process that serves it "
                            "running? (ipcs -q)",
                            key);
    MsgChannel *channel = msgInitial(key);
    if (channel == nullptr)
        return line.failure("cannot open the channel with key %d (ipcs -q -s)", key);
    int status;
    if (std::strcmp(verb, "query") == 0) {
        status = query(line, channel, command, timeout);
    } else {
        int sent = std::strcmp(verb, "event") == 0 ? msgInformEvent(channel, command, int(value))
                   : text                          ? msgInformStr(channel, command, text)
                                                   : msgInformVal(channel, command, int(value));
        status = sent == 0
                     ? kExitOk
                     : line.failure("sending on key %d failed: %s", key, std::strerror(errno));
    }
    msgDetach(channel);
    return status;
}

// The whole number in `text`; false when it is not one.
bool wholeNumber(const char *text, long &value)
{
    char *end = nullptr;
    errno = 0;
    value = std::strtol(text, &end, 0);
    return errno == 0 && end != text && *end == '\0' && value >= INT_MIN && value <= INT_MAX;
}

} // namespace

int main(int argc, char **argv)
{
    CommandLine line("tarvo-msg", kUsage, argc, argv);
    if (line.helpWanted())
        return kExitOk;
    long key = 0, count = 0, answer = 0, timeout = -1;
    bool answering = false;
    const char *text = nullptr;
    const char *words[3] = {};
    int given = 0;
    while (!line.done()) {
        bool understood = true;
        if (line.option("--key"))
            understood = line.number(INT_MIN, INT_MAX, key);
        else if (line.option("--count"))
            understood = line.number(1, LONG_MAX, count);
        else if (line.option("--answer"))
            understood = answering = line.number(INT_MIN, INT_MAX, answer);
        else if (line.option("--timeout"))
            understood = line.number(1, 86400, timeout);
        else if (line.option("--text"))
            understood = line.text(text);
        else if (const char *word = line.plain(); word && given < 3)
            words[given++] = word;
        else
            return word ? line.usageError("unexpected argument \"%s\"", word) : kExitUsage;
        if (!understood)
            return kExitUsage;
    }
    if (key == 0)
        return line.usageError("give the channel's --key (not 0, the private key)");
    if (given == 0)
        return line.usageError("say what to do: inform, event, query or wait");
    catchSignals();
    const char *verb = words[0];
    if (std::strcmp(verb, "wait") == 0 && given > 1)
        return line.usageError("wait takes no COMMAND or VALUE");
    if (std::strcmp(verb, "wait") == 0)
        return serve(line, int(key), count, answering, answer, timeout < 0 ? 0 : timeout);

    long command = 0, value = 0;
    bool isQuery = std::strcmp(verb, "query") == 0;
    bool isInform = std::strcmp(verb, "inform") == 0;
    bool isEvent = std::strcmp(verb, "event") == 0;
    int wanted = isQuery || (isInform && text) ? 2 : 3;
    if (!isQuery && !isInform && !isEvent)
        return line.usageError("unknown action \"%s\"", verb);
    if (text && !isInform)
        return line.usageError("--text goes with inform");
    if (given != wanted)
        return line.usageError("%s takes %s", verb,
                               isQuery ? "a COMMAND" : "a COMMAND and a VALUE (or --text TEXT)");
    if (!wholeNumber(words[1], command) || (wanted == 3 && !wholeNumber(words[2], value)))
        return line.usageError("COMMAND and VALUE are whole numbers");
    if (text && std::strlen(text) > MSG_TEXT_MAX)
        return line.usageError("a text of %zu characters; a record carries at most %d",
                               std::strlen(text), MSG_TEXT_MAX);
    return send(line, int(key), verb, int(command), value, text, timeout < 0 ? 5 : timeout);
}
