// logx through the C library's real syslog path: a child process binds a
// datagram socket at /dev/log in a mount namespace of its own.  One thread
// logs each kind of line, then several threads log at once.
#include "tarvo/logx.h"

#include "support/capture.h"
#include "support/child.h"

#include <gtest/gtest.h>

#include <sched.h>
#include <set>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>
#include <thread>

using namespace tarvo::test;

TEST(Logx, LevelPrefixesTheLongestLineAndThreadsOnStderrAndSyslog)
{
    constexpr int kNoNamespace = 77;
    const std::string a512(512, 'a');
    // Level, format, argument, syslog message after "ident: ", and on stderr.
    const std::tuple<int, const char *, std::string, std::string, bool> calls[] = {
        {LOGX_INFO, "x=%s", "5", "[INFO] x=5", true},
        {LOGX_WARNING, "%s", "w", "[WARNING] w", true},
        {LOGX_ERROR, "%s", "e", "[ERROR] e", true},
        {LOGX_EXCEPTION, "%s", a512, "[XCEPTION] " + a512, true},
        {LOGX_CAMERA, "%s", "up", "ipcam: up", true},
        {LOGX_INFO, "%s", a512 + "b", "logx(%s) buffer overflow", false},
        {LOGX_CAMERA, "long:%s", a512, "logx(long:%s) buffer overflow", false},
        {9, "%s", "no prefix", "no prefix", true}};
    Child child([&] {
        sockaddr_un address{AF_UNIX, "/dev/log"};
        int log = socket(AF_UNIX, SOCK_DGRAM, 0), wrong = 0;
        if (unshare(CLONE_NEWNS) || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) ||
            mount("tmpfs", "/dev", "tmpfs", 0, "size=64k") ||
            bind(log, reinterpret_cast<sockaddr *>(&address), sizeof address))
            return kNoNamespace;
        closelog(); // a private /dev, which only root may make; forget the old /dev/log
        std::string expected,
            errors = captureStderr([&] {
                for (const auto &[level, format, argument, logged, toStderr] : calls) {
                    char record[2048] = "";
                    int result = logx(level, format, argument.c_str());
                    recv(log, record, sizeof record - 1, MSG_DONTWAIT);
                    const char *message = strstr(record, ": ");
                    if (result != 0 || strncmp(record, "<11>", 4) != 0 || !message ||
                        logged != message + 2)
                        wrong += printf("%s: syslog got \"%s\"\n", format, record) > 0;
                    expected += toStderr ? logged + "\n" : "";
                }
            });
        wrong += errors != expected && printf("stderr got \"%s\"\n", errors.c_str()) > 0;
        // Four threads at once: every line arrives whole, and once, on both paths.
        std::multiset<std::string> sent, logged, written;
        errors = captureStderr([&] {
            std::vector<std::jthread> loggers; // joined as the capture ends
            for (int t = 0; t < 4; t++)
                loggers.emplace_back([t] {
                    for (int i = 0; i < 50; i++)
                        logx(LOGX_WARNING, "%d.%d", t, i);
                });
            for (char record[256] = ""; logged.size() < 200 && recv(log, record, 255, 0) > 0;)
                logged.insert(strstr(record, ": ") + 2), memset(record, 0, sizeof record);
        });
        for (int n = 0; n < 200; n++)
            sent.insert("[WARNING] " + std::to_string(n / 50) + "." + std::to_string(n % 50));
        for (size_t at = 0, end; (end = errors.find('\n', at)) != errors.npos; at = end + 1)
            written.insert(errors.substr(at, end - at));
        return wrong + (logged != sent) + (written != sent);
    });
    int wrong = child.wait();
    if (wrong == kNoNamespace && !(getenv("CI") && std::string(getenv("CI")) == "true"))
        GTEST_SKIP() << "no private mount namespace (the suite needs root)";
    EXPECT_EQ(wrong, 0) << "calls logged wrongly (" << kNoNamespace << ": no private namespace)";
}
