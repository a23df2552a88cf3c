// HTTP notifications to nginx with Basic authentication on loopback: the
// answers a caller sees, and the requests as nginx logged them.
#include "tarvo/httpnotify.h"

#include "loopback_port.h"
#include "peer_process.h"

#include "support/capture.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <ctime>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

using namespace tarvo::test;

namespace
{

class HttpNotify : public ::testing::Test
{
  protected:
    void SetUp() override
    {
        nginx_ = std::make_unique<PeerProcess>(
            "nginx_peer.py", std::vector<std::string>{folder_.path(), "cam", "secret"});
        TARVO_REQUIRE_PEER(*nginx_);
        prepare();
    }

    // A cleared record aimed at nginx, without credentials or template.
    void prepare()
    {
        job_ = HttpJob{};
        httpInit(&job_);
        job_.host = "127.0.0.1";
        job_.port = nginx_->port();
        job_.user = job_.password = job_.url = "";
    }

    // Every request nginx logged ("line|Host|Authorization|status"), but
    // the launcher's own probe; nginx is stopped first.
    std::vector<std::string> logged()
    {
        nginx_->stop();
        std::vector<std::string> lines;
        std::ifstream log(folder_.path() + "/access.log");
        for (std::string line; std::getline(log, line);)
            if (line.rfind("GET /probe ", 0) != 0)
                lines.push_back(line);
        return lines;
    }

    TempDir folder_;
    std::unique_ptr<PeerProcess> nginx_;
    HttpJob job_{};
};

constexpr char kCredentials[] = "Basic Y2FtOnNlY3JldA==";

TEST_F(HttpNotify, StatusAndStatusTextOfEachAnswer)
{
    struct Case {
        const char *user, *password, *url, *event, *message;
        int status;
        const char *statusText, *target;
    };
    const std::vector<Case> cases = {
        {"cam", "secret", "/cgi/notify?e=#s&m=#m", "", nullptr, 200, "200 OK",
         "/cgi/notify?e=detected&m=error"},
        {"", "", "/cgi/notify?e=#s", "door", nullptr, 401, "401 Unauthorized",
         "/cgi/notify?e=door"},
        {"cam", "wrong", "/cgi/notify", "", "", 401, "401 Unauthorized", "/cgi/notify"},
        {"cam", "secret", "/missing/#s?m=#m", "a b/c", "x&y=1", 404, "404 Not Found",
         "/missing/a+b%2Fc?m=x%26y%3D1"},
    };
    std::vector<std::string> expected;
    for (const Case &c : cases) {
        prepare();
        job_.user = c.user;
        job_.password = c.password;
        job_.url = c.url;
        job_.message = c.message;
        strcpy(job_.event, c.event);
        EXPECT_EQ(httpNotify(&job_), 0) << c.url;
        EXPECT_EQ(job_.result, 0);
        EXPECT_EQ(job_.status, c.status) << c.url;
        EXPECT_STREQ(job_.buf, c.statusText);
        EXPECT_EQ(job_.sock, -1);
        EXPECT_STREQ(job_.path, c.target);
        std::string auth = c.user[0] ? job_.auth : "-";
        expected.push_back(std::string("GET ") + c.target + " HTTP/1.1|127.0.0.1|" + auth + "|" +
                           std::to_string(c.status));
    }
    EXPECT_STREQ(job_.event, "a b/c");
    EXPECT_EQ(logged(), expected);
}

// "MM/DD/YYYY hh:mm:ss" of a moment, URL-encoded as the template puts it.
std::string encodedTime(time_t moment)
{
    tm local{};
    localtime_r(&moment, &local);
    char text[64];
    strftime(text, sizeof text, "%m%%2F%d%%2F%Y+%H%%3A%M%%3A%S", &local);
    return text;
}

TEST_F(HttpNotify, TemplateMarkers)
{
    job_.url = "/cgi/notify?t=#t&h=##s&x=#x&e=#s#";
    strcpy(job_.event, "on");
    time_t before = time(nullptr);
    EXPECT_EQ(httpNotify(&job_), 0);
    time_t after = time(nullptr);
    std::string target = job_.path;
    bool timeMatches = false;
    for (time_t moment = before; moment <= after; moment++)
        timeMatches |= target == "/cgi/notify?t=" + encodedTime(moment) + "&h=#on&x=#x&e=on#";
    EXPECT_TRUE(timeMatches) << target;
    std::vector<std::string> lines = logged();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].substr(0, lines[0].find('|')), "GET " + target + " HTTP/1.1");
}

TEST_F(HttpNotify, CredentialsCarryOverAndAnEmptyTemplateSendsThePath)
{
    job_.user = "cam";
    job_.password = "secret";
    job_.url = "/cgi/notify?first=#s";
    EXPECT_EQ(httpNotify(&job_), 0);
    EXPECT_EQ(job_.status, 200);
    EXPECT_STREQ(job_.auth, kCredentials);

    job_.user = job_.password = job_.url = "";
    strcpy(job_.path, "/cgi/notify?second");
    EXPECT_EQ(httpNotify(&job_), 0);
    EXPECT_EQ(job_.status, 200) << "the old credentials are still sent";

    httpInit(&job_);
    strcpy(job_.path, "/cgi/notify?third");
    EXPECT_EQ(httpNotify(&job_), 0);
    EXPECT_EQ(job_.status, 401);

    EXPECT_EQ(logged(),
              (std::vector<std::string>{
                  "GET /cgi/notify?first=detected HTTP/1.1|127.0.0.1|" + std::string(kCredentials) +
                      "|200",
                  "GET /cgi/notify?second HTTP/1.1|127.0.0.1|" + std::string(kCredentials) + "|200",
                  "GET /cgi/notify?third HTTP/1.1|127.0.0.1|-|401",
              }));
}

TEST_F(HttpNotify, RefusedInputSendsNothing)
{
    std::string longUser(187 - 7, 'u'), longMessage(300, '/');
    struct Case {
        const char *what;
        const char *user, *password, *url, *message;
        int returned, result;
    };
    const std::vector<Case> cases = {
        {"null url", "", "", nullptr, nullptr, -1, 7},
        {"null user", nullptr, "", "/x", nullptr, -1, 7},
        {"pair longer than the authorization holds", longUser.c_str(), "secret", "/cgi/notify",
         nullptr, -102, -102},
        {"template longer than the path holds", "", "", "/cgi/notify?m=#m", longMessage.c_str(),
         -102, -102},
    };
    for (const Case &c : cases) {
        prepare();
        job_.user = c.user;
        job_.password = c.password;
        job_.url = c.url;
        job_.message = c.message;
        job_.result = 7;
        EXPECT_EQ(httpNotify(&job_), c.returned) << c.what;
        EXPECT_EQ(job_.result, c.result) << c.what;
        EXPECT_EQ(job_.status, 0) << c.what;
        EXPECT_STREQ(job_.auth, "") << c.what;
    }
    EXPECT_EQ(logged(), std::vector<std::string>{});
}

TEST_F(HttpNotify, TracesOnlyWithDebug)
{
    job_.user = "cam";
    job_.password = "secret";
    job_.url = "/cgi/notify";
    httpDebug(1);
    std::string out = captureStdout([&] { EXPECT_EQ(httpNotify(&job_), 0); });
    httpDebug(0);
    std::string request = "GET /cgi/notify HTTP/1.1\r\nHost: 127.0.0.1\r\nAuthorization: " +
                          std::string(kCredentials) + "\r\n\r\n";
    for (const std::string &line : {
             "hnotify: http connect ipv4: 127.0.0.1: " + std::to_string(nginx_->port()) + "\n",
             "hnotify: http send text data: " + std::to_string(request.size()) + " bytes\n" +
                 request + "\n",
             std::string("\nhnotify: http recv data: "),
             std::string("\nhnotify: Got http response: 200 OK\nhnotify: http close!\n"),
         })
        EXPECT_NE(out.find(line), std::string::npos) << line << " in\n" << out;
    EXPECT_EQ(captureStdout([&] { EXPECT_EQ(httpNotify(&job_), 0); }), "");
}

TEST(HttpNotifyWithoutServer, ConnectFailureIsResult101)
{
    LoopbackPort closed(AF_INET, false);
    HttpJob job{};
    httpInit(&job);
    job.host = "127.0.0.1";
    job.port = closed.port();
    job.user = job.password = "";
    job.url = "/cgi/notify";
    EXPECT_EQ(httpNotify(&job), -101);
    EXPECT_EQ(job.result, -101);
    EXPECT_EQ(job.status, 0);
    EXPECT_EQ(job.sock, -1);
}

} // namespace
