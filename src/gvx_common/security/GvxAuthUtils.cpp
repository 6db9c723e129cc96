#include "gvx_common/security/GvxAuthUtils.h"

#include <atomic>
#include <cstddef>
#include <cstring>
#include <mutex>
#include <set>

#include <openssl/crypto.h>

#include "base/bounded_string.h"
#include "base/http_digest.h"
#include "base/log.h"
#include "gvx_common/config/setting_table.h"

namespace {

constexpr char kTitle[] = "Digest access authorization";
constexpr std::size_t kMaxLoggedDevices = 10000;  // as many as a gateway has by default

std::atomic<std::uint64_t> g_basicRefusals{0};

using CalcHA1 = decltype(&ZVS_Security_Http_MD5_DigestCalcHA1);
using CalcResponse = decltype(&ZVS_Security_Http_MD5_DigestCalcResponse);

bool SameText(const char* one, const char* other) {
    const std::size_t length = std::strlen(one);
    return length == std::strlen(other) && CRYPTO_memcmp(one, other, length) == 0;
}

bool MatchesResponse(const AuthorizationInfoDigest& info, const char* password, const std::string& clientResponse,
                     CalcHA1 calcHA1, CalcResponse calcResponse) {
    char ha1[kZvsHttpDigestTextBytes] = {};
    char response[kZvsHttpDigestTextBytes] = {};
    const bool computed =
        calcHA1(info.m_algorithm.c_str(), info.m_userName.c_str(), info.m_realm.c_str(), password, info.m_nonce.c_str(),
                info.m_cNonce.c_str(), ha1) == 0 &&
        calcResponse(ha1, info.m_nonce.c_str(), info.m_nonceCount.c_str(), info.m_cNonce.c_str(), info.m_qop.c_str(),
                     info.m_method.c_str(), info.m_uri.c_str(), info.m_hEntity.c_str(), response) == 0;
    memset_s(ha1, sizeof(ha1), 0, sizeof(ha1));
    return computed && SameText(clientResponse.c_str(), response);
}

}  // namespace

bool GvxAuthUtils::DigestAccessAuthenMD5(const AuthorizationInfoDigest& authInfo, const char* password,
                                         const std::string& clientResponse) {
    if (password == nullptr) {
        GVX_LOG_ERR(kTitle, "failed to pass digest access authorization md5: because paasowrd is null.");
        return false;
    }
    if (!MatchesResponse(authInfo, password, clientResponse, ZVS_Security_Http_MD5_DigestCalcHA1,
                         ZVS_Security_Http_MD5_DigestCalcResponse)) {
        GVX_LOG_ERR(kTitle,
                    "failed to pass digest access authorization md5: because client response not equal to computed "
                    "resposne.");
        return false;
    }
    return true;
}

bool GvxAuthUtils::DigestAccessAuthenSHA256(const AuthorizationInfoDigest& authInfo, const char* password,
                                            const std::string& clientResponse) {
    if (password == nullptr) {
        GVX_LOG_ERR(kTitle, "failed to pass digest access authorization SHA-256: because paasowrd is null.");
        return false;
    }
    if (!MatchesResponse(authInfo, password, clientResponse, ZVS_Security_Http_SHA256_DigestCalcHA1,
                         ZVS_Security_Http_SHA256_DigestCalcResponse)) {
        GVX_LOG_ERR(kTitle,
                    "failed to pass digest access authorization sha-256: because client response not equal to "
                    "computed resposne.");
        return false;
    }
    return true;
}

bool GvxAuthUtils::AllowBasic(const std::string& device) {
    if (gvx::SettingNumber(gvx::Setting::AUTH_ALLOW_BASIC) != 0) {
        return true;
    }
    static std::mutex mutex;
    static std::set<std::string> logged;
    g_basicRefusals.fetch_add(1, std::memory_order_relaxed);
    const std::lock_guard<std::mutex> guard(mutex);
    if (logged.size() < kMaxLoggedDevices && logged.insert(device).second) {
        GVX_LOG_ERR("Basic authorization", "Basic authentication is refused, it would show the password. [dev:%s]",
                    device.c_str());
    }
    return false;
}

std::uint64_t GvxAuthUtils::BasicRefusals() {
    return g_basicRefusals.load(std::memory_order_relaxed);
}
