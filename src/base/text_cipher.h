#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

// AES-256-GCM (NIST SP 800-38D) for short texts that are stored, such as passwords.
namespace gvx {

using CipherKey = std::array<unsigned char, 32>;

constexpr std::size_t kMaxCipherTextBytes = 64u * 1024u;  // of clear text

// Enciphers under a fresh random nonce. The result is base64 of nonce (12 bytes), cipher text and tag (16 bytes).
// False when the text is too long or no random bytes could be had; stored is then empty. Any thread.
bool EncryptText(const CipherKey& key, const std::string& clear, std::string& stored);

// Deciphers into the caller's buffer with a terminator, so that the caller can wipe it. False when stored is not
// of that form, was altered, belongs to another key, or does not fit; the buffer is then wiped whole. Any thread.
bool DecryptText(const CipherKey& key, const std::string& stored, char* clear, std::size_t clearSize);

}  // namespace gvx
