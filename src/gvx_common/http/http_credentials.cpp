#include "gvx_common/http/http_credentials.h"

#include "base/base64.h"
#include "base/bounded_string.h"
#include "base/http_digest.h"
#include "base/log.h"
#include "base/random.h"
#include "gvx_common/http/common_http_stream.h"
#include "gvx_common/security/GvxAuthUtils.h"
#include "gvx_common/security/gvx_security_mgr.h"

#include <ace/Codecs.h>

#include <algorithm>
#include <cstring>
#include <memory>

namespace gvx {

namespace {

constexpr const char* kTitle = "HTTP stream";
constexpr std::size_t kClearBytes = 256;
constexpr std::size_t kBasicBytes = 121;
constexpr std::size_t kMostAuthText = 512;
constexpr std::size_t kCNonceBytes = 16;

}  // namespace

HttpCredentials::~HttpCredentials() {
    Forget();
    memset_s(m_message, sizeof(m_message), 0, sizeof(m_message));
}

// A handle that a caller gave is the caller's.
void HttpCredentials::Forget() {
    if (m_holdsPassword) {
        GvxSecurityMgr()->Release(m_password);
        m_holdsPassword = false;
    }
    memset_s(m_userName, sizeof(m_userName), 0, sizeof(m_userName));
    memset_s(m_password, sizeof(m_password), 0, sizeof(m_password));
}

int HttpCredentials::Take(const char* user, const char* password) {
    Forget();
    if (strncpy_s(m_userName, sizeof(m_userName), user, std::strlen(user)) != 0) {
        GVX_LOG_ERR(kTitle, "strncpy_s m_UserName failed!");
        return ZVS_FAIL;
    }
    const std::size_t length = std::strlen(password);
    m_holdsPassword =
        length >= sizeof(m_password) && GvxSecurityMgr()->Hold(password, m_password, sizeof(m_password)) == ZVS_SUCCEED;
    if (!m_holdsPassword && strncpy_s(m_password, sizeof(m_password), password, length) != 0) {
        m_password[0] = '\0';
        GVX_LOG_ERR(kTitle, "strncpy_s m_PassWord failed!");
        return ZVS_FAIL;
    }
    return ZVS_SUCCEED;
}

bool HttpCredentials::ClearPassword(char* clear, unsigned int size) const {
    if (GvxSecurityMgr()->DecryptString(m_password, clear, size) == ZVS_SUCCEED) {
        return true;
    }
    GVX_LOG_ERR("decrypt password", "Failed.");
    return false;
}

const char* HttpCredentials::MakeBasic(const char* device) {
    if (!GvxAuthUtils::AllowBasic(device)) {
        return nullptr;
    }
    char password[kClearBytes] = {};
    ClearPassword(password, sizeof(password));
    char szAuth[kBasicBytes] = {};
    const int length = snprintf_s(szAuth, sizeof(szAuth), sizeof(szAuth) - 1, "%s:%s", m_userName, password);
    memset_s(password, sizeof(password), 0, sizeof(password));
    if (length < 0) {
        memset_s(szAuth, sizeof(szAuth), 0, sizeof(szAuth));  // what fitted stands behind the empty text
        GVX_LOG_ERR(kTitle, "snprintf_s for szAuth failed");
        return nullptr;
    }
    std::size_t encodedLength = 0;
    const std::unique_ptr<ACE_Byte[]> encoded(ACE_Base64::encode(reinterpret_cast<const ACE_Byte*>(szAuth),
                                                                 static_cast<std::size_t>(length), &encodedLength));
    memset_s(szAuth, sizeof(szAuth), 0, sizeof(szAuth));
    if (encoded != nullptr) {
        constexpr char kScheme[] = "Basic ";
        constexpr std::size_t kSchemeLength = sizeof(kScheme) - 1;
        encodedLength = std::min(encodedLength, sizeof(m_message) - 1 - kSchemeLength);
        memset_s(m_message, sizeof(m_message), 0, sizeof(m_message));  // the rest of a longer value before
        std::memcpy(m_message, kScheme, kSchemeLength);
        std::memcpy(m_message + kSchemeLength, encoded.get(), encodedLength);
        memset_s(encoded.get(), encodedLength, 0, encodedLength);
    }
    return m_message;
}

const char* HttpCredentials::MakeDigest(Common_HTTP_AUTH& challenge, const char* uri) {
    switch (challenge.uiAlgorithm) {
        case HTTP_AUTH_ALGORTM_MASK_MD5:
            return FillDigest(challenge, uri, false, "MD5");
        case HTTP_AUTH_ALGORTM_MASK_SHA256:
            return FillDigest(challenge, uri, true, "SHA-256");
        case HTTP_AUTH_ALGORTM_MASK_MIXED:
            GVX_LOG_INFO(kTitle, "Http auth algorithm in [MIXED] use MD5");
            return FillDigest(challenge, uri, false, "MD5");
        default:
            return FillDigest(challenge, uri, false, nullptr);
    }
}

const char* HttpCredentials::FillDigest(Common_HTTP_AUTH& challenge, const char* uri, bool sha256,
                                        const char* algorithm) {
    const int begun =
        uri == nullptr ? -1
        : algorithm == nullptr
            ? snprintf_s(m_message, sizeof(m_message), kMostAuthText,
                         "Digest username=\"%s\", realm=\"%s\", nonce=\"%s\", uri=\"%s\", response=\"", m_userName,
                         challenge.szRealm, challenge.szNonce, uri)
            : snprintf_s(m_message, sizeof(m_message), kMostAuthText,
                         "Digest algorithm=%s, username=\"%s\", realm=\"%s\", nonce=\"%s\", uri=\"%s\", response=\"",
                         algorithm, m_userName, challenge.szRealm, challenge.szNonce, uri);
    if (begun < 0) {
        GVX_LOG_ERR(kTitle, "snprintf_s for m_message failed");
        return nullptr;
    }
    char password[kClearBytes] = {};
    ClearPassword(password, sizeof(password));
    char ha1[kZvsHttpDigestTextBytes] = {};
    const auto calcHA1 = sha256 ? ZVS_Security_Http_SHA256_DigestCalcHA1 : ZVS_Security_Http_MD5_DigestCalcHA1;
    bool done = calcHA1("", m_userName, challenge.szRealm, password, challenge.szNonce, "", ha1) == 0;
    memset_s(password, sizeof(password), 0, sizeof(password));
    const bool hasQop = challenge.szMsgQOP[0] != '\0';
    if (hasQop) {
        unsigned char random[kCNonceBytes];
        const char* fault = nullptr;
        strncpy_s(challenge.szNonceCount, sizeof(challenge.szNonceCount), NONCECOUNT, std::strlen(NONCECOUNT));
        if (CBB::GenerateRandom(random, sizeof(random)) != 0) {
            fault = "CBB::GenerateRandom failed";
        } else if (CBB::CBase64::GetEncodeBinarySize(sizeof(random)) == 0) {
            fault = "CBase64::GetEncodeBinarySize return 0";
        } else if (CBB::CBase64::EncodeBinary(random, sizeof(random), challenge.szCNonce, sizeof(challenge.szCNonce)) !=
                   0) {
            fault = "CBase64::EncodeBinary failed";
        }
        if (fault != nullptr) {
            memset_s(ha1, sizeof(ha1), 0, sizeof(ha1));
            GVX_LOG_ERR(kTitle, "%s", fault);
            return nullptr;
        }
    }
    char response[kZvsHttpDigestTextBytes] = {};
    const auto calcResponse =
        sha256 ? ZVS_Security_Http_SHA256_DigestCalcResponse : ZVS_Security_Http_MD5_DigestCalcResponse;
    done = done && calcResponse(ha1, challenge.szNonce, challenge.szNonceCount, challenge.szCNonce, challenge.szMsgQOP,
                                "GET", uri, "", response) == 0;
    memset_s(ha1, sizeof(ha1), 0, sizeof(ha1));
    if (!done) {
        GVX_LOG_ERR(kTitle, "The digest can not be computed.");
        return nullptr;
    }
    const auto append = [this](const char* text) {
        return strncat_s(m_message, sizeof(m_message), text, std::strlen(text)) == 0;
    };
    done = append(response) && append("\"");
    if (hasQop) {
        done = done && append(", qop=") && append(challenge.szMsgQOP) && append(", nc=") && append(NONCECOUNT) &&
               append(", cnonce=\"") && append(challenge.szCNonce) && append("\"");
    }
    if (!done) {
        GVX_LOG_ERR(kTitle, "strncat_s  failed.");
        return nullptr;
    }
    return m_message;
}

}  // namespace gvx
