// The one case that sits through a whole receive: a server that takes the
// connection and never answers costs the client 100 one-second waits.
#include "clients.h"
#include "peers.h"

using namespace tarvo::test;

TEST(SilentPeer, GreetingWaitEndsAfterAHundredSeconds)
{
    LoopbackPort listening(true);
    Outcome outcome = mailTransfer("127.0.0.1", listening.port, 0);
    EXPECT_EQ(outcome.result, -102);
    EXPECT_EQ(outcome.detail, -2) << "nothing received";
}
