// HTTP notifications to nginx with Basic authentication: the status a
// caller sees, and each request as nginx logged it.
#include "tarvo/httpnotify.h"

#include "peer.h"

#include <cstring>
#include <sstream>

using namespace tarvo::test;

namespace
{

class Nginx : public RealServer
{
  protected:
    Nginx() : RealServer("nginx") {}
};

TEST_F(Nginx, NotificationsInOrderAsCallerAndServerSeeThem)
{
    std::string tooLongUser(HTTP_CREDENTIALS_MAX - 6, 'u'), slashes(300, '/');
    struct Case {
        bool init; // else the record keeps what the last call left in it
        const char *user, *password, *url, *event, *message, *path;
        int returned, status;
        const char *statusText, *target; // target: a strftime pattern
    };
    const Case cases[] = {
        {true, "cam", "secret", "/cgi/notify?e=#s&m=#m", "", nullptr, "", 0, 200, "200 OK",
         "/cgi/notify?e=detected&m=error"},
        {false, "", "", "", "", nullptr, "/cgi/notify?again", 0, 200, "200 OK",
         "/cgi/notify?again"}, // the old credentials still go with it
        {true, "", "", "/cgi/notify?e=#s", "door", nullptr, "", 0, 401, "401 Unauthorized",
         "/cgi/notify?e=door"},
        {true, "cam", "wrong", "/cgi/notify", "", "", "", 0, 401, "401 Unauthorized",
         "/cgi/notify"},
        {true, "cam", "secret", "/x/#s?m=#m&t=#t&h=##s&y=#y#", "a b/c", "x&y=1", "", 0, 404,
         "404 Not Found",
         "/x/a+b%%2Fc?m=x%%26y%%3D1&t=%m%%2F%d%%2F%Y+%H%%3A%M%%3A%S&h=#a+b%%2Fc&y=#y#"},
        {true, "", "", nullptr, "", nullptr, "", -1, 0, nullptr, nullptr},
        {true, nullptr, "", "/x", "", nullptr, "", -1, 0, nullptr, nullptr},
        {true, tooLongUser.c_str(), "secret", "/cgi/notify", "", nullptr, "", -102, 0, nullptr,
         nullptr},
        {true, "", "", "/cgi/notify?m=#m", "", slashes.c_str(), "", -102, 0, nullptr, nullptr},
    };
    HttpJob job{};
    std::vector<std::string> expected;
    for (const Case &c : cases) {
        if (c.init) {
            job = HttpJob{};
            httpInit(&job);
            job.host = "127.0.0.1";
            job.port = peer_->port();
        }
        job.user = c.user, job.password = c.password, job.url = c.url, job.message = c.message;
        strcpy(job.event, c.event);
        strcpy(job.path, c.path);
        time_t before = time(nullptr);
        EXPECT_EQ(httpNotify(&job), c.returned) << c.url;
        EXPECT_EQ(job.status, c.status) << c.url;
        EXPECT_EQ(job.sock, -1);
        if (!c.target) {
            EXPECT_STREQ(job.auth, "") << "refused before the credentials were kept";
            continue;
        }
        EXPECT_EQ(job.result, 0);
        EXPECT_STREQ(job.buf, c.statusText);
        EXPECT_TRUE(ofSomeSecond(job.path, c.target, before, time(nullptr))) << job.path;
        expected.push_back(std::string("GET ") + job.path + " HTTP/1.1|127.0.0.1|" +
                           (job.auth[0] ? job.auth : "-") + "|" + std::to_string(c.status));
    }
    peer_->stop(); // the log is complete once nginx has stopped
    std::vector<std::string> logged;
    std::istringstream log(saved("access.log"));
    for (std::string line; std::getline(log, line);)
        if (line.rfind("GET /probe ", 0) != 0)
            logged.push_back(line);
    EXPECT_EQ(logged, expected);
}

} // namespace
