#pragma once

#include <cstdint>
#include <string>

#include <ace/INET_Addr.h>
#include <ace/SOCK_Stream.h>
#include <ace/Time_Value.h>

// Seconds that one connect, and one wait to send or receive, may take unless SetTimeout says otherwise.
constexpr int CONNECT_TIME = 3;
constexpr int DEF_TIME_OUT = 3;

enum SocketType { RECV_TYPE = 0, SEND_TYPE = 1, CONNECT_TYPE = 2 };

// A TCP client (IPv4) for talking to a device. Calls block, each within a limit; failures are results and log lines.
// One thread at a time uses an object. It owns its descriptor, which is close-on-exec, and closes it at its end.
//
// Two limits hold. The time-outs limit a single wait, so a peer that sends a byte now and then meets none of them. The
// deadline limits everything that is done until then; without one, a call that waits more than once (Send, RecvEx,
// Recv_n) ends after kLongestCallSeconds, or after its time-out where that is longer.
class CCommonSocketStream {
public:
    // Far beyond what a device that works needs for one request or answer.
    static constexpr int kLongestCallSeconds = 300;

    CCommonSocketStream();
    ~CCommonSocketStream();
    CCommonSocketStream(const CCommonSocketStream&) = delete;
    CCommonSocketStream& operator=(const CCommonSocketStream&) = delete;

    // host is an address or a name of at most 127 characters; the resolver's own limits hold for looking it up.
    // localAddr is the address of this host to connect from, in host byte order; 0 leaves it to the system. A stream
    // that is open is closed first, whatever comes of the rest. 0, or 1 with a log line.
    int Connect(const char* host, std::uint16_t port, std::uint32_t localAddr);

    // Sends all of data. nDataLen, or -1 for null and whenever not all of it went out; how much did is logged.
    ssize_t Send(const char* data, unsigned int nDataLen);

    // One receive: the number of bytes, 0 when the peer has closed, -1 for null or a failure. After a wait that was too
    // long the last system error is ETIME, and the stream stays usable.
    ssize_t Recv(char* buffer, unsigned int size, int flags);

    // Receives until size bytes are there, each wait within the receive time-out. size, or -1 when that failed: what
    // came stays in the buffer. bLog says whether the failure is worth a log line.
    ssize_t RecvEx(char* buffer, unsigned int size, bool bLog, int flags);
    // The same with no flags and a log line.
    ssize_t Recv_n(char* buffer, unsigned int size);

    // An unknown type is logged and changes nothing.
    void SetTimeout(SocketType type, const ACE_Time_Value& value);
    void GetTimeout(SocketType type, ACE_Time_Value& value);

    // The moment, in milliseconds of the monotonic clock (base/clock.h), after which connecting, sending and receiving
    // fail with ETIME: the limit of an exchange as a whole. It stays in force until it is set again; 0 removes it.
    void SetDeadline(std::int64_t monotonicMs) { m_deadlineMs = monotonicMs; }
    std::int64_t GetDeadline() const { return m_deadlineMs; }

    // The object can connect again afterwards.
    void Close();

    // ACE_INVALID_HANDLE when the stream is closed.
    ACE_HANDLE getHandle() const { return m_stream.get_handle(); }

    // Failures are logged only.
    void SetSockNoBlock(ACE_HANDLE handle);

    // The connected peer's address in dotted form; empty when there is none.
    std::string GetSocketPeerIP() const;

private:
    ACE_Time_Value* TimeoutOf(int type);
    // Waits for poll events on the stream until untilMs; false with ETIME or the poll's own error, and always once
    // callEndMs has come.
    bool WaitReady(short events, std::int64_t untilMs, std::int64_t callEndMs);
    std::int64_t EndOfWait(const ACE_Time_Value& timeout, std::int64_t callEndMs) const;
    std::int64_t EndOfCall(const ACE_Time_Value& timeout) const;
    ssize_t RecvUntil(char* buffer, unsigned int size, int flags, std::int64_t callEndMs);

    ACE_SOCK_Stream m_stream;
    ACE_INET_Addr m_addr;
    ACE_INET_Addr m_localAddr;
    char m_szPeerAddr[128] = {};
    std::uint16_t m_usPeerPort = 0;
    ACE_Time_Value m_tvConnect;
    ACE_Time_Value m_tvSend;
    ACE_Time_Value m_tvRecv;
    std::int64_t m_deadlineMs = 0;
};
