#pragma once

#include "gvx_common/rtsp/common_authenticator.h"
#include "gvx_common/rtsp/common_rtsp_method_describe.h"
#include "gvx_common/rtsp/common_rtsp_method_options.h"
#include "gvx_common/socket/common_socket_stream.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <list>
#include <string>
#include <utility>
#include <vector>

// Drives a session with an RTSP server as a plug-in does it: each step is one exchange, repeated once with credentials
// when the server asks for them. Steps give the result of ParseRecvPack, and kNoAnswer when the request could not be
// sent or no whole head of an answer came. One thread at a time.
class RtspClient {
public:
    static constexpr int kNoAnswer = -1;

    // password is the enciphered form. Each step, and the connecting, ends within limit.
    RtspClient(const std::string& url, const std::string& user, const std::string& password,
               std::chrono::milliseconds limit = std::chrono::seconds(20));

    int Connect();
    int Options() { return Exchange(m_options, m_url, {}); }
    int Describe();
    // transport is the header's value, such as "RTP/AVP;unicast;client_port=6000-6001" or
    // "RTP/AVP/TCP;unicast;interleaved=0-1". Keeps the session that the server names.
    int Setup(const CCommonSession& media, const std::string& transport);
    int Play() { return ExchangeOnSession("PLAY", {{"Range", "npt=0-"}}); }
    int Teardown() { return ExchangeOnSession("TEARDOWN", {}); }

    // Takes each packet that travels on this connection (RFC 2326, section 10.12), between answers also.
    using PacketSink = std::function<void(std::uint8_t channel, const std::uint8_t* data, std::size_t size)>;
    void SetPacketSink(PacketSink sink) { m_packetSink = std::move(sink); }
    // Reads one packet; false when none came within the limit.
    bool ReadInterleaved();
    bool SendInterleaved(std::uint8_t channel, const std::uint8_t* data, std::size_t size);
    const std::string& Transport() const { return m_transport; }  // as the server answered the last Setup
    const std::vector<std::string>& MethodNames() const { return m_options.GetMethodNames(); }
    // Owned by this object, until the next Describe.
    const std::list<CCommonSession*>& Sessions() { return *m_describe.GetSessionList(); }
    const std::string& Authorization() const { return m_authorization; }  // the last that was sent

private:
    using Headers = std::vector<std::pair<std::string, std::string>>;

    int Exchange(CCommonRtspMethodBase& method, const std::string& url, const Headers& headers);
    int ExchangeOnSession(const char* name, const Headers& headers);
    int SendAndRead(CCommonRtspMethodBase& method, const std::string& url, const Headers& headers);
    bool ReadHead(std::string& head);
    bool ReadPacketBehindDollar();
    void SetLimit();

    const std::string m_url;
    const std::chrono::milliseconds m_limit;
    CCommonSocketStream m_stream;
    CCommonRtspMethodOptions m_options{"OPTIONS"};
    CCommonRtspMethodDescribe m_describe{"DESCRIBE"};
    CCommonAuthenticator m_authenticator;
    PacketSink m_packetSink;
    int m_seq = 0;
    bool m_challenged = false;
    std::string m_contentBase;
    std::string m_session;
    std::string m_transport;
    std::string m_authorization;
};
