#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include <ace/INET_Addr.h>
#include <ace/SOCK_Connector.h>
#include <ace/SOCK_Stream.h>

// OpenSSL's types, without its headers for those who include this one.
struct ssl_st;
struct ssl_ctx_st;
struct ssl_method_st;

// One TLS connection (TLS 1.2 at least, RFC 8446) to a server. With SetCheckCA(true) its certificate must be signed,
// over at most two others, by one of omu_portal/cacert.pem in the configuration folder, and, when HTTPS_CHECK_HOST_NAME
// is not "0" (as it is when the key is absent), must be made out to the name or address that Connect was given; a log
// line says whether chain, name, date or key of a refused one is wrong.
//
// Calls block, and each ends: a single wait takes 2 s at most (except that for the TCP connection), and everything is
// over at the deadline, or 300 s after the begin of a call when there is none. One thread at a time uses an object. The
// process ignores SIGPIPE.
class CHttpsClient {
public:
    CHttpsClient();
    ~CHttpsClient();
    CHttpsClient(const CHttpsClient&) = delete;
    CHttpsClient& operator=(const CHttpsClient&) = delete;

    // host is an IPv4 address or a name. 0, or 1 with a log line. A link that is open is closed first.
    int Connect(const std::string& host, std::uint16_t port);

    // Sends all. 0; 2 for null or a length of 0; ZVS_NET_SEND_ERROR when the peer takes nothing for 2 s: the link is
    // kept, with part of the data under way; ZVS_NET_CONNECT_ERROR when the link is lost, which is then closed.
    int Send(const char* data, std::size_t length);

    // Receives what is there, received bytes of at most size; waits while there is nothing. 0; 2 as above;
    // ZVS_NET_RECV_ERROR when nothing comes for 2 s; ZVS_NET_CONNECT_ERROR as above, also when the peer has closed.
    int Recv(char* buffer, std::size_t size, std::size_t& received);

    // Tells the peer, and does not wait for its answer. The object can connect again.
    void Close();

    void SetCheckCA(bool isCheck) { m_isCAcheck = isCheck; }
    bool IsConnected() const { return m_connected; }
    const ACE_INET_Addr& GetPeerAddr() const { return m_peerAddr; }  // of the link, or the last one
    // Whether the link is to this server, by the same name: its certificate was checked for that one.
    bool IsConnectedTo(const std::string& host, std::uint16_t port) const;

    // Whether the link is up and holds nothing that the peer sent of its own accord; waits for nothing.
    bool IsQuiet();

    // The moment, in milliseconds of the monotonic clock (base/clock.h), at which all calls end; 0 for none.
    void SetDeadline(std::int64_t monotonicMs) { m_deadlineMs = monotonicMs; }

private:
    struct FreeSsl {
        void operator()(ssl_st* ssl) const;
    };
    struct FreeContext {
        void operator()(ssl_ctx_st* context) const;
    };

    bool ClientSSLConnect();
    bool InitClientSSLCtx();
    bool SetVerification();
    bool CreateClientSSL();
    bool SetServerName();
    bool Handshake();
    bool ReadPeer() const;
    // Runs an operation of the TLS library, waiting for the socket as it asks. Its last result, with the library's
    // error code and the errno that belong to it.
    template <typename Operation>
    int Run(Operation operation, int& sslError, int& systemError);
    bool Wait(bool forWriting, std::int64_t callEndMs) const;
    std::int64_t EndOfCall() const;
    void CleanUpSSLCtx();

    std::unique_ptr<ssl_ctx_st, FreeContext> m_clientSSLCtx;
    std::unique_ptr<ssl_st, FreeSsl> m_SSL;  // ends before its context
    const ssl_method_st* m_clientSSLMethod = nullptr;
    bool m_isCAcheck = false;
    ACE_SOCK_Connector m_sockConnector;
    ACE_SOCK_Stream m_sockStream;
    ACE_INET_Addr m_peerAddr;
    ACE_INET_Addr m_localAddr;
    bool m_connected = false;
    std::string m_host;
    std::uint16_t m_port = 0;
    std::int64_t m_deadlineMs = 0;
};
