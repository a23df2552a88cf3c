// What the three clients share, each against its real server: debug lines
// only while debug is on, refused input, and a refused connection.
#include "clients.h"
#include "peer.h"

#include "support/capture.h"

using namespace tarvo::test;

namespace
{

class EachClient : public RealServer, public ::testing::WithParamInterface<Client>
{
  protected:
    EachClient() : RealServer(GetParam().peer) {}
};

TEST_P(EachClient, TracesRefusedInputAndConnectFailure)
{
    const Client &client = GetParam();
    std::string connect = std::string(client.prefix) + "http connect ipv4: 127.0.0.1: ";
    EXPECT_EQ(client.debug(1), 1);
    std::string out = captureStdout(
        [&] { EXPECT_EQ(client.transfer("127.0.0.1", peer_->port(), 0).returned, 0); });
    EXPECT_EQ(out.rfind(connect + std::to_string(peer_->port()) + "\n", 0), 0u) << out;
    for (const std::string &piece : client.traced)
        EXPECT_NE(out.find(piece), std::string::npos) << piece << " in\n" << out;

    LoopbackPort closed(AF_INET, false);
    Outcome refused;
    out = captureStdout([&] { refused = client.transfer("127.0.0.1", closed.port(), 0); });
    EXPECT_EQ(refused.returned, -101);
    EXPECT_EQ(refused.result, -101);
    EXPECT_EQ(out, connect + std::to_string(closed.port()) + "\n" + client.prefix +
                       "http connect fail!\n");

    EXPECT_EQ(client.debug(0), 1);
    out = captureStdout([&] {
        EXPECT_EQ(client.transfer("127.0.0.1", peer_->port(), 0).returned, 0);
        for (int drop = 1; drop <= client.requiredInputs; drop++) {
            Outcome outcome = client.transfer("127.0.0.1", peer_->port(), drop);
            EXPECT_EQ(outcome.returned, -1) << "input " << drop;
            EXPECT_EQ(outcome.result, 7) << "untouched";
        }
    });
    EXPECT_EQ(out, "");
}

INSTANTIATE_TEST_SUITE_P(Clients, EachClient, ::testing::ValuesIn(kClients),
                         [](const auto &info) { return std::string(info.param.name); });

} // namespace
