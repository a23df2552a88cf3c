// FTP uploads to real servers on loopback (pyftpdlib over IPv4, GNU
// inetutils ftpd over IPv6, passive and active), and to scripted peers for
// answers no real server gives.
#include "tarvo/ftpupload.h"

#include "loopback_port.h"
#include "peer_process.h"
#include "scripted_server.h"
#include "snapshot.h"

#include "support/capture.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <ctime>
#include <map>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <vector>

using namespace tarvo::test;

namespace
{

FtpJob makeJob(const char *host, int port, const char *user, const char *password, char *directory)
{
    FtpJob job{};
    ftpInit(&job);
    job.host = const_cast<char *>(host);
    job.port = port;
    job.user = const_cast<char *>(user);
    job.password = const_cast<char *>(password);
    job.directory = directory;
    return job;
}

// Whether workDir and fileName are base + "YYYYMMDD/hh/" and "hhmmss_t.jpg"
// of a second between before and after.
bool namedByDate(const FtpJob &job, const std::string &base, time_t before, time_t after)
{
    for (time_t moment = before; moment <= after; moment++) {
        tm local{};
        localtime_r(&moment, &local);
        char dir[32], name[32];
        strftime(dir, sizeof dir, "%Y%m%d/%H/", &local);
        strftime(name, sizeof name, "%H%M%S_", &local);
        std::string fileName = job.fileName;
        if (job.workDir == base + dir && fileName.size() == 12 && fileName.rfind(name, 0) == 0 &&
            isdigit(static_cast<unsigned char>(fileName[7])) && fileName.substr(8) == ".jpg")
            return true;
    }
    return false;
}

bool isDirectory(const std::string &path)
{
    struct stat status;
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

// An FTP server on loopback whose files land in folder_.
class RealServer : public ::testing::Test
{
  protected:
    void start(const std::string &launcher, const std::vector<std::string> &arguments)
    {
        server_ = std::make_unique<PeerProcess>(launcher, arguments);
    }

    // Uploads a snapshot into /pub/cam1 by date, passive or active, and
    // checks where it landed and that it arrived whole.
    void uploadByDate(const char *host, int passive)
    {
        char directory[16] = "/pub";
        char subdir[] = "cam1";
        std::string data = snapshotBytes(150000, uint32_t(passive + 1));
        FtpJob job = makeJob(host, server_->port(), user_.c_str(), password_.c_str(), directory);
        job.subdir = subdir;
        job.passive = passive;
        time_t before = time(nullptr);
        EXPECT_EQ(ftpUpload(&job, data.data(), unsigned(data.size())), 0) << job.reply;
        time_t after = time(nullptr);
        EXPECT_EQ(job.result, 0);
        EXPECT_EQ(job.reply, 226);
        EXPECT_EQ(job.ctrlSock, -1);
        EXPECT_EQ(job.dataSock, -1);
        EXPECT_STREQ(directory, "pub/");
        EXPECT_TRUE(namedByDate(job, "pub/cam1/", before, after)) << job.workDir << job.fileName;
        EXPECT_TRUE(fileBytes(folder_.path() + "/" + job.workDir + job.fileName) == data)
            << "passive " << passive << ": " << job.workDir << job.fileName;
    }

    TempDir folder_;
    std::unique_ptr<PeerProcess> server_;
    std::string user_ = "cam", password_ = "secret";
};

class PyftpdlibUpload : public RealServer
{
  protected:
    void SetUp() override
    {
        start("ftp_peer.py", {folder_.path(), user_, password_});
        TARVO_REQUIRE_PEER(*server_);
    }
};

TEST_F(PyftpdlibUpload, PassiveAndActiveLandInTheDatedTreeMadeWithMkd)
{
    ASSERT_FALSE(isDirectory(folder_.path() + "/pub"));
    for (int passive : {1, 0})
        uploadByDate("127.0.0.1", passive);
}

TEST_F(PyftpdlibUpload, FixedNameGoesIntoTheDirectoryAsItIs)
{
    char directory[16] = "/pub/fixed";
    FtpJob job = makeJob("127.0.0.1", server_->port(), user_.c_str(), password_.c_str(), directory);
    job.fixedName = 1;
    strcpy(job.fileName, "snap.jpg");
    for (uint32_t seed : {7u, 8u}) {
        std::string data = snapshotBytes(4000, seed);
        EXPECT_EQ(ftpUpload(&job, data.data(), unsigned(data.size())), 0);
        EXPECT_STREQ(job.workDir, "pub/fixed/");
        EXPECT_STREQ(job.fileName, "snap.jpg");
        EXPECT_TRUE(fileBytes(folder_.path() + "/pub/fixed/snap.jpg") == data) << seed;
    }
}

TEST_F(PyftpdlibUpload, WrongPasswordEndsTheLogin)
{
    char directory[16] = "pub";
    std::string data = snapshotBytes(10);
    password_ = "wrong";
    FtpJob job = makeJob("127.0.0.1", server_->port(), user_.c_str(), password_.c_str(), directory);
    EXPECT_EQ(ftpUpload(&job, data.data(), 10), -104);
    EXPECT_EQ(job.reply, 530);
    EXPECT_EQ(job.ctrlSock, -1);
}

class InetutilsFtpdUpload : public RealServer
{
  protected:
    void SetUp() override
    {
        start("ftpd_peer.py", {folder_.path()});
        TARVO_REQUIRE_PEER(*server_);
        user_ = server_->value("user");
        password_ = server_->value("password");
    }
};

TEST_F(InetutilsFtpdUpload, LongPassiveAndLongPortOverIpv6)
{
    for (int passive : {1, 0})
        uploadByDate("::1", passive);
}

TEST_F(InetutilsFtpdUpload, TracesOnlyWithDebug)
{
    char directory[16] = "pub";
    std::string data = snapshotBytes(3000);
    FtpJob job = makeJob("::1", server_->port(), user_.c_str(), password_.c_str(), directory);
    ftpDebug(1);
    std::string out = captureStdout([&] { EXPECT_EQ(ftpUpload(&job, data.data(), 3000), 0); });
    ftpDebug(0);
    for (const std::string &piece :
         {"ftp: http connect ipv6: ::1: " + std::to_string(server_->port()) + "\n",
          "ftp: http send text data: " + std::to_string(7 + user_.size()) + " bytes\nUSER " +
              user_ + "\r\n\n",
          std::string("\nftp: http recv data: "), std::string("\r\n230 User "),
          std::string("ftp: http send text data: 6 bytes\nLPSV\r\n\n"),
          std::string("\nftp: http send binary data: 3000 bytes\nftp: http close!\n")}) {
        EXPECT_NE(out.find(piece), std::string::npos) << piece << " in\n" << out;
    }
    if (!fileBytes("/etc/motd").empty()) {
        EXPECT_NE(out.find("\r\n230-"), std::string::npos) << "a multi-line login reply";
    }
    EXPECT_EQ(captureStdout([&] { EXPECT_EQ(ftpUpload(&job, data.data(), 3000), 0); }), "");
}

// Answers each command by its verb until the client sends QUIT or closes.
void answerByVerb(Conversation &talk, const std::string &greeting,
                  const std::map<std::string, std::string> &answers)
{
    talk.say(greeting);
    for (std::string line; talk.hear(line);) {
        std::string verb = line.substr(0, line.find(' '));
        auto answer = answers.find(verb);
        talk.say(answer != answers.end() ? answer->second : "502 not here\r\n");
        if (verb == "QUIT")
            return;
    }
}

std::vector<std::string> verbsOf(const std::vector<std::string> &lines)
{
    std::vector<std::string> verbs;
    for (const std::string &line : lines)
        verbs.push_back(line.substr(0, line.find(' ')));
    return verbs;
}

const std::map<std::string, std::string> kLoggedIn = {
    {"USER", "331 password please\r\n"}, {"PASS", "230 in\r\n"},   {"REST", "350 ok\r\n"},
    {"TYPE", "200 binary\r\n"},          {"CWD", "250 there\r\n"}, {"QUIT", "221 bye\r\n"}};

TEST(ScriptedFtp, UserAnsweredWith230IsRefused)
{
    ScriptedServer server(AF_INET, [](Conversation &talk) {
        answerByVerb(talk, "220-Welcome\r\n220-to the peer\r\n220 ready\r\n",
                     {{"USER", "230 already in\r\n"}, {"QUIT", "221 bye\r\n"}});
    });
    char directory[8] = "pub";
    char data[] = "x";
    FtpJob job = makeJob(server.host(), server.port(), "cam", "secret", directory);
    EXPECT_EQ(ftpUpload(&job, data, 1), -103);
    EXPECT_EQ(job.reply, 230);
    EXPECT_EQ(server.finish(), (std::vector<std::string>{"USER cam", "QUIT"}));
}

TEST(ScriptedFtp, FailuresOfTheTransferSteps)
{
    LoopbackPort closed(AF_INET, false);
    std::string closedPassive = "227 Entering Passive Mode (127,0,0,1," +
                                std::to_string(closed.port() / 256) + "," +
                                std::to_string(closed.port() % 256) + ")\r\n";
    std::string family4 = "228 Entering Long Passive Mode "
                          "(4,4,127,0,0,1,0,0,0,0,0,0,0,0,0,0,0,0,2,4,1)\r\n";
    // Numbers beyond a byte: a port high byte that would wrap onto a
    // listening port, and ports that would overflow an int.
    LoopbackPort listening(AF_INET, true);
    std::string wrapped = "227 Entering Passive Mode (127,0,0,1," +
                          std::to_string(256 + listening.port() / 256) + "," +
                          std::to_string(listening.port() % 256) + ")\r\n";
    struct Case {
        const char *what;
        int family, passive;
        std::map<std::string, std::string> answers;
        int result;
        std::vector<std::string> verbs; // after the login
    };
    const std::vector<Case> cases = {
        {"LPSV answered 227",
         AF_INET6,
         1,
         {{"LPSV", "227 Entering Passive Mode (127,0,0,1,4,1)\r\n"}},
         0,
         {"CWD", "LPSV"}},
        {"LPSV refused", AF_INET6, 1, {{"LPSV", "500 no\r\n"}}, 0, {"CWD", "LPSV"}},
        {"LPSV with too few numbers",
         AF_INET6,
         1,
         {{"LPSV", "228 Entering Long Passive Mode (6,16,0,1)\r\n"}},
         -303,
         {"CWD", "LPSV"}},
        {"LPSV of another family", AF_INET6, 1, {{"LPSV", family4}}, -304, {"CWD", "LPSV"}},
        {"PASV refused", AF_INET, 1, {{"PASV", "500 no\r\n"}}, -306, {"CWD", "PASV"}},
        {"PASV port beyond a byte", AF_INET, 1, {{"PASV", wrapped}}, -307, {"CWD", "PASV"}},
        {"PASV port overflowing an int",
         AF_INET,
         1,
         {{"PASV", "227 Entering Passive Mode (127,0,0,1,16777216,1)\r\n"}},
         -307,
         {"CWD", "PASV"}},
        {"LPSV port beyond an int",
         AF_INET6,
         1,
         {{"LPSV", "228 Long Passive (6,16,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,1,2,99999999999,1)\r\n"}},
         -307,
         {"CWD", "LPSV"}},
        {"PASV to a closed port", AF_INET, 1, {{"PASV", closedPassive}}, -307, {"CWD", "PASV"}},
        {"PORT refused", AF_INET, 0, {{"PORT", "500 no\r\n"}}, -207, {"CWD", "PORT"}},
        {"LPRT refused", AF_INET6, 0, {{"LPRT", "500 no\r\n"}}, -206, {"CWD", "LPRT"}},
        {"STOR refused",
         AF_INET,
         0,
         {{"PORT", "200 ok\r\n"}, {"STOR", "550 no\r\n"}},
         -503,
         {"CWD", "PORT", "STOR"}},
        {"directory neither entered nor made",
         AF_INET,
         1,
         {{"CWD", "550 no\r\n"}, {"MKD", "550 no\r\n"}},
         -502,
         {"CWD", "CWD", "MKD"}},
        {"made directory not entered",
         AF_INET,
         1,
         {{"CWD", "550 no\r\n"}, {"MKD", "257 made\r\n"}},
         -502,
         {"CWD", "CWD", "MKD", "CWD"}},
    };
    for (const Case &c : cases) {
        std::map<std::string, std::string> answers = c.answers;
        answers.insert(kLoggedIn.begin(), kLoggedIn.end());
        ScriptedServer server(
            c.family, [&](Conversation &talk) { answerByVerb(talk, "220 ready\r\n", answers); });
        char directory[8] = "pub";
        char data[] = "snapshot";
        FtpJob job = makeJob(server.host(), server.port(), "cam", "secret", directory);
        job.passive = c.passive;
        job.fixedName = 1;
        strcpy(job.fileName, "snap.jpg");
        EXPECT_EQ(ftpUpload(&job, data, 8), c.result) << c.what;
        EXPECT_EQ(job.result, c.result) << c.what;
        std::vector<std::string> verbs = {"USER", "PASS", "REST", "TYPE"};
        verbs.insert(verbs.end(), c.verbs.begin(), c.verbs.end());
        verbs.push_back("QUIT");
        EXPECT_EQ(verbsOf(server.finish()), verbs) << c.what;
    }
}

TEST(FtpUploadWithoutServer, InputCheckedAndDirectoryNormalisedBeforeConnecting)
{
    LoopbackPort closed(AF_INET, false);
    struct Case {
        const char *directory;
        const char *subdir;
        int result;
        const char *normalised;
    };
    std::string longDirectory(240, 'd');
    const std::vector<Case> cases = {
        {"/pub", nullptr, -101, "pub/"}, {"pub/", nullptr, -101, "pub/"},
        {"/pub/", "cam1", -101, "pub/"}, {"/", nullptr, -101, "/"},
        {"", nullptr, -101, ""},         {longDirectory.c_str(), "cam1", -502, nullptr},
    };
    for (const Case &c : cases) {
        char directory[256];
        strcpy(directory, c.directory);
        char data[] = "x";
        FtpJob job = makeJob("127.0.0.1", closed.port(), "cam", "secret", directory);
        job.subdir = const_cast<char *>(c.subdir);
        EXPECT_EQ(ftpUpload(&job, data, 1), c.result) << c.directory;
        EXPECT_EQ(job.ctrlSock, -1);
        if (c.normalised) {
            EXPECT_STREQ(directory, c.normalised);
        }
    }
    char directory[8] = "pub";
    char data[] = "x";
    FtpJob job = makeJob("127.0.0.1", closed.port(), "cam", "secret", directory);
    job.result = 5;
    EXPECT_EQ(ftpUpload(&job, data, 0), -1);
    EXPECT_EQ(ftpUpload(&job, nullptr, 1), -1);
    job.user = nullptr;
    EXPECT_EQ(ftpUpload(&job, data, 1), -1);
    EXPECT_EQ(job.result, 5) << "untouched";
    EXPECT_EQ(ftpWrite(&job, data, 1), -501);
}

} // namespace
