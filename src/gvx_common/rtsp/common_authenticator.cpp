#include "gvx_common/rtsp/common_authenticator.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string>

#include <openssl/evp.h>

#include "base/base64.h"
#include "base/bounded_string.h"
#include "base/clock.h"
#include "base/http_digest.h"
#include "base/log.h"
#include "base/random.h"
#include "gvx_common/security/GvxAuthUtils.h"
#include "gvx_common/security/gvx_security_mgr.h"
#include "gvx_common/utility/gvx_utility.h"

namespace {

constexpr char kTitle[] = "Common authenticator";
constexpr char kSha256[] = "SHA-256";
constexpr std::size_t kMd5Bytes = 16;
constexpr std::size_t kMd5TextBytes = 2 * kMd5Bytes + 1;

// A clear text that is wiped when its scope ends.
template <std::size_t size>
struct ClearText {
    ClearText() = default;
    ~ClearText() { memset_s(text, sizeof(text), 0, sizeof(text)); }
    ClearText(const ClearText&) = delete;
    ClearText& operator=(const ClearText&) = delete;

    char text[size] = {};
};
using ClearPassword = ClearText<256>;

const char* TextOf(const char* text) {
    return text != nullptr ? text : "";
}

bool IsEmpty(const char* text) {
    return text == nullptr || *text == '\0';
}

// What a refusal of Basic is told under: one device has many URLs. It goes to the log, so no credentials stay in it.
std::string DeviceOf(const char* url) {
    constexpr char kEnds[] = "/?#";
    std::string device = TextOf(url);
    const std::size_t scheme = device.find("://");
    device.erase(0, scheme != std::string::npos ? scheme + 3 : 0);
    const std::string authority = device.substr(0, device.find_first_of(kEnds));
    const std::size_t colon = authority.rfind(':');
    if (authority.find('@') == std::string::npos && colon != std::string::npos &&
        (colon + 1 == authority.size() || authority.find_first_not_of("0123456789", colon + 1) != std::string::npos)) {
        // No port: a password that holds an end unescaped.
        device.erase(0, device.rfind('@') + 1);
    }
    device.erase(std::min(device.find_first_of(kEnds), device.size()));
    device.erase(0, device.rfind('@') + 1);
    return device;
}

}  // namespace

// ---- MD5 ----

void MD5Context::FreeDigest::operator()(evp_md_ctx_st* digest) const {
    EVP_MD_CTX_free(digest);
}

void CCommonAuthenticator::MD5Init(MD5Context* context) {
    *context = MD5Context();
    context->digest.reset(EVP_MD_CTX_new());
    if (context->digest != nullptr && EVP_DigestInit_ex(context->digest.get(), EVP_md5(), nullptr) != 1) {
        context->digest = nullptr;
    }
}

void CCommonAuthenticator::MD5Update(MD5Context* context, const unsigned char* data, unsigned int len) {
    std::size_t held = context->count[0] / 8 % sizeof(context->buffer);
    const std::uint64_t bits = (std::uint64_t{context->count[1]} << 32 | context->count[0]) + std::uint64_t{len} * 8;
    context->count[0] = static_cast<std::uint32_t>(bits);
    context->count[1] = static_cast<std::uint32_t>(bits >> 32);
    while (len != 0) {
        const std::size_t taken = std::min<std::size_t>(len, sizeof(context->buffer) - held);
        std::memcpy(context->buffer + held, data, taken);
        held += taken;
        data += taken;
        len -= static_cast<unsigned int>(taken);
        if (held == sizeof(context->buffer)) {
            held = 0;
            if (context->digest != nullptr) {
                EVP_DigestUpdate(context->digest.get(), context->buffer, sizeof(context->buffer));
            }
        }
    }
}

void CCommonAuthenticator::MD5Final(unsigned char digest[16], MD5Context* context) {
    std::memset(digest, 0, kMd5Bytes);
    const std::size_t held = context->count[0] / 8 % sizeof(context->buffer);
    if (context->digest != nullptr && (EVP_DigestUpdate(context->digest.get(), context->buffer, held) != 1 ||
                                       EVP_DigestFinal_ex(context->digest.get(), digest, nullptr) != 1)) {
        context->digest = nullptr;
    }
    memset_s(context->buffer, sizeof(context->buffer), 0, sizeof(context->buffer));
    for (std::size_t i = 0; i < kMd5Bytes; ++i) {
        context->state[i / 4] |= std::uint32_t{digest[i]} << (8 * (i % 4));
    }
}

char* CCommonAuthenticator::MD5End(MD5Context* context, char* buf) {
    unsigned char digest[kMd5Bytes];
    MD5Final(digest, context);
    if (context->digest == nullptr) {
        return nullptr;
    }
    if (buf == nullptr) {
        buf = static_cast<char*>(std::malloc(kMd5TextBytes));
    }
    for (std::size_t i = 0; buf != nullptr && i < kMd5Bytes; ++i) {
        snprintf_s(buf + 2 * i, 3, 2, "%02x", digest[i]);
    }
    return buf;
}

char* CCommonAuthenticator::MD5Data(const unsigned char* data, unsigned int len, char* buf) {
    MD5Context context;
    MD5Init(&context);
    MD5Update(&context, data, len);
    return MD5End(&context, buf);
}

// ---- the fields ----

void CCommonAuthenticator::WipeAndFree::operator()(char* text) const {
    if (text != nullptr) {
        const std::size_t length = std::strlen(text);
        memset_s(text, length, 0, length);
        std::free(text);
    }
}

CCommonAuthenticator::Text CCommonAuthenticator::strDup(const char* text) {
    return Text(text != nullptr ? ::strdup(text) : nullptr);
}

CCommonAuthenticator::CCommonAuthenticator(const char* username, const char* password, bool passwordIsMD5) {
    assign(nullptr, nullptr, nullptr, username, password, passwordIsMD5);
}

CCommonAuthenticator::CCommonAuthenticator(const CCommonAuthenticator& other) {
    assign(other.realm(), other.nonce(), other.algo(), other.username(), other.password(), other.fPasswordIsMD5);
}

CCommonAuthenticator& CCommonAuthenticator::operator=(const CCommonAuthenticator& other) {
    if (&other != this) {
        assign(other.realm(), other.nonce(), other.algo(), other.username(), other.password(), other.fPasswordIsMD5);
    }
    return *this;
}

CCommonAuthenticator::~CCommonAuthenticator() {
    reset();
}

void CCommonAuthenticator::assign(const char* realm, const char* nonce, const char* algo, const char* username,
                                  const char* password, bool passwordIsMD5) {
    SetRealmAndNonce(realm, nonce, algo);
    SetUsernameAndPassword(username, password, passwordIsMD5);
}

void CCommonAuthenticator::reset() {
    assign(nullptr, nullptr, nullptr, nullptr, nullptr, false);
}

void CCommonAuthenticator::SetRealmAndNonce(const char* realm, const char* nonce, const char* algo) {
    fRealm = strDup(realm);
    fNonce = strDup(nonce);
    fAlgo = strDup(algo);
}

void CCommonAuthenticator::SetUsernameAndPassword(const char* username, const char* password, bool passwordIsMD5) {
    fUsername = strDup(username);
    fPassword = strDup(password);
    fPasswordIsMD5 = passwordIsMD5;
}

void CCommonAuthenticator::SetRealmAndRandomNonce(const char* szrealm, const char* szalgo) {
    struct Seed {
        std::int64_t seconds;
        std::int64_t microseconds;
        std::uint32_t counter;
        std::uint32_t random;
    };
    static_assert(sizeof(Seed) == 24);
    static std::atomic<std::uint32_t> counter{0};

    const std::int64_t now = gvx::CurrentClock().WallMicroseconds();
    Seed seed{now / 1000000, now % 1000000, ++counter, 0};
    if (CBB::GenerateRandom(&seed.random, sizeof(seed.random)) != 0) {
        GVX_LOG_ERR(kTitle, "No random bytes for a nonce.");
    }
    unsigned char bytes[sizeof(seed)];
    std::memcpy(bytes, &seed, sizeof(seed));
    char nonce[kMd5TextBytes] = {};
    SetRealmAndNonce(szrealm, MD5Data(bytes, sizeof(bytes), nonce), szalgo);
}

void CCommonAuthenticator::SetRealm(const char* realm) {
    fRealm = strDup(realm);
}

void CCommonAuthenticator::setAuthInfo(const char* szusername, const char* szpassword, bool passwordIsMD5,
                                       const char* szrealm, const char* sznonce, const char* szalgo) {
    SetUsernameAndPassword(szusername, szpassword, passwordIsMD5);
    if (sznonce == nullptr) {
        SetRealmAndRandomNonce(szrealm, szalgo);
    } else {
        SetRealmAndNonce(szrealm, sznonce, szalgo);
    }
}

// ---- what leaves ----

bool CCommonAuthenticator::DecryptPassword(char* clear, std::uint32_t size) const {
    if (CSecurityMgr::Instance()->DecryptString(password(), clear, size) != 0) {
        GVX_LOG_ERR(kTitle, "Failed to decrypt the password.");
        return false;
    }
    return true;
}

// HA2 is of method and URL; without qop the response is the hash of HA1, nonce and HA2 (RFC 2617, section 3.2.2.1).
int CCommonAuthenticator::ComputeMD5DigestResponse(const char* ha1, const char* nonce, const char* cmd, const char* url,
                                                   char* response) {
    if (ZVS_Security_Http_MD5_DigestCalcResponse(ha1, nonce, "", "", "", cmd, url, "", response) != 0) {
        GVX_LOG_ERR(kTitle, "snprintf_s digestData failed");
        return 1;
    }
    return 0;
}

// The peers of this form leave method and URL out of the response.
int CCommonAuthenticator::ComputeSHA256DigestResponse(const char* userName, const char* passWord, const char* realm,
                                                      const char* nonce, char* response) {
    ClearText<513> ha1;
    if (ZVS_Security_Http_SHA256_DigestCalcHA1("", userName, realm, passWord, nonce, "", ha1.text) != 0 ||
        ZVS_Security_Http_SHA256_DigestCalcResponse(ha1.text, nonce, "", "", "", "", "", "", response) != 0) {
        GVX_LOG_ERR(kTitle, "Failed to compute the SHA-256 response.");
        return 1;
    }
    return 0;
}

char* CCommonAuthenticator::ComputeDigestResponse(const char* cmd, const char* url) const {
    char response[513] = {};
    {
        ClearPassword clear;
        if (!DecryptPassword(clear.text, sizeof(clear.text))) {
            return nullptr;
        }
        if (algo() != nullptr && std::strcmp(algo(), kSha256) == 0) {
            if (ComputeSHA256DigestResponse(TextOf(username()), clear.text, TextOf(realm()), TextOf(nonce()),
                                            response) != 0) {
                return nullptr;
            }
        } else {
            ClearText<kZvsHttpDigestTextBytes> ha1;
            if (fPasswordIsMD5) {
                if (strncpy_s(ha1.text, kMd5TextBytes, clear.text, std::strlen(clear.text)) != 0) {
                    GVX_LOG_ERR(kTitle, "strncpy_s ha1Buf failed!");
                    return nullptr;
                }
            } else if (ZVS_Security_Http_MD5_DigestCalcHA1("", username(), realm(), clear.text, "", "", ha1.text) !=
                       0) {
                GVX_LOG_ERR(kTitle, "snprintf_s ha1Data failed");
                return nullptr;
            }
            if (ComputeMD5DigestResponse(ha1.text, nonce(), cmd, url, response) != 0) {
                return nullptr;
            }
        }
    }
    char* text = strDup(response).release();
    if (text == nullptr) {
        GVX_LOG_ERR(kTitle, "Fail to alloc memory.");
    }
    return text;
}

void CCommonAuthenticator::ReclaimDigestResponse(const char* response) {
    WipeAndFree()(const_cast<char*>(response));
}

char* CCommonAuthenticator::CreateCCommonAuthenticatorString(const char* cmd, const char* url) const {
    if (IsEmpty(username()) || IsEmpty(password())) {
        return strDup("").release();
    }
    Text header = realm() != nullptr && !IsEmpty(nonce()) ? CreateDigestString(cmd, url) : CreateBasicString(url);
    if (CGvxUtility::HoldsControlCharacter(header.get())) {
        GVX_LOG_ERR(kTitle, "The authorization holds a control character.");
        return nullptr;
    }
    return header.release();
}

CCommonAuthenticator::Text CCommonAuthenticator::CreateDigestString(const char* cmd, const char* url) const {
    const Text response(ComputeDigestResponse(cmd, url));
    if (response == nullptr) {
        return nullptr;
    }
    constexpr char kWithAlgorithm[] =
        "Digest algorithm=%s, username=\"%s\", realm=\"%s\", nonce=\"%s\", uri=\"%s\", response=\"%s\"";
    constexpr char kPlain[] = "Digest username=\"%s\", realm=\"%s\", nonce=\"%s\", uri=\"%s\", response=\"%s\"";
    const std::size_t size = sizeof(kWithAlgorithm) + std::strlen(TextOf(algo())) + std::strlen(username()) +
                             std::strlen(realm()) + std::strlen(nonce()) + std::strlen(TextOf(url)) +
                             std::strlen(response.get());
    Text header(static_cast<char*>(std::calloc(size, 1)));
    const int length = IsEmpty(algo()) ? snprintf_s(header.get(), size, size - 1, kPlain, username(), realm(), nonce(),
                                                    TextOf(url), response.get())
                                       : snprintf_s(header.get(), size, size - 1, kWithAlgorithm, algo(), username(),
                                                    realm(), nonce(), TextOf(url), response.get());
    if (length < 0) {
        GVX_LOG_ERR(kTitle, "snprintf_s CCommonAuthenticatorStr failed");
        return nullptr;
    }
    return header;
}

CCommonAuthenticator::Text CCommonAuthenticator::CreateBasicString(const char* url) const {
    if (!GvxAuthUtils::AllowBasic(DeviceOf(url))) {
        return nullptr;
    }
    // User and password are put together in one buffer that is wiped.
    const std::size_t userLength = std::strlen(username());
    const std::size_t size = userLength + 1 + sizeof(ClearPassword::text);
    Text joined(static_cast<char*>(std::calloc(size, 1)));
    if (joined == nullptr) {
        GVX_LOG_ERR(kTitle, "Fail to alloc memory.");
        return nullptr;
    }
    std::memcpy(joined.get(), username(), userLength);
    joined.get()[userLength] = ':';
    char* const clear = joined.get() + userLength + 1;
    Text encoded;
    if (DecryptPassword(clear, sizeof(ClearPassword::text))) {
        encoded.reset(base64Encode(joined.get(), static_cast<unsigned int>(std::strlen(joined.get()))));
    }
    memset_s(joined.get(), size, 0, size);
    if (encoded == nullptr) {
        return nullptr;
    }
    constexpr char kBasic[] = "Basic %s";
    const std::size_t headerSize = sizeof(kBasic) + std::strlen(encoded.get());
    Text header(static_cast<char*>(std::calloc(headerSize, 1)));
    if (snprintf_s(header.get(), headerSize, headerSize - 1, kBasic, encoded.get()) < 0) {
        GVX_LOG_ERR(kTitle, "snprintf_s CCommonAuthenticatorStr failed");
        return nullptr;
    }
    return header;
}

char* CCommonAuthenticator::base64Encode(const char* origSigned, unsigned int origLength) {
    const std::size_t size = CBB::CBase64::GetEncodeBinarySize(origLength);
    Text encoded(size != 0 ? static_cast<char*>(std::calloc(size, 1)) : nullptr);
    if (encoded == nullptr || CBB::CBase64::EncodeBinary(origSigned, origLength, encoded.get(), size) != 0) {
        GVX_LOG_ERR(kTitle, "Failed to encode as base64.");
        return nullptr;
    }
    return encoded.release();
}
