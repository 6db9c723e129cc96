#include "rtsp/rtsp_dialogue.h"

#include "base/bounded_string.h"
#include "gvx_common/rtsp/common_rtsp_method_options.h"

#include <algorithm>
#include <cstdlib>

#include <strings.h>

namespace gvxrtsp {
namespace {

constexpr int kDefaultSessionSeconds = 60;  // RFC 2326, section 12.37
constexpr std::size_t kMaxHead = 4095;

struct Reclaim {
    void operator()(char* text) const { CCommonAuthenticator::ReclaimDigestResponse(text); }
};

}  // namespace

RtspDialogue::RtspDialogue(const std::string& user, const std::string& password)
    : m_authenticator(user.c_str(), password.c_str()), m_hasCredentials(!user.empty()) {}

RtspDialogue::~RtspDialogue() = default;

bool RtspDialogue::Build(const std::string& method, const std::string& url, const RtspHeaders& headers,
                         std::string& request) {
    if (method == "OPTIONS") {
        m_method = std::make_unique<CCommonRtspMethodOptions>(method.c_str());
    } else {
        m_method = std::make_unique<CCommonRtspMethodBase>(method.c_str());
    }
    if (&headers != &m_headers) {
        m_name = method;
        m_url = url;
        m_headers = headers;
        m_repeated = false;
    }
    if (m_method->Init() != 0) {
        return false;
    }
    m_method->SetUrl(m_url.c_str());
    m_method->SetSendParam("CSeq", ++m_sequence);
    m_method->SetSendParam("User-Agent", "gvx");
    m_method->SetSendParam("Session", m_session.c_str());
    for (const auto& [name, value] : m_headers) {
        m_method->SetSendParam(name.c_str(), value.c_str());
    }
    if (m_challenged) {
        const std::unique_ptr<char, Reclaim> value(m_authenticator.GeneratorAuthString(m_name.c_str(), m_url.c_str()));
        if (value == nullptr) {
            return false;
        }
        m_method->SetSendParam("Authorization", value.get());
    }
    char text[2048] = {};
    const bool built = m_method->BuidSendPack() == 0 && m_method->GetSendPack(text, sizeof(text)) > 1;
    if (built) {
        request = text;
    }
    memset_s(text, sizeof(text), 0, sizeof(text));
    return built;
}

bool RtspDialogue::IsAnswer(const std::string& message) const {
    if (message.compare(0, 5, "RTSP/") != 0) {
        return false;
    }
    for (std::size_t at = message.find("\r\n"); at != std::string::npos; at = message.find("\r\n", at + 2)) {
        if (strncasecmp(message.c_str() + at + 2, "CSeq:", 5) == 0) {
            return std::atoi(message.c_str() + at + 7) == m_sequence;
        }
    }
    return true;  // some cameras leave the number out
}

RtspDialogue::Outcome RtspDialogue::TakeAnswer(const std::string& message) {
    const std::string text = message.substr(0, std::min(message.find("\r\n\r\n"), kMaxHead - 4)) + "\r\n\r\n";
    const std::size_t blank = text.find(' ');
    m_status = blank == std::string::npos ? 0 : std::atoi(text.c_str() + blank);
    if (m_method == nullptr || m_method->SetRecvPack(text.c_str(), static_cast<int>(text.size())) != 0) {
        return Outcome::Failed;
    }
    const int result = m_method->ParseRecvPack();
    if (result == RTSP_UNAUTHORIZED) {
        return TakeChallenge();
    }
    if (m_name == "OPTIONS") {
        m_methods = m_method->GetMethodNames();
    }
    switch (m_status) {
        case 200:
            if (result == 0 && m_name == "SETUP") {
                TakeSession();
            }
            return result == 0 ? Outcome::Done : Outcome::Failed;
        case 404:
            return Outcome::NotFound;
        case 454:
            return Outcome::NoSession;
        case 461:
            return Outcome::Unsupported;
        default:
            return Outcome::Failed;
    }
}

// Each request is repeated once: it had no credentials yet, or a nonce that is too old. Another refusal means that the
// credentials are wrong; many servers send a new nonce with it, so the nonce tells nothing.
RtspDialogue::Outcome RtspDialogue::TakeChallenge() {
    std::string realm;
    std::string nonce;
    std::string algorithm;
    if (!m_hasCredentials || m_repeated ||
        CCommonRtspMethodBase::DivideRealmAndNonce(Header("WWW-Authenticate").c_str(), realm, nonce, algorithm) != 0) {
        return Outcome::Refused;
    }
    m_authenticator.SetRealmAndNonce(realm.c_str(), nonce.empty() ? nullptr : nonce.c_str(),
                                     algorithm.empty() ? nullptr : algorithm.c_str());
    m_challenged = true;
    m_repeated = true;
    return Outcome::Again;
}

// "Session: 12345678;timeout=60".
void RtspDialogue::TakeSession() {
    const std::string value = Header("Session");
    const std::size_t end = std::min(value.find(';'), value.size());
    m_session = value.substr(0, end);
    m_sessionSeconds = kDefaultSessionSeconds;
    const std::size_t timeout = value.find("timeout=", end);
    if (timeout != std::string::npos) {
        const int seconds = std::atoi(value.c_str() + timeout + 8);
        m_sessionSeconds = seconds > 0 ? seconds : kDefaultSessionSeconds;
    }
}

std::string RtspDialogue::Header(const char* name) const {
    char value[sizeof(ParamSet::szValue)] = {};
    return m_method != nullptr && m_method->GetRecvParam(name, value, sizeof(value) - 1) != nullptr ? value : "";
}

std::string StatusLine(const std::string& message) {
    return message.substr(0, std::min(message.find("\r\n"), std::size_t{80}));
}

}  // namespace gvxrtsp
