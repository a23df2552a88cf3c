// FTP uploads to pyftpdlib over IPv4 (PASV, PORT) and GNU inetutils ftpd
// over IPv6 (LPSV, LPRT): where the files land and that they land whole.
#include "tarvo/ftpupload.h"

#include "peer.h"

#include <cstring>

using namespace tarvo::test;

namespace
{

struct FtpServer {
    const char *kind, *host;
};

class FtpServers : public RealServer, public ::testing::WithParamInterface<FtpServer>
{
  protected:
    FtpServers() : RealServer(GetParam().kind) {}

    FtpJob job(char *directory, const char *password = nullptr)
    {
        FtpJob job{};
        ftpInit(&job);
        job.host = const_cast<char *>(GetParam().host);
        job.port = peer_->port();
        job.user = const_cast<char *>(peer_->user().c_str());
        job.password = const_cast<char *>(password ? password : peer_->password().c_str());
        job.directory = directory;
        return job;
    }
};

TEST_P(FtpServers, PassiveAndActiveIntoTheDatedTreeThenAFixedNameTwice)
{
    for (int passive : {1, 0}) {
        char directory[16] = "/pub", subdir[] = "cam1";
        std::string data = snapshotBytes(150000, uint32_t(passive + 1));
        FtpJob upload = job(directory);
        upload.subdir = subdir;
        upload.passive = passive;
        time_t before = time(nullptr);
        EXPECT_EQ(ftpUpload(&upload, data.data(), unsigned(data.size())), 0) << upload.reply;
        time_t after = time(nullptr);
        EXPECT_EQ(upload.reply, 226);
        EXPECT_EQ(upload.ctrlSock, -1);
        EXPECT_EQ(upload.dataSock, -1);
        EXPECT_STREQ(directory, "pub/");
        std::string name = upload.fileName;
        EXPECT_TRUE(name.size() == 12 && isdigit(name[7]));
        EXPECT_TRUE(ofSomeSecond(upload.workDir + name.replace(7, 1, "t"),
                                 "pub/cam1/%Y%m%d/%H/%H%M%S_t.jpg", before, after))
            << upload.workDir << upload.fileName;
        EXPECT_TRUE(saved(std::string(upload.workDir) + upload.fileName) == data) << passive;
    }
    char directory[16] = "/pub/fixed";
    FtpJob fixed = job(directory);
    fixed.fixedName = 1;
    strcpy(fixed.fileName, "snap.jpg");
    for (uint32_t seed : {7u, 8u}) {
        std::string data = snapshotBytes(4000, seed);
        EXPECT_EQ(ftpUpload(&fixed, data.data(), unsigned(data.size())), 0);
        EXPECT_STREQ(fixed.workDir, "pub/fixed/");
        EXPECT_TRUE(saved("pub/fixed/snap.jpg") == data) << seed;
    }
}

TEST_P(FtpServers, WrongPasswordEndsTheLogin)
{
    char directory[16] = "pub", data[] = "x";
    FtpJob upload = job(directory, "wrong");
    EXPECT_EQ(ftpUpload(&upload, data, 1), -104);
    EXPECT_EQ(upload.reply, 530);
    EXPECT_EQ(upload.ctrlSock, -1);
}

INSTANTIATE_TEST_SUITE_P(Real, FtpServers,
                         ::testing::Values(FtpServer{"pyftpdlib", "127.0.0.1"},
                                           FtpServer{"ftpd", "::1"}),
                         [](const auto &info) { return std::string(info.param.kind); });

} // namespace
