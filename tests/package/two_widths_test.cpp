// A 32-bit and a 64-bit process share one ring buffer and one message
// channel: every frame and record crosses whole, both ways.
#include "support/child.h"
#include "support/ipc_keys.h"
#include "width_exchange.h"

#include <gtest/gtest.h>

#include <string>

using namespace tarvo::test;

TEST(TwoWidths, FramesAndRecordsCrossWholeBothWays)
{
    IpcKeys keys;
    int channelKey = keys.next(), profile = keys.profileNumber();
    msgDetach(msgInitial(channelKey)); // made before either side opens it
    std::string channelArg = std::to_string(channelKey), profileArg = std::to_string(profile);
    Child peer([&] {
        execl(WIDTH_PEER, WIDTH_PEER, channelArg.c_str(), profileArg.c_str(), nullptr);
        return 127;
    });
    Child self([&] { return widths::exchange(channelKey, profile, true); });
    int peerResult = peer.wait();
    EXPECT_EQ(peerResult, 0) << "the 32-bit side";
    EXPECT_EQ(peerResult == 0 ? self.wait() : self.killAndWait(), 0) << "the 64-bit side";
}
