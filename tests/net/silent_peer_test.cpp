// The one test that waits out a whole receive: a server that takes the
// connection and never answers costs about 100 one-second waits (the
// e-mail client, which sends nothing more after a missing greeting).
#include "tarvo/mailupload.h"

#include "loopback_port.h"

#include <gtest/gtest.h>

using namespace tarvo::test;

TEST(SilentPeer, GreetingWaitEndsAfterAHundredSeconds)
{
    LoopbackPort listening(AF_INET, true);
    MailJob job;
    mailInit(&job);
    job.server = const_cast<char *>("127.0.0.1");
    job.port = listening.port();
    job.user = job.password = const_cast<char *>("cam");
    job.from = job.to1 = const_cast<char *>("cam@example.test");
    EXPECT_EQ(mailUpload(&job, nullptr, 0), -102);
    EXPECT_EQ(job.reply, -2) << "nothing received";
    EXPECT_EQ(job.sock, -1);
}
