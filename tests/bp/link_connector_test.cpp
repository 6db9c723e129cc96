#include "bp/link_fixture.h"

#include "base/zvs_error.h"
#include "bp/link_connector.h"

namespace {

using LinkReconnect = LinkFixture;

TEST_F(LinkReconnect, OutgoingLinkComesBackAfterThePeerRestartsUntilItIsDeleted) {
    BP::LinkOptions options;
    options.backoffMinMs = 20;
    options.backoffMaxMs = 100;
    StartListening(options);
    auto unit = std::make_unique<FakeListener>();
    const std::uint16_t port = unit->Port();
    const auto create = [port] {
        return BP::CNetFactory::CreateClientLink("GVX#001", 30105, "127.0.0.1", port, "127.0.0.1", true, 1000);
    };
    ASSERT_EQ(0, create());
    EXPECT_EQ(ZVS_FAIL, create());
    auto peer = unit->Accept();
    ASSERT_NE(nullptr, peer);
    EXPECT_EQ("GVX#001", peer->AnswerRegistration("MU#001"));
    ASSERT_TRUE(WaitForEvents(1));
    peer.reset();
    unit.reset();
    ASSERT_TRUE(WaitForEvents(2));
    ASSERT_TRUE(m_log->WaitFor("connect failed: Connection refused"));
    unit = std::make_unique<FakeListener>(port);
    ASSERT_TRUE(unit->Valid());
    peer = unit->Accept();
    ASSERT_NE(nullptr, peer);
    peer->AnswerRegistration("MU#001");
    ASSERT_TRUE(WaitForEvents(3));
    EXPECT_TRUE(Exchanges(*peer, "MU#001"));
    // However often it was tried, an operator reads of it once.
    EXPECT_EQ(1u, m_log->Count("connect failed", "Link closed"));
    EXPECT_EQ(0, BP::CNetFactory::DeleteClientLinkByAddr("127.0.0.1", port, 30105));
    EXPECT_TRUE(peer->ReadUntilClosed());
    ASSERT_TRUE(WaitForEvents(4));
    EXPECT_EQ((std::vector<std::string>{"opened MU#001 30105", "closed MU#001 30105", "opened MU#001 30105",
                                        "closed MU#001 30105"}),
              Events());
    EXPECT_EQ(ZVS_FAIL, BP::CNetFactory::DeleteClientLinkByAddr("127.0.0.1", port, 30105));
}

TEST_F(LinkReconnect, PeerThatNeverAnswersDelaysNobody) {
    BP::LinkOptions options;
    options.registerTimeoutMs = 500;
    options.backoffMinMs = 20;
    StartListening(options);
    FakeListener mute;
    ASSERT_EQ(0, BP::CNetFactory::CreateClientLink("GVX#001", 30105, "127.0.0.1", mute.Port(), nullptr, true, 0));
    auto first = mute.Accept();
    ASSERT_NE(nullptr, first);
    auto healthy = RegisteredPeer("SCU#001");
    EXPECT_TRUE(Exchanges(*healthy, "SCU#001"));
    EXPECT_TRUE(first->ReadUntilClosed());
    EXPECT_TRUE(m_log->WaitFor("never registered: silence"));
    EXPECT_TRUE(WaitUntil([&] {  // an answer that comes too late is none
        const auto impostor = mute.Accept();
        return impostor != nullptr && !impostor->AnswerRegistration("GVX#000").empty() && impostor->ReadUntilClosed() &&
               m_log->Contains("the peer is not of the kind that this link was made for");
    }));
    EXPECT_EQ(1u, OpenLinks());
}

TEST(LinkConnector, WaitDoublesUpToTheLimitAndStartsAnewAfterALinkThatLived) {
    BP::ConnectorOptions options;
    options.backoffMinMs = 100;
    options.backoffMaxMs = 400;
    BP::LinkConnector connector(BP::ConnectorKey(), options);
    std::int64_t now = 1000;
    for (const int wait : {100, 200, 400, 400}) {
        connector.AttemptBegins();
        EXPECT_FALSE(connector.Idle());
        connector.AttemptEnded(now);
        EXPECT_TRUE(connector.Idle());
        EXPECT_EQ(now + wait, connector.NextAttemptMs());
        now = connector.NextAttemptMs();
    }
    // A link that is closed as soon as it is open does not shorten the wait, one that lived does.
    connector.AttemptBegins();
    connector.LinkOpened(now);
    connector.AttemptEnded(now + 1);
    EXPECT_EQ(now + 401, connector.NextAttemptMs());
    connector.AttemptBegins();
    connector.LinkOpened(now);
    connector.AttemptEnded(now + 5000);
    EXPECT_EQ(now + 5100, connector.NextAttemptMs());
}

}  // namespace
