#pragma once

struct Common_HTTP_AUTH;

namespace gvx {

// User and stored password for one device, and the values of an "Authorization" line that they give: Basic (RFC 7617)
// and Digest (RFC 7616). The password is kept enciphered, as CSecurityMgr stores it, and deciphered at the moment of
// use; every clear copy is wiped. One thread at a time.
class HttpCredentials {
public:
    HttpCredentials() = default;
    ~HttpCredentials();
    HttpCredentials(const HttpCredentials&) = delete;
    HttpCredentials& operator=(const HttpCredentials&) = delete;

    // 0; 1 with a log line for a user of more than 59 characters or a long password that is not enciphered.
    int Take(const char* user, const char* password);
    void Forget();

    // These give a text of this object, which the next call of either writes over; null with a log line where there
    // is none. As MakeBasic has it, a line feed stands behind each 72 characters and at the end; device is named in
    // the log when AUTH_ALLOW_BASIC refuses.
    const char* MakeBasic(const char* device);
    // For a GET of uri; the challenge takes the nonce count and the client's nonce of the answer.
    const char* MakeDigest(Common_HTTP_AUTH& challenge, const char* uri);

private:
    bool ClearPassword(char* clear, unsigned int size) const;
    const char* FillDigest(Common_HTTP_AUTH& challenge, const char* uri, bool sha256, const char* algorithm);

    char m_userName[60] = {};
    char m_password[60] = {};  // enciphered; for one that is too long, a handle of the security manager, released here
    bool m_holdsPassword = false;  // m_password is a handle that this object asked the security manager for
    char m_message[513] = {};
};

}  // namespace gvx
