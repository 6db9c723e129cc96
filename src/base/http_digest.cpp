#include "base/http_digest.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>

#include <cstring>
#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>

#include <strings.h>

namespace {

struct FreeContext {
    void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
};

std::string_view Text(const char* text) {
    return text == nullptr ? std::string_view() : std::string_view(text);
}

// Writes the hash of the parts, joined by colons, as hexadecimal text. The parts are never put together in memory,
// so that no further copy of a password arises.
bool HashJoined(const EVP_MD* kind, std::initializer_list<std::string_view> parts, char* output) {
    output[0] = '\0';
    const std::unique_ptr<EVP_MD_CTX, FreeContext> context(EVP_MD_CTX_new());
    if (context == nullptr || EVP_DigestInit_ex(context.get(), kind, nullptr) != 1) {
        return false;
    }
    bool first = true;
    for (const std::string_view part : parts) {
        if ((!first && EVP_DigestUpdate(context.get(), ":", 1) != 1) ||
            EVP_DigestUpdate(context.get(), part.data(), part.size()) != 1) {
            return false;
        }
        first = false;
    }
    unsigned char hash[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (EVP_DigestFinal_ex(context.get(), hash, &length) != 1 || length * 2 + 1 > kZvsHttpDigestTextBytes) {
        return false;
    }
    for (unsigned int i = 0; i < length; ++i) {
        output[2 * i] = "0123456789abcdef"[hash[i] >> 4];
        output[2 * i + 1] = "0123456789abcdef"[hash[i] & 15];
    }
    output[2 * length] = '\0';
    OPENSSL_cleanse(hash, sizeof(hash));
    return true;
}

bool IsSessionAlgorithm(std::string_view algorithm) {
    constexpr std::string_view kEnding = "-sess";
    return algorithm.size() >= kEnding.size() &&
           strncasecmp(algorithm.data() + algorithm.size() - kEnding.size(), kEnding.data(), kEnding.size()) == 0;
}

int CalcHA1(const EVP_MD* kind, const char* algorithm, const char* userName, const char* realm, const char* password,
            const char* nonce, const char* cnonce, char* output) {
    if (output == nullptr) {
        return 1;
    }
    if (!HashJoined(kind, {Text(userName), Text(realm), Text(password)}, output)) {
        return 1;
    }
    if (!IsSessionAlgorithm(Text(algorithm))) {
        return 0;
    }
    char user[kZvsHttpDigestTextBytes];
    std::memcpy(user, output, std::strlen(output) + 1);
    const bool hashed = HashJoined(kind, {user, Text(nonce), Text(cnonce)}, output);
    OPENSSL_cleanse(user, sizeof(user));
    return hashed ? 0 : 1;
}

struct Exchange {
    std::string_view ha1, nonce, nonceCount, cnonce, qop, method, uri, entityHash;
};

int CalcResponse(const EVP_MD* kind, const Exchange& x, char* output) {
    if (output == nullptr) {
        return 1;
    }
    char ha2[kZvsHttpDigestTextBytes];
    const bool hashed = strcasecmp(std::string(x.qop).c_str(), "auth-int") == 0
                            ? HashJoined(kind, {x.method, x.uri, x.entityHash}, ha2)
                            : HashJoined(kind, {x.method, x.uri}, ha2);
    output[0] = '\0';
    if (!hashed) {
        return 1;
    }
    const bool done = x.qop.empty() ? HashJoined(kind, {x.ha1, x.nonce, ha2}, output)
                                    : HashJoined(kind, {x.ha1, x.nonce, x.nonceCount, x.cnonce, x.qop, ha2}, output);
    return done ? 0 : 1;
}

}  // namespace

int ZVS_Security_Http_MD5_DigestCalcHA1(const char* algorithm, const char* userName, const char* realm,
                                        const char* password, const char* nonce, const char* cnonce, char* output) {
    return CalcHA1(EVP_md5(), algorithm, userName, realm, password, nonce, cnonce, output);
}

int ZVS_Security_Http_SHA256_DigestCalcHA1(const char* algorithm, const char* userName, const char* realm,
                                           const char* password, const char* nonce, const char* cnonce, char* output) {
    return CalcHA1(EVP_sha256(), algorithm, userName, realm, password, nonce, cnonce, output);
}

int ZVS_Security_Http_MD5_DigestCalcResponse(const char* ha1, const char* nonce, const char* nonceCount,
                                             const char* cnonce, const char* qop, const char* method, const char* uri,
                                             const char* entityHash, char* output) {
    return CalcResponse(
        EVP_md5(),
        {Text(ha1), Text(nonce), Text(nonceCount), Text(cnonce), Text(qop), Text(method), Text(uri), Text(entityHash)},
        output);
}

int ZVS_Security_Http_SHA256_DigestCalcResponse(const char* ha1, const char* nonce, const char* nonceCount,
                                                const char* cnonce, const char* qop, const char* method,
                                                const char* uri, const char* entityHash, char* output) {
    return CalcResponse(
        EVP_sha256(),
        {Text(ha1), Text(nonce), Text(nonceCount), Text(cnonce), Text(qop), Text(method), Text(uri), Text(entityHash)},
        output);
}
