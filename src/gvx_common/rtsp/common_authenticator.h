#pragma once

#include <cstdint>
#include <memory>

struct evp_md_ctx_st;

// State of an MD5 computation (RFC 1321). CCommonAuthenticator::MD5Init makes it ready and MD5Final ends it.
struct MD5Context {
    struct FreeDigest {
        void operator()(evp_md_ctx_st* digest) const;
    };

    std::uint32_t state[4] = {};    // the digest's words, low byte first, once MD5Final has made them
    std::uint32_t count[2] = {};    // bits taken in, low word first
    unsigned char buffer[64] = {};  // bytes of the block that is not full yet
    std::unique_ptr<evp_md_ctx_st, FreeDigest> digest;  // the cryptographic library's work on the full blocks
};

// Credentials and a challenge, and the "Authorization" value of an RTSP request that they give: Digest (RFC 2617,
// without qop) when realm and nonce are known, else Basic. One object serves one exchange on one thread.
//
// Texts that are handed in are copied; null unsets them. The password is kept enciphered as CSecurityMgr stores it. It
// is deciphered at the moment of use, and every clear copy is wiped after it. Texts that are handed out by pointer
// belong to the caller, who releases them with free or ReclaimDigestResponse; null means that there is none.
class CCommonAuthenticator {
public:
    CCommonAuthenticator() = default;
    CCommonAuthenticator(const char* username, const char* password, bool passwordIsMD5 = false);
    CCommonAuthenticator(const CCommonAuthenticator& other);
    CCommonAuthenticator& operator=(const CCommonAuthenticator& other);
    virtual ~CCommonAuthenticator();

    // Sets all fields.
    void assign(const char* realm, const char* nonce, const char* algo, const char* username, const char* password,
                bool passwordIsMD5);
    void reset();
    void SetRealmAndNonce(const char* realm, const char* nonce, const char* algo = nullptr);
    // With a nonce of our own: 32 hexadecimal characters that no other call gives.
    void SetRealmAndRandomNonce(const char* szrealm, const char* szalgo = nullptr);
    // passwordIsMD5 says that the clear password is the hexadecimal MD5 of "user:realm:password" already.
    void SetUsernameAndPassword(const char* username, const char* password, bool passwordIsMD5 = false);
    void SetRealm(const char* realm);
    // Both at once; without sznonce the nonce is our own.
    void setAuthInfo(const char* szusername, const char* szpassword, bool passwordIsMD5, const char* szrealm,
                     const char* sznonce, const char* szalgo = nullptr);

    const char* realm() const { return fRealm.get(); }
    const char* nonce() const { return fNonce.get(); }
    const char* algo() const { return fAlgo.get(); }
    const char* username() const { return fUsername.get(); }
    const char* password() const { return fPassword.get(); }  // the enciphered form

    // The response to the challenge: of MD5 over cmd and url too, of the algorithm "SHA-256", written exactly so, over
    // credentials and nonce alone. Null when the password can not be deciphered.
    char* ComputeDigestResponse(const char* cmd, const char* url) const;
    // Wipes and frees any text that this class handed out; null is nothing to do.
    static void ReclaimDigestResponse(const char* response);

    // The header's value; an empty text without user or password. Null when the password can not be deciphered, when it
    // would leave as Basic and AUTH_ALLOW_BASIC forbids that, or when a part holds a control character.
    char* CreateCCommonAuthenticatorString(const char* cmd, const char* url) const;
    char* GeneratorAuthString(const char* cmd, const char* url) const {
        return CreateCCommonAuthenticatorString(cmd, url);
    }

    static char* base64Encode(const char* origSigned, unsigned int origLength);

    // MD5 as published. MD5End and MD5Data write 32 lower-case hexadecimal characters and a terminator into buf, or
    // into memory that the caller frees when buf is null, and give its address; null when there is no MD5 to be had.
    static void MD5Init(MD5Context* context);
    static void MD5Update(MD5Context* context, const unsigned char* data, unsigned int len);
    static void MD5Final(unsigned char digest[16], MD5Context* context);
    static char* MD5End(MD5Context* context, char* buf);
    static char* MD5Data(const unsigned char* data, unsigned int len, char* buf);

private:
    // Wipes a terminated text over its length.
    struct WipeAndFree {
        void operator()(char* text) const;
    };
    using Text = std::unique_ptr<char, WipeAndFree>;

    bool DecryptPassword(char* clear, std::uint32_t size) const;
    static int ComputeMD5DigestResponse(const char* ha1, const char* nonce, const char* cmd, const char* url,
                                        char* response);
    static int ComputeSHA256DigestResponse(const char* userName, const char* passWord, const char* realm,
                                           const char* nonce, char* response);
    Text CreateDigestString(const char* cmd, const char* url) const;
    Text CreateBasicString(const char* url) const;
    static Text strDup(const char* text);

    Text fRealm;
    Text fNonce;
    Text fAlgo;
    Text fUsername;
    Text fPassword;
    bool fPasswordIsMD5 = false;
};
