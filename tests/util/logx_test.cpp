// logx through the C library's real syslog path: a child process binds a
// datagram socket at /dev/log in a mount namespace of its own.
#include "tarvo/logx.h"

#include "support/capture.h"
#include "support/child.h"

#include <gtest/gtest.h>

#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>

using namespace tarvo::test;

TEST(Logx, LevelPrefixesAndTheLongestLineOnStderrAndSyslog)
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
        return wrong + (errors != expected && printf("stderr got \"%s\"\n", errors.c_str()) > 0);
    });
    int wrong = child.wait();
    if (wrong == kNoNamespace && !(getenv("CI") && std::string(getenv("CI")) == "true"))
        GTEST_SKIP() << "no private mount namespace (the suite needs root)";
    EXPECT_EQ(wrong, 0) << "calls logged wrongly (" << kNoNamespace << ": no private namespace)";
}
