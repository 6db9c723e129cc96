#pragma once

#include <cstdint>
#include <string>

// What a client's digest response was computed from (RFC 7616, section 3.4), as its request gave it.
struct AuthorizationInfoDigest {
    std::string m_userName;
    std::string m_realm;
    std::string m_uri;
    std::string m_nonce;
    std::string m_algorithm;
    std::string m_cNonce;
    std::string m_qop;
    std::string m_nonceCount;
    std::string m_method;
    std::string m_hEntity;  // hexadecimal hash of the body, for the qop "auth-int"
};

// The gateway's own decisions about credentials. Any thread.
class GvxAuthUtils {
public:
    // True when clientResponse is the digest that the clear password gives. The comparison takes as long for a wrong
    // response as for the right one. A null password, or a hash that can not be computed, is false with a log line.
    static bool DigestAccessAuthenMD5(const AuthorizationInfoDigest& authInfo, const char* password,
                                      const std::string& clientResponse);
    static bool DigestAccessAuthenSHA256(const AuthorizationInfoDigest& authInfo, const char* password,
                                         const std::string& clientResponse);

    // Whether a device that asks for Basic authentication, which shows the password to whoever listens, gets it: what
    // AUTH_ALLOW_BASIC says. device names it, as its address or URL without credentials. A refusal is counted, and
    // logged the first time for each device.
    static bool AllowBasic(const std::string& device);
    // Refusals since the process began.
    static std::uint64_t BasicRefusals();
};
