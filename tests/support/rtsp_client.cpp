#include "support/rtsp_client.h"

#include "base/clock.h"
#include "gvx_common/utility/gvx_utility.h"

#include <algorithm>
#include <memory>

namespace {

struct Reclaim {
    void operator()(char* text) const { CCommonAuthenticator::ReclaimDigestResponse(text); }
};

std::string Header(const CCommonRtspMethodBase& method, const char* name) {
    char value[sizeof(ParamSet::szValue)] = {};
    return method.GetRecvParam(name, value, sizeof(value) - 1) != nullptr ? value : "";
}

}  // namespace

RtspClient::RtspClient(const std::string& url, const std::string& user, const std::string& password,
                       std::chrono::milliseconds limit)
    : m_url(url), m_limit(limit), m_authenticator(user.c_str(), password.c_str()), m_contentBase(url) {
    m_describe.Init();
}

void RtspClient::SetLimit() {
    m_stream.SetDeadline(gvx::MonotonicMilliseconds() + m_limit.count());
}

int RtspClient::Connect() {
    std::string host;
    std::string bareUrl;
    unsigned short port = 0;
    if (CGvxUtility::ParseRtspUrl(m_url, host, port, bareUrl) != 0) {
        return 1;
    }
    SetLimit();
    return m_stream.Connect(host.c_str(), port, 0);
}

int RtspClient::Describe() {
    m_describe.SetSocketStream(&m_stream);
    const int result = Exchange(m_describe, m_url, {{"Accept", "application/sdp"}});
    const std::string base = Header(m_describe, "Content-Base");
    m_contentBase = base.empty() ? m_url : base;
    return result;
}

// RFC 2326, section C.1.1: a relative path stands below the content base.
int RtspClient::Setup(const CCommonSession& media, const std::string& transport) {
    CCommonRtspMethodBase method("SETUP");
    const std::string path = media.m_szCtrlPath;
    const std::string base = m_contentBase + (m_contentBase.back() == '/' ? "" : "/");
    const int result = Exchange(method, path.rfind("rtsp://", 0) == 0 ? path : base + path, {{"Transport", transport}});
    if (result == 0) {
        m_session = Header(method, "Session");
        m_session.erase(std::min(m_session.find(';'), m_session.size()));
        m_transport = Header(method, "Transport");
    }
    return result;
}

int RtspClient::ExchangeOnSession(const char* name, const Headers& headers) {
    CCommonRtspMethodBase method(name);
    return Exchange(method, m_contentBase, headers);
}

int RtspClient::Exchange(CCommonRtspMethodBase& method, const std::string& url, const Headers& headers) {
    SetLimit();
    const bool hadChallenge = m_challenged;
    int result = SendAndRead(method, url, headers);
    if (result != RTSP_UNAUTHORIZED) {
        return result;
    }
    // A method of the base class leaves the challenge among the headers.
    std::string realm;
    std::string nonce;
    std::string algo;
    if (CCommonRtspMethodBase::DivideRealmAndNonce(Header(method, "WWW-Authenticate").c_str(), realm, nonce, algo) !=
        0) {
        return 1;
    }
    // The same nonce again says that the credentials are wrong; a new one may say that the former was too old.
    if (hadChallenge && m_authenticator.nonce() == nonce) {
        return result;
    }
    m_authenticator.SetRealmAndNonce(realm.c_str(), nonce.c_str(), algo.c_str());
    m_challenged = true;
    return SendAndRead(method, url, headers);
}

int RtspClient::SendAndRead(CCommonRtspMethodBase& method, const std::string& url, const Headers& headers) {
    if (method.Init() != 0) {
        return 1;
    }
    method.SetUrl(url.c_str());
    method.SetSendParam("CSeq", ++m_seq);
    method.SetSendParam("Session", m_session.c_str());
    for (const auto& [name, value] : headers) {
        method.SetSendParam(name.c_str(), value.c_str());
    }
    if (m_challenged) {
        const std::unique_ptr<char, Reclaim> value(
            m_authenticator.GeneratorAuthString(method.GetMethodName(), url.c_str()));
        if (value == nullptr) {
            return kNoAnswer;
        }
        m_authorization = value.get();
        method.SetSendParam("Authorization", value.get());
    }
    char request[2048] = {};
    if (method.BuidSendPack() != 0) {
        return kNoAnswer;
    }
    const std::uint32_t length = method.GetSendPack(request, sizeof(request));
    std::string head;
    if (length <= 1 || m_stream.Send(request, length) != static_cast<ssize_t>(length) || !ReadHead(head) ||
        method.SetRecvPack(head.c_str(), static_cast<int>(head.size())) != 0) {
        return kNoAnswer;
    }
    const int result = method.ParseRecvPack();
    int bodyLength = 0;
    const bool readAlready = &method == &m_describe && result == 0;
    if (!readAlready && method.GetRecvParam("Content-Length", bodyLength) == 0 && bodyLength > 0) {
        std::string body(static_cast<std::size_t>(std::min(bodyLength, 65536)), '\0');
        m_stream.Recv_n(body.data(), static_cast<unsigned int>(body.size()));
    }
    return result;
}

bool RtspClient::ReadHead(std::string& head) {
    constexpr std::size_t kMaxHead = 4095;
    char byte = 0;
    while (head.size() < kMaxHead && m_stream.Recv(&byte, 1, 0) == 1) {
        if (head.empty() && byte == '$') {
            if (!ReadPacketBehindDollar()) {
                return false;
            }
            continue;
        }
        head += byte;
        if (head.size() >= 4 && head.compare(head.size() - 4, 4, "\r\n\r\n") == 0) {
            return true;
        }
    }
    return false;
}

bool RtspClient::ReadPacketBehindDollar() {
    unsigned char head[3] = {};
    if (m_stream.Recv_n(reinterpret_cast<char*>(head), sizeof(head)) < 0) {
        return false;
    }
    std::string packet(static_cast<std::size_t>(head[1] << 8 | head[2]), '\0');
    if (m_stream.Recv_n(packet.data(), static_cast<unsigned int>(packet.size())) < 0) {
        return false;
    }
    if (m_packetSink) {
        m_packetSink(head[0], reinterpret_cast<const std::uint8_t*>(packet.data()), packet.size());
    }
    return true;
}

bool RtspClient::SendInterleaved(std::uint8_t channel, const std::uint8_t* data, std::size_t size) {
    std::string packet{'$', static_cast<char>(channel), static_cast<char>(size >> 8), static_cast<char>(size)};
    packet.append(reinterpret_cast<const char*>(data), size);
    SetLimit();
    return m_stream.Send(packet.data(), static_cast<unsigned int>(packet.size())) ==
           static_cast<ssize_t>(packet.size());
}

bool RtspClient::ReadInterleaved() {
    SetLimit();
    char byte = 0;
    return m_stream.Recv(&byte, 1, 0) == 1 && byte == '$' && ReadPacketBehindDollar();
}
