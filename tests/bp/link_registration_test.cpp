#include "bp/link_fixture.h"

#include "base/zvs_error.h"
#include "bp/registration.h"
#include "nss/nss_msg_type.h"

#include <atomic>
#include <cerrno>
#include <ctime>
#include <map>

#include <fcntl.h>

namespace {

using Registration = LinkFixture;

int Connect(const FakeListener& mediaUnit, bool retry = true) {
    return BP::CNetFactory::CreateClientLink("GVX#001", 30105, "127.0.0.1", mediaUnit.Port(), nullptr, retry, 0);
}

TEST_F(Registration, IncomingLinkTakesThePeersIdentifierAndCarriesFramesBothWays) {
    StartListening();
    auto peer = FakePeer::Connect(m_port);
    ASSERT_NE(nullptr, peer);
    std::string answered;
    EXPECT_EQ(0u, peer->Register("SCU#001", &answered));
    EXPECT_EQ("GVX#001", answered);
    ASSERT_TRUE(WaitForEvents(1));
    EXPECT_EQ(std::vector<std::string>{"opened SCU#001 10105"}, Events());
    EXPECT_TRUE(Exchanges(*peer, "SCU#001"));
    EXPECT_TRUE(Has([](const BP::CCmd& frame) {
        return frame.GetReqID() == kType && frame.GetNetElemType() == 10105 &&
               frame.GetMsgBlock()->length() == kNssHeaderBytes && frame.GetTimestamp() > 0 &&
               frame.GetTimestamp() <= std::time(nullptr);
    }));
    // The frame is counted when the system has taken it, which may be after the peer has read it.
    EXPECT_TRUE(WaitUntil([] { return BP::CNetFactory::Links().at(0).framesOut == 1; }));
    EXPECT_EQ(peer->LocalPort(), BP::CNetFactory::Links().at(0).port);
    peer->Close();
    ASSERT_TRUE(WaitForEvents(2));
    EXPECT_EQ("closed SCU#001 10105", Events()[1]);
    EXPECT_EQ(0u, OpenLinks());
}

TEST_F(Registration, FramesBehindTheRegistrationInOneWriteAreKept) {
    StartListening();
    auto peer = FakePeer::Connect(m_port);
    const std::string body = FakePeer::MakeItem(NSS_TAG_JSON_CONTENT, "{\"LinkID\":\"OMU#7\"}");
    ASSERT_TRUE(peer->SendRaw(FakePeer::MakeFrame(NSS_BP_REGISTER_REQ, 5, "t", 0, body) +
                              FakePeer::MakeFrame(kType, 1, "first") + FakePeer::MakeFrame(kType, 2, "second")));
    const auto answer = peer->ReadFrame();
    ASSERT_TRUE(answer.has_value());
    EXPECT_EQ(5u, answer->head.uiSeqID);
    EXPECT_EQ("t", answer->Transaction());
    EXPECT_TRUE(WaitUntil([&] {
        return Has(
            [](const BP::CCmd& frame) { return frame.GetTransID() == "second" && frame.GetNetElemType() == 60105; });
    }));
    EXPECT_TRUE(Has([](const BP::CCmd& frame) { return frame.GetTransID() == "first"; }));
}

TEST_F(Registration, SecondRegistrationOfAnIdentifierReplacesTheOlderLink) {
    StartListening();
    auto older = RegisteredPeer("SCU#001");
    auto newer = RegisteredPeer("SCU#001");
    EXPECT_TRUE(older->ReadUntilClosed());
    ASSERT_TRUE(WaitForEvents(3));
    EXPECT_EQ((std::vector<std::string>{"opened SCU#001 10105", "closed SCU#001 10105", "opened SCU#001 10105"}),
              Events());
    EXPECT_EQ(1u, m_log->Count("replaced: the identifier registered anew", "Link closed"));
    EXPECT_TRUE(Exchanges(*newer, "SCU#001"));
    EXPECT_EQ(1u, OpenLinks());
}

TEST_F(Registration, RefusedAnswerClosesTheOutgoingLinkOnce) {
    StartListening();
    FakeListener mediaUnit;
    ASSERT_EQ(0, Connect(mediaUnit, false));
    auto peer = mediaUnit.Accept();
    ASSERT_NE(nullptr, peer);
    peer->AnswerRegistration("MU#001", 77);
    EXPECT_TRUE(peer->ReadUntilClosed());
    EXPECT_TRUE(m_log->WaitFor("the peer refused the registration with code 77"));
    EXPECT_TRUE(Events().empty());
    // Made once only, so the place is free again.
    EXPECT_TRUE(WaitUntil([&] { return Connect(mediaUnit, false) == 0; }));
}

TEST_F(Registration, EventsMayUseTheLinks) {
    FakeListener mediaUnit;
    std::atomic<int> results{-1};
    BP::LinkEvents events;
    events.opened = [&](const std::string&, int type, const std::string& link, const std::string&, unsigned int) {
        if (type == 10105) {
            results = Send(link, Frame(kType, "greeting", 0)) + Connect(mediaUnit);
        }
    };
    ASSERT_EQ(0, BP::CNetFactory::Start(BP::LinkOptions{"GVX#001"}, events));
    ASSERT_EQ(0, BP::CNetFactory::Listen("127.0.0.1", 0, &m_port));
    auto peer = RegisteredPeer("SCU#001");
    const auto greeting = peer->ReadFrame();
    ASSERT_TRUE(greeting.has_value());
    EXPECT_EQ("greeting", greeting->Transaction());
    auto unit = mediaUnit.Accept();
    ASSERT_NE(nullptr, unit);
    EXPECT_EQ("GVX#001", unit->AnswerRegistration("MU#001"));
    EXPECT_TRUE(WaitUntil([&] { return results == 0; }));
    BP::CNetFactory::Stop();
}

// Descriptor numbers from 3 on, each with its flags.
std::map<int, int> Descriptors() {
    std::map<int, int> found;
    for (int fd = 3; fd < 1024; ++fd) {
        const int flags = ::fcntl(fd, F_GETFD);
        if (flags != -1) {
            found[fd] = flags;
        }
    }
    return found;
}

TEST_F(Registration, StopClosesAllWithEventsGivesDescriptorsBackAndAllowsAnotherStart) {
    const std::map<int, int> before = Descriptors();
    for (std::size_t round = 1; round <= 2; ++round) {
        StartListening();
        EXPECT_EQ(ZVS_FAIL, BP::CNetFactory::Start(BP::LinkOptions{"GVX#001"}, BP::LinkEvents()));
        FakeListener mediaUnit;
        ASSERT_EQ(0, Connect(mediaUnit));
        auto unit = mediaUnit.Accept();
        ASSERT_NE(nullptr, unit);
        unit->AnswerRegistration("MU#001");
        auto scu = RegisteredPeer("SCU#001");
        auto silent = FakePeer::Connect(m_port);
        ASSERT_TRUE(WaitUntil([] { return OpenLinks() == 2; }));
        for (const auto& [fd, flags] : Descriptors()) {
            EXPECT_TRUE(before.count(fd) == 1 || (flags & FD_CLOEXEC) != 0) << "descriptor " << fd;
        }
        BP::CNetFactory::Stop();
        EXPECT_EQ(4u * round, Events().size());
        EXPECT_TRUE(scu->ReadUntilClosed());
        EXPECT_TRUE(unit->ReadUntilClosed());
        EXPECT_TRUE(silent->ReadUntilClosed());
        EXPECT_EQ(nullptr, FakePeer::Connect(m_port));
        EXPECT_EQ(ZVS_NET_SEND_ERROR, Send("SCU#001", Frame(kType, "late", 0)));
    }
    EXPECT_EQ(before.size(), Descriptors().size());
}

TEST_F(Registration, BadArgumentsAreRefusedWithTheirCode) {
    EXPECT_EQ(ZVS_PARA_INVALID, BP::CNetFactory::Start(BP::LinkOptions{"no separator"}, BP::LinkEvents()));
    EXPECT_EQ(ZVS_NET_BIND_ERROR, BP::CNetFactory::Listen("127.0.0.1", 0, nullptr));
    StartListening();
    errno = 0;
    EXPECT_EQ(ZVS_NET_BIND_ERROR, BP::CNetFactory::Listen("127.0.0.1", m_port, nullptr));
    EXPECT_EQ(EADDRINUSE, errno);
    EXPECT_EQ(ZVS_NET_BIND_ERROR, BP::CNetFactory::Listen("nowhere", 0, nullptr));
    EXPECT_EQ(EINVAL, errno);
    struct Row {
        const char* ip;
        int port;
        const char* local;
    };
    const Row rows[] = {{"", 1, nullptr},          {nullptr, 1, nullptr},         {"host.name", 1, nullptr},
                        {"127.0.0.1", 0, nullptr}, {"127.0.0.1", 70000, nullptr}, {"127.0.0.1", 1, "x"}};
    for (const Row& row : rows) {
        EXPECT_EQ(ZVS_PARA_INVALID,
                  BP::CNetFactory::CreateClientLink("GVX#001", 1, row.ip, row.port, row.local, true, 0));
    }
    EXPECT_EQ(ZVS_PARA_INVALID, BP::CNetFactory::CreateClientLink("nobody", 1, "127.0.0.1", 1, nullptr, true, 0));
    EXPECT_EQ(ZVS_NULL_POINTER, BP::CNetFactory::Send("SCU#001", nullptr));
    auto peer = RegisteredPeer("SCU#001");
    ACE_Message_Block* broken = Frame(kType, "t", 10);
    broken->wr_ptr(broken->wr_ptr() - 1);
    EXPECT_EQ(ZVS_PARA_INVALID, Send("SCU#001", broken));
    // The first name in order decides what the other side is.
    const std::pair<const char*, int> types[] = {{"OMU#1", 60105},   {"MU#1SCU", 10105}, {"MU#1", 30105},
                                                 {"IMGU#1", 240105}, {"GVX#1", 40105},   {"scu#1", 80105}};
    for (const auto& [link, type] : types) {
        EXPECT_EQ(type, BP::ElementTypeOf(link)) << link;
    }
}

}  // namespace
