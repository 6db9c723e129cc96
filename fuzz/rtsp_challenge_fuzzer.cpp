// Challenges, and what is answered to them. The first line of the input is the challenge, the rest the URL.

#include "fuzz_folder.h"

#include "gvx_common/rtsp/common_authenticator.h"
#include "gvx_common/rtsp/common_rtsp_method_base.h"
#include "gvx_common/security/GvxAuthUtils.h"
#include "gvx_common/security/gvx_security_mgr.h"
#include "gvx_common/utility/gvx_utility.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

namespace {

constexpr char kPassword[] = "Camera-123";

void Require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

struct Reclaim {
    void operator()(char* text) const { CCommonAuthenticator::ReclaimDigestResponse(text); }
};
using Text = std::unique_ptr<char, Reclaim>;

std::string Enciphered() {
    char text[CSecurityMgr::EncipheredSize(sizeof(kPassword))] = {};
    Require(CSecurityMgr::Instance()->EncryptString(kPassword, text, sizeof(text)) == 0);
    return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const FuzzFolder folder;
    static const std::string enciphered = Enciphered();
    const std::string input(reinterpret_cast<const char*>(data), size);
    const std::size_t lineEnd = input.find('\n');
    const std::string challenge = input.substr(0, lineEnd);
    const std::string url = lineEnd == std::string::npos ? std::string() : input.substr(lineEnd + 1).c_str();
    std::string realm;
    std::string nonce;
    std::string algo;
    if (CCommonRtspMethodBase::DivideRealmAndNonce(challenge.c_str(), realm, nonce, algo) != 0) {
        return 0;
    }
    Require(realm.size() < 64 && nonce.size() < 64 && algo.size() <= 62 &&
            algo.find_first_of(" ,") == std::string::npos);
    CCommonAuthenticator authenticator("admin", enciphered.c_str());
    authenticator.SetRealmAndNonce(realm.c_str(), nonce.c_str(), algo.c_str());
    const Text header(authenticator.GeneratorAuthString("DESCRIBE", url.c_str()));
    Require(header == nullptr || !CGvxUtility::HoldsControlCharacter(header.get()));
    if (header != nullptr) {
        Require(std::strncmp(header.get(), nonce.empty() ? "Basic " : "Digest ", nonce.empty() ? 6 : 7) == 0);
    }
    const Text response(authenticator.ComputeDigestResponse("DESCRIBE", url.c_str()));
    AuthorizationInfoDigest info;
    info.m_userName = "admin";
    info.m_realm = realm;
    info.m_nonce = nonce;
    if (algo == "SHA-256") {
        Require(GvxAuthUtils::DigestAccessAuthenSHA256(info, kPassword, response.get()));
    } else {
        info.m_uri = url;
        info.m_method = "DESCRIBE";
        Require(GvxAuthUtils::DigestAccessAuthenMD5(info, kPassword, response.get()));
    }
    return 0;
}
