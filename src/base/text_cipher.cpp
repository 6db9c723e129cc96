#include "base/text_cipher.h"

#include "base/base64.h"
#include "base/random.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>

#include <memory>
#include <vector>

namespace gvx {
namespace {

constexpr std::size_t kNonceBytes = 12;
constexpr std::size_t kTagBytes = 16;

struct FreeContext {
    void operator()(EVP_CIPHER_CTX* context) const { EVP_CIPHER_CTX_free(context); }
};
using Context = std::unique_ptr<EVP_CIPHER_CTX, FreeContext>;
using Bytes = std::vector<unsigned char>;

// record: nonce and room for cipher text and tag.
bool Seal(const CipherKey& key, const std::string& clear, Bytes& record) {
    unsigned char* const body = record.data() + kNonceBytes;
    const Context context(EVP_CIPHER_CTX_new());
    int length = 0;
    int rest = 0;
    return context != nullptr &&
           EVP_EncryptInit_ex(context.get(), EVP_aes_256_gcm(), nullptr, key.data(), record.data()) == 1 &&
           EVP_EncryptUpdate(context.get(), body, &length, reinterpret_cast<const unsigned char*>(clear.data()),
                             static_cast<int>(clear.size())) == 1 &&
           EVP_EncryptFinal_ex(context.get(), body + length, &rest) == 1 &&
           EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_GCM_GET_TAG, kTagBytes, body + clear.size()) == 1;
}

bool Open(const CipherKey& key, Bytes& record, std::size_t clearLength, unsigned char* clear) {
    const unsigned char* const body = record.data() + kNonceBytes;
    const Context context(EVP_CIPHER_CTX_new());
    int length = 0;
    int rest = 0;
    return context != nullptr &&
           EVP_DecryptInit_ex(context.get(), EVP_aes_256_gcm(), nullptr, key.data(), record.data()) == 1 &&
           EVP_DecryptUpdate(context.get(), clear, &length, body, static_cast<int>(clearLength)) == 1 &&
           EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_GCM_SET_TAG, kTagBytes,
                               record.data() + kNonceBytes + clearLength) == 1 &&
           EVP_DecryptFinal_ex(context.get(), clear + length, &rest) == 1;
}

bool ReadRecord(const std::string& stored, Bytes& record) {
    std::size_t length = CBB::CBase64::GetDecodeBinarySize(stored.size());
    if (length < kNonceBytes + kTagBytes || length > kMaxCipherTextBytes + kNonceBytes + kTagBytes + 2) {
        return false;
    }
    record.resize(length);
    if (CBB::CBase64::DecodeBinary(stored.data(), stored.size(), record.data(), length) != 0) {
        return false;
    }
    record.resize(length);
    return length >= kNonceBytes + kTagBytes;
}

}  // namespace

bool EncryptText(const CipherKey& key, const std::string& clear, std::string& stored) {
    stored.clear();
    if (clear.size() > kMaxCipherTextBytes) {
        return false;
    }
    Bytes record(kNonceBytes + clear.size() + kTagBytes);
    if (CBB::GenerateRandom(record.data(), kNonceBytes) != 0 || !Seal(key, clear, record)) {
        return false;
    }
    stored.resize(CBB::CBase64::GetEncodeBinarySize(record.size()));
    CBB::CBase64::EncodeBinary(record.data(), record.size(), stored.data(), stored.size());
    stored.pop_back();  // the terminator
    return true;
}

bool DecryptText(const CipherKey& key, const std::string& stored, char* clear, std::size_t clearSize) {
    if (clear == nullptr || clearSize == 0) {
        return false;
    }
    Bytes record;
    const bool read = ReadRecord(stored, record);
    const std::size_t length = read ? record.size() - kNonceBytes - kTagBytes : 0;
    if (!read || length >= clearSize || !Open(key, record, length, reinterpret_cast<unsigned char*>(clear))) {
        OPENSSL_cleanse(clear, clearSize);
        return false;
    }
    clear[length] = '\0';
    return true;
}

}  // namespace gvx
