#pragma once

#include <cstddef>

// The digest computation of HTTP authentication (RFC 7616, section 3.4; RFC 2617, section 3.2.2) with MD5 and
// SHA-256. A null argument counts as an empty text. Results are lower-case hexadecimal texts with a terminator:
// 32 characters for MD5, 64 for SHA-256; the output holds kZvsHttpDigestTextBytes at least. 0 for success; 1 when
// the output is null or the hash cannot be computed (the output is then an empty text). Any thread.
//
// HA1 = H(user:realm:password). With an algorithm that ends in "-sess", in any case of letters, it is
// H(H(user:realm:password):nonce:cnonce) instead (section 3.4.2).
//
// Response = H(HA1:nonce:nc:cnonce:qop:HA2), or H(HA1:nonce:HA2) with an empty qop (section 3.4.1 and RFC 2617).
// HA2 = H(method:uri), or H(method:uri:H(entity)) with the qop "auth-int", where the entity's hash is given as text
// (section 3.4.3).
constexpr std::size_t kZvsHttpDigestTextBytes = 65;

int ZVS_Security_Http_MD5_DigestCalcHA1(const char* algorithm, const char* userName, const char* realm,
                                        const char* password, const char* nonce, const char* cnonce, char* output);
int ZVS_Security_Http_SHA256_DigestCalcHA1(const char* algorithm, const char* userName, const char* realm,
                                           const char* password, const char* nonce, const char* cnonce, char* output);

int ZVS_Security_Http_MD5_DigestCalcResponse(const char* ha1, const char* nonce, const char* nonceCount,
                                             const char* cnonce, const char* qop, const char* method, const char* uri,
                                             const char* entityHash, char* output);
int ZVS_Security_Http_SHA256_DigestCalcResponse(const char* ha1, const char* nonce, const char* nonceCount,
                                                const char* cnonce, const char* qop, const char* method,
                                                const char* uri, const char* entityHash, char* output);
