#pragma once

#include <chrono>
#include <functional>
#include <list>
#include <string>
#include <vector>

#include "gvx_common/rtsp/common_authenticator.h"
#include "gvx_common/rtsp/common_rtsp_method_describe.h"
#include "gvx_common/rtsp/common_rtsp_method_options.h"
#include "gvx_common/socket/common_socket_stream.h"

// Drives a session with an RTSP server as a plug-in does it: each step is one exchange, repeated once with credentials
// when the server asks for them. Steps give the result of ParseRecvPack, and kNoAnswer when the request could not be
// sent or no whole head of an answer came. One thread at a time.
class RtspClient {
public:
    static constexpr int kNoAnswer = -1;
    // Data that comes between answers, when media travels on this connection (RFC 2326, section 10.12).
    using OnInterleaved = std::function<void(unsigned char channel, const std::string& packet)>;

    // password is the enciphered form. Each step, and the connecting, ends within limit.
    RtspClient(const std::string& url, const std::string& user, const std::string& password,
               std::chrono::milliseconds limit = std::chrono::seconds(20));

    void SetOnInterleaved(OnInterleaved handler) { m_onInterleaved = std::move(handler); }

    int Connect();
    int Options();
    int Describe();
    // transport is the header's value, such as "RTP/AVP;unicast;client_port=6000-6001" or
    // "RTP/AVP/TCP;unicast;interleaved=0-1". Keeps the session that the server names.
    int Setup(const CCommonSession& media, const std::string& transport);
    int Play();
    int Teardown();

    // Reads one interleaved packet and hands it on; false when none came within the limit.
    bool ReadInterleaved();

    const std::vector<std::string>& MethodNames() const { return m_options.GetMethodNames(); }
    // Owned by this object, until the next Describe.
    const std::list<CCommonSession*>& Sessions() { return *m_describe.GetSessionList(); }
    const std::string& ServerTransport() const { return m_serverTransport; }  // of the last Setup
    const std::string& Authorization() const { return m_authorization; }      // the last that was sent
    std::string ControlUrl(const CCommonSession& media) const;
    CCommonSocketStream& Stream() { return m_stream; }

private:
    using Headers = std::vector<std::pair<std::string, std::string>>;

    int Exchange(CCommonRtspMethodBase& method, const std::string& url, const Headers& headers);
    int SendAndRead(CCommonRtspMethodBase& method, const std::string& url, const Headers& headers);
    bool ReadHead(std::string& head);
    bool ReadPacketBehindDollar();
    void SetLimit();

    const std::string m_url;
    const std::string m_user;
    const std::string m_password;
    const std::chrono::milliseconds m_limit;
    CCommonSocketStream m_stream;
    CCommonRtspMethodOptions m_options;
    CCommonRtspMethodDescribe m_describe;
    CCommonAuthenticator m_authenticator;
    OnInterleaved m_onInterleaved;
    int m_seq = 0;
    bool m_challenged = false;
    std::string m_contentBase;
    std::string m_session;
    std::string m_serverTransport;
    std::string m_authorization;
};
