#include "gvx_common/socket/common_socket_stream.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>

#include <ace/OS_NS_errno.h>
#include <ace/SOCK_Connector.h>

#include "base/bounded_string.h"
#include "base/clock.h"
#include "base/log.h"

namespace {

constexpr char kTitle[] = "Socket stream";

std::int64_t ToMilliseconds(const ACE_Time_Value& value) {
    constexpr std::int64_t kDay = 24 * 3600;
    return std::clamp<std::int64_t>(value.sec(), 0, kDay) * 1000 + value.usec() / 1000;
}

// Brings the last system error back at the end of its scope.
class KeptError {
public:
    KeptError() = default;
    ~KeptError() { ACE_OS::last_error(m_error); }
    KeptError(const KeptError&) = delete;
    KeptError& operator=(const KeptError&) = delete;

    int Value() const { return m_error; }

private:
    const int m_error = ACE_OS::last_error();
};

}  // namespace

CCommonSocketStream::CCommonSocketStream()
    : m_tvConnect(CONNECT_TIME), m_tvSend(DEF_TIME_OUT), m_tvRecv(DEF_TIME_OUT) {}

CCommonSocketStream::~CCommonSocketStream() {
    m_stream.close();
}

int CCommonSocketStream::Connect(const char* host, std::uint16_t port, std::uint32_t localAddr) {
    const auto failed = [port](const char* peer) {
        const KeptError error;
        GVX_LOG_ERR(kTitle, "Failed to connect to the remote server [%s:%d], errorno:%d.", peer, port, error.Value());
        return 1;
    };
    {
        const KeptError error;
        m_stream.close();
    }
    if (host == nullptr) {
        return failed("null");
    }
    if (strncpy_s(m_szPeerAddr, sizeof(m_szPeerAddr), host, std::strlen(host)) != 0) {
        GVX_LOG_ERR(kTitle, "strncpy_s m_szPeerAddr failed!");
        return 1;
    }
    m_usPeerPort = port;
    const auto leftMs = [this] {
        return EndOfWait(m_tvConnect, EndOfCall(m_tvConnect)) - gvx::MonotonicMilliseconds();
    };
    if (leftMs() <= 0) {
        ACE_OS::last_error(ETIME);
        return failed(m_szPeerAddr);
    }
    if (m_addr.set(m_usPeerPort, m_szPeerAddr, 1, AF_INET) != 0 ||
        m_localAddr.set(static_cast<u_short>(0), localAddr) != 0) {
        return failed(m_szPeerAddr);
    }
    const std::int64_t limitMs = leftMs();  // looking the name up may have taken the rest
    if (limitMs <= 0) {
        ACE_OS::last_error(ETIME);
        return failed(m_szPeerAddr);
    }
    // The connector takes a socket that is there already; one that it makes itself would survive an exec.
    m_stream.set_handle(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, IPPROTO_TCP));
    if (m_stream.get_handle() == ACE_INVALID_HANDLE) {
        return failed(m_szPeerAddr);
    }
    const ACE_Time_Value limit(limitMs / 1000, static_cast<suseconds_t>(limitMs % 1000) * 1000);
    ACE_SOCK_Connector connector;
    if (connector.connect(m_stream, m_addr, &limit, m_localAddr) != 0) {
        const KeptError error;
        m_stream.close();
        ACE_OS::last_error(error.Value());
        return failed(m_szPeerAddr);
    }
    SetSockNoBlock(m_stream.get_handle());
    return 0;
}

void CCommonSocketStream::SetSockNoBlock(ACE_HANDLE handle) {
    const int flags = ::fcntl(handle, F_GETFL);
    if (flags == -1) {
        GVX_LOG_ERR(kTitle, " errno: %d.", ACE_OS::last_error());
        return;
    }
    if (::fcntl(handle, F_SETFL, flags | O_NONBLOCK) == -1) {
        GVX_LOG_ERR(kTitle, " errno: %d.", ACE_OS::last_error());
    }
}

std::int64_t CCommonSocketStream::EndOfCall(const ACE_Time_Value& timeout) const {
    return m_deadlineMs != 0 ? m_deadlineMs
                             : gvx::MonotonicMilliseconds() +
                                   std::max<std::int64_t>(kLongestCallSeconds * 1000, ToMilliseconds(timeout));
}

std::int64_t CCommonSocketStream::EndOfWait(const ACE_Time_Value& timeout, std::int64_t callEndMs) const {
    return std::min(gvx::MonotonicMilliseconds() + ToMilliseconds(timeout), callEndMs);
}

bool CCommonSocketStream::WaitReady(short events, std::int64_t untilMs, std::int64_t callEndMs) {
    if (m_stream.get_handle() == ACE_INVALID_HANDLE) {
        ACE_OS::last_error(EBADF);  // poll passes over an invalid handle and waits
        return false;
    }
    while (true) {
        const std::int64_t now = gvx::MonotonicMilliseconds();
        if (now >= callEndMs) {
            // Also when there is something to do: a peer that never pauses would hold the caller for ever.
            ACE_OS::last_error(ETIME);
            return false;
        }
        const std::int64_t left = std::clamp<std::int64_t>(untilMs - now, 0, INT_MAX);
        pollfd ready{m_stream.get_handle(), events, 0};
        const int count = ::poll(&ready, 1, static_cast<int>(left));
        if (count > 0) {
            return true;
        }
        if (count == 0 || left == 0) {
            ACE_OS::last_error(ETIME);
            return false;
        }
        if (errno != EINTR) {
            return false;
        }
    }
}

ssize_t CCommonSocketStream::Send(const char* data, unsigned int nDataLen) {
    if (data == nullptr) {
        return -1;
    }
    ACE_OS::last_error(0);
    const std::int64_t callEndMs = EndOfCall(m_tvSend);
    unsigned int sent = 0;
    while (sent < nDataLen && WaitReady(POLLOUT, EndOfWait(m_tvSend, callEndMs), callEndMs)) {
        const ssize_t count = ::send(m_stream.get_handle(), data + sent, nDataLen - sent, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (count > 0) {
            sent += static_cast<unsigned int>(count);
        } else if (count == 0 || (errno != EAGAIN && errno != EINTR)) {
            break;
        }
    }
    if (sent != nDataLen) {
        const KeptError error;
        GVX_LOG_ERR(kTitle, "size:%lu,nDataLen:%u, ACE_OS last_error: %d", static_cast<unsigned long>(sent), nDataLen,
                    error.Value());
        return -1;
    }
    return sent;
}

ssize_t CCommonSocketStream::RecvUntil(char* buffer, unsigned int size, int flags, std::int64_t callEndMs) {
    const std::int64_t untilMs = EndOfWait(m_tvRecv, callEndMs);
    while (WaitReady(POLLIN, untilMs, callEndMs)) {
        const ssize_t count = ::recv(m_stream.get_handle(), buffer, size, flags | MSG_DONTWAIT);
        if (count >= 0 || (errno != EAGAIN && errno != EINTR)) {
            return count;
        }
    }
    return -1;
}

ssize_t CCommonSocketStream::Recv(char* buffer, unsigned int size, int flags) {
    return buffer == nullptr ? -1 : RecvUntil(buffer, size, flags, EndOfCall(m_tvRecv));
}

ssize_t CCommonSocketStream::RecvEx(char* buffer, unsigned int size, bool bLog, int flags) {
    if (buffer == nullptr) {
        return -1;
    }
    const std::int64_t callEndMs = EndOfCall(m_tvRecv);
    unsigned int received = 0;
    while (received < size) {
        const ssize_t nRecvLength = RecvUntil(buffer + received, size - received, flags, callEndMs);
        if (nRecvLength < 1) {
            if (bLog) {
                const KeptError error;
                GVX_LOG_ERR(kTitle, "The param of nRecvLength is %d.", static_cast<int>(nRecvLength));
            }
            return -1;
        }
        received += static_cast<unsigned int>(nRecvLength);
    }
    return received;
}

ssize_t CCommonSocketStream::Recv_n(char* buffer, unsigned int size) {
    return RecvEx(buffer, size, true, 0);
}

ACE_Time_Value* CCommonSocketStream::TimeoutOf(int type) {
    switch (type) {
        case RECV_TYPE:
            return &m_tvRecv;
        case SEND_TYPE:
            return &m_tvSend;
        case CONNECT_TYPE:
            return &m_tvConnect;
        default:
            return nullptr;
    }
}

void CCommonSocketStream::SetTimeout(SocketType type, const ACE_Time_Value& value) {
    ACE_Time_Value* timeout = TimeoutOf(type);
    if (timeout == nullptr) {
        GVX_LOG_ERR(kTitle, "Socket stream set timeout, The socket type is [%d].", static_cast<int>(type));
        return;
    }
    *timeout = value;
}

void CCommonSocketStream::GetTimeout(SocketType type, ACE_Time_Value& value) {
    const ACE_Time_Value* timeout = TimeoutOf(type);
    if (timeout == nullptr) {
        GVX_LOG_ERR(kTitle, "Socket stream get timeout, The socket type is [%d].", static_cast<int>(type));
        return;
    }
    value = *timeout;
}

void CCommonSocketStream::Close() {
    GVX_LOG_INFO(kTitle, "Close socket stream [%s:%d].", m_szPeerAddr, m_usPeerPort);
    m_stream.close();
}

std::string CCommonSocketStream::GetSocketPeerIP() const {
    ACE_INET_Addr peer;
    char text[INET_ADDRSTRLEN] = {};
    if (m_stream.get_remote_addr(peer) != 0 || peer.get_host_addr(text, sizeof(text)) == nullptr) {
        return std::string();
    }
    return text;
}
