#include "gvx_common/socket/common_socket_stream.h"

#include "support/recording_logger.h"
#include "support/scripted_server.h"
#include "support/test_clock.h"

#include <cerrno>
#include <deque>

#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/socket.h>

#include <gtest/gtest.h>

namespace {

const ACE_Time_Value kShort(0, 50000);

class SocketStream : public testing::Test {
protected:
    void Connect(const ScriptedServer& server) {
        ASSERT_EQ(0, m_stream.Connect("127.0.0.1", server.Port(), 0)) << m_log->Dump();
    }

    ScopedRecordingLogger m_log;
    CCommonSocketStream m_stream;
};

TEST_F(SocketStream, SendsReceivesAndConnectsAgainAfterClose) {
    ScriptedServer server([](ScriptedServer::Link& link) { link.Write("got " + link.ReadRequest()); });
    char bytes[16] = {};
    for (int round = 0; round < 2; ++round) {
        ASSERT_EQ(0, m_stream.Connect("localhost", server.Port(), 0x7f000002u)) << m_log->Dump();
        sockaddr_in local{};
        socklen_t length = sizeof(local);
        ASSERT_EQ(0, getsockname(m_stream.getHandle(), reinterpret_cast<sockaddr*>(&local), &length));
        EXPECT_STREQ("127.0.0.2", inet_ntoa(local.sin_addr));
        EXPECT_NE(0, fcntl(m_stream.getHandle(), F_GETFL) & O_NONBLOCK);
        EXPECT_NE(0, fcntl(m_stream.getHandle(), F_GETFD) & FD_CLOEXEC);
        EXPECT_EQ("127.0.0.1", m_stream.GetSocketPeerIP());
        EXPECT_EQ(0, m_stream.Send("", 0));
        EXPECT_EQ(6, m_stream.Send("ab\r\n\r\n", 6));
        EXPECT_EQ(4, m_stream.Recv_n(bytes, 4));
        EXPECT_EQ(2, m_stream.RecvEx(bytes + 4, 2, true, MSG_PEEK));
        EXPECT_EQ(-1, m_stream.RecvEx(bytes + 4, 12, false, 0));
        EXPECT_STREQ("got ab\r\n\r\n", bytes) << "what came stays";
        EXPECT_EQ(0, m_stream.Recv(bytes + 15, 1, 0));
        EXPECT_FALSE(m_log->Contains("nRecvLength"));
        m_stream.Close();
        EXPECT_EQ(-1, m_stream.getHandle());
        EXPECT_EQ("", m_stream.GetSocketPeerIP());
        EXPECT_EQ(-1, m_stream.Recv(bytes, 1, 0));
        EXPECT_EQ(EBADF, errno);
        EXPECT_EQ(-1, m_stream.Send("x", 1));
        EXPECT_EQ(EBADF, errno);
    }
    EXPECT_EQ(-1, m_stream.Send(nullptr, 1));
    EXPECT_EQ(-1, m_stream.Recv(nullptr, 1, 0));
    EXPECT_EQ(-1, m_stream.RecvEx(nullptr, 1, true, 0));
}

TEST_F(SocketStream, RefusesWhatItCanNotConnectTo) {
    ScriptedServer open([](ScriptedServer::Link& link) { link.WaitClosed(); });
    const std::uint16_t closed = ScriptedServer([](ScriptedServer::Link&) {}).Port();
    Connect(open);
    EXPECT_EQ(1, m_stream.Connect(nullptr, 80, 0));
    EXPECT_EQ(-1, m_stream.getHandle());
    EXPECT_EQ(1, m_stream.Connect("127.0.0.1", closed, 0));
    EXPECT_EQ(ECONNREFUSED, errno);
    EXPECT_EQ(1, m_stream.Connect("no such name", 80, 0));
    EXPECT_EQ(1, m_stream.Connect(std::string(128, '1').c_str(), 80, 0));
}

TEST_F(SocketStream, EachCallEndsAtItsTimeoutAndTheStreamStaysUsable) {
    ScriptedServer server([](ScriptedServer::Link& link) {
        link.Write(link.ReadUntil("!"));
        link.WaitClosed();
    });
    Connect(server);
    ACE_Time_Value value;
    for (const SocketType type : {RECV_TYPE, SEND_TYPE, CONNECT_TYPE}) {
        m_stream.GetTimeout(type, value);
        EXPECT_EQ(ACE_Time_Value(3), value);
    }
    m_stream.SetTimeout(static_cast<SocketType>(3), ACE_Time_Value(99));
    EXPECT_TRUE(m_log->Contains("Socket stream set timeout, The socket type is [3]."));
    m_stream.SetTimeout(RECV_TYPE, kShort);
    char byte = 0;
    EXPECT_EQ(-1, m_stream.Recv(&byte, 1, 0));
    EXPECT_EQ(ETIME, errno);
    m_stream.SetTimeout(RECV_TYPE, ACE_Time_Value(20));
    EXPECT_EQ(1, m_stream.Send("!", 1));
    EXPECT_EQ(1, m_stream.Recv(&byte, 1, 0));
    EXPECT_EQ('!', byte);
    // Nobody reads from those that wait in the queue, and who finds it full is not answered.
    std::deque<CCommonSocketStream> queue;
    do {
        queue.emplace_back().SetTimeout(CONNECT_TYPE, kShort);
    } while (queue.size() < 100 && queue.back().Connect("127.0.0.1", server.Port(), 0) == 0);
    EXPECT_EQ(ETIME, errno);
    EXPECT_EQ(-1, queue.back().getHandle());
    queue.front().SetTimeout(SEND_TYPE, kShort);
    const std::string bytes(64u << 20, 'x');
    EXPECT_EQ(-1, queue.front().Send(bytes.data(), static_cast<unsigned int>(bytes.size())));
    EXPECT_EQ(ETIME, errno);
    EXPECT_TRUE(m_log->Contains("nDataLen:67108864, ACE_OS last_error: 62")) << m_log->Dump();
}

// No single wait is long; the deadline ends them all.
TEST_F(SocketStream, DeadlineEndsAPeerThatDripsBytes) {
    ScopedTestClock clock;
    ScriptedServer server([&clock](ScriptedServer::Link& link) {
        while (link.Write("x") && link.ReadUntil("y") == "y") {
            clock->AdvanceSeconds(1);
        }
    });
    Connect(server);
    m_stream.SetDeadline(gvx::MonotonicMilliseconds() + 5000);
    char byte = 0;
    int received = 0;
    while (m_stream.Recv(&byte, 1, 0) == 1 && m_stream.Send("y", 1) == 1) {
        ++received;
    }
    EXPECT_EQ(ETIME, errno);
    EXPECT_NEAR(received, 5, 1);
    EXPECT_EQ(1, m_stream.Connect("no such name", server.Port(), 0));
    EXPECT_EQ(ETIME, errno) << "no name is looked up any more";
    m_stream.SetDeadline(0);
    Connect(server);
    EXPECT_EQ(1, m_stream.Recv(&byte, 1, 0));
}

}  // namespace
