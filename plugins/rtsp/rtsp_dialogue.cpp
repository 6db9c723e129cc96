#include "rtsp/rtsp_dialogue.h"

#include "base/bounded_string.h"
#include "gvx_common/rtsp/common_rtsp_method_options.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

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
    m_head = message.substr(0, std::min(message.find("\r\n\r\n"), kMaxHead - 4)) + "\r\n\r\n";
    const std::size_t blank = m_head.find(' ');
    m_status = blank == std::string::npos ? 0 : std::atoi(m_head.c_str() + blank);
    if (m_name == "OPTIONS" && m_method != nullptr &&
        m_method->SetRecvPack(m_head.c_str(), static_cast<int>(m_head.size())) == 0) {
        m_method->ParseRecvPack();
        m_methods = m_method->GetMethodNames();
    }
    switch (m_status) {
        case 200:
            if (m_name == "SETUP") {
                TakeSession();
            }
            return Outcome::Done;
        case 401:
            return TakeChallenge();
        case 404:
            return Outcome::NotFound;
        case 454:
            return Outcome::NoSession;
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
    const std::vector<std::string> offers = Headers("WWW-Authenticate");
    // Of several offers, Digest: it does not show the password.
    const auto digest = std::find_if(offers.begin(), offers.end(), [](const std::string& offer) {
        return strncasecmp(offer.c_str(), "Digest", 6) == 0;
    });
    if (!m_hasCredentials || m_repeated || offers.empty() ||
        CCommonRtspMethodBase::DivideRealmAndNonce((digest == offers.end() ? offers.front() : *digest).c_str(), realm,
                                                   nonce, algorithm) != 0) {
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

std::vector<std::string> RtspDialogue::Headers(const char* name) const {
    std::vector<std::string> values;
    const std::size_t length = std::strlen(name);
    for (std::size_t at = m_head.find("\r\n"); at != std::string::npos; at = m_head.find("\r\n", at + 2)) {
        if (strncasecmp(m_head.c_str() + at + 2, name, length) == 0 && m_head[at + 2 + length] == ':') {
            const std::size_t from = m_head.find_first_not_of(" \t", at + 3 + length);
            values.push_back(m_head.substr(from, m_head.find("\r\n", from) - from));
        }
    }
    return values;
}

std::string RtspDialogue::Header(const char* name) const {
    const std::vector<std::string> values = Headers(name);
    return values.empty() ? "" : values.front();
}

std::string StatusLine(const std::string& message) {
    std::string line = message.substr(0, std::min(message.find("\r\n"), std::size_t{80}));
    std::replace_if(
        line.begin(), line.end(), [](unsigned char c) { return c < ' ' || c > '~'; }, '?');
    return line;
}

}  // namespace gvxrtsp
