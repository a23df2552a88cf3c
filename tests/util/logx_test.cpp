// logx through the real syslog path: a child process with its own mount
// namespace puts a datagram socket at /dev/log, where the C library sends
// its records, and reports what arrived and what reached standard error.
#include "tarvo/logx.h"

#include "support/capture.h"
#include "support/child.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <syslog.h>

#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

using namespace tarvo::test;

namespace
{

constexpr int kNoNamespace = 77;

// Gives this process a private /dev holding only a log socket; its fd, or
// -1 when the process may not (not root).
int privateLogSocket()
{
    if (unshare(CLONE_NEWNS) != 0 ||
        mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("tmpfs", "/dev", "tmpfs", 0, "size=64k") != 0)
        return -1;
    int log = socket(AF_UNIX, SOCK_DGRAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    strcpy(address.sun_path, "/dev/log");
    if (log < 0 || bind(log, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0)
        return -1;
    closelog(); // forget any connection made before the namespace
    return log;
}

// Runs the logx calls in a child with a private log socket; each element of
// the result is what one call sent to syslog ("" for nothing), and `errors`
// what they wrote to standard error.
template <typename Calls>
std::vector<std::string> logInChild(Calls &&calls, size_t count, std::string &errors, bool &skipped)
{
    TempDir dir;
    std::string report = dir.path() + "/report", stderrFile = dir.path() + "/stderr";
    Child child([&] {
        int log = privateLogSocket();
        if (log < 0)
            return kNoNamespace;
        std::ofstream out(report);
        int fd = open(stderrFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        dup2(fd, 2);
        for (size_t i = 0; i < count; i++) {
            calls(i);
            char record[2048];
            ssize_t got = recv(log, record, sizeof record - 1, MSG_DONTWAIT);
            out << (got > 0 ? std::string(record, size_t(got)) : std::string()) << '\0';
        }
        return 0;
    });
    int status = child.wait();
    skipped = status == kNoNamespace;
    std::vector<std::string> records;
    std::ifstream in(report);
    for (std::string record; std::getline(in, record, '\0');)
        records.push_back(record);
    std::ifstream err(stderrFile);
    std::stringstream text;
    text << err.rdbuf();
    errors = text.str();
    return records;
}

// The message part of a syslog record: what follows "ident: ".
std::string message(const std::string &record)
{
    size_t colon = record.find(": ");
    return colon == std::string::npos ? record : record.substr(colon + 2);
}

TEST(Logx, WritesStandardErrorAndSyslogAtErrorSeverity)
{
    std::string long512(512, 'a'), long513(513, 'b');
    std::string errors;
    bool skipped = false;
    const std::vector<std::function<void()>> calls = {
        [] { logx(LOGX_INFO, "x=%d", 5); },
        [] { logx(LOGX_CAMERA, "up"); },
        [&] { logx(LOGX_EXCEPTION, "%s", long512.c_str()); },
        [&] { logx(LOGX_WARNING, "long:%s", long513.c_str()); },
        [] { logx(9, "no prefix"); },
    };
    auto records = logInChild([&](size_t call) { calls[call](); }, calls.size(), errors, skipped);
    if (skipped) {
        if (getenv("CI") && std::string(getenv("CI")) == "true")
            FAIL() << "no private mount namespace (the suite needs root)";
        GTEST_SKIP() << "no private mount namespace (the suite needs root)";
    }
    ASSERT_EQ(records.size(), 5u);
    for (const std::string &record : records)
        EXPECT_EQ(record.substr(0, 4), "<11>") << "user facility, error severity: " << record;
    EXPECT_EQ(message(records[0]), "[INFO] x=5");
    EXPECT_EQ(message(records[1]), "ipcam: up");
    EXPECT_EQ(message(records[2]), "[XCEPTION] " + long512);
    EXPECT_EQ(message(records[3]), "logx(long:%s) buffer overflow");
    EXPECT_EQ(message(records[4]), "no prefix");
    EXPECT_EQ(errors, "[INFO] x=5\nipcam: up\n[XCEPTION] " + long512 + "\nno prefix\n");
}

TEST(Logx, AlwaysReturnsZero)
{
    std::string out = captureStderr([] { EXPECT_EQ(logx(LOGX_ERROR, "%s", "fine"), 0); });
    EXPECT_EQ(out, "[ERROR] fine\n");
    EXPECT_EQ(logx(LOGX_ERROR, "%s", std::string(600, 'z').c_str()), 0);
}

} // namespace
