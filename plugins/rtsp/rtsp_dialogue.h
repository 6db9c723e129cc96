#pragma once

#include "gvx_common/rtsp/common_authenticator.h"
#include "gvx_common/rtsp/common_rtsp_method_base.h"

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace gvxrtsp {

using RtspHeaders = std::vector<std::pair<std::string, std::string>>;

// The texts of one connection with a camera: numbers the requests, answers challenges, and takes answers apart. It
// holds no socket. One thread.
class RtspDialogue {
public:
    enum class Outcome {
        Done,       // status 200
        Again,      // the request is to be sent once more, now with credentials
        Refused,    // the credentials were refused
        NotFound,   // 404
        NoSession,  // 454
        Failed,     // any other status, and what is no answer
    };

    // password is the enciphered form; both may be empty.
    RtspDialogue(const std::string& user, const std::string& password);
    ~RtspDialogue();

    // Builds a request. False when it cannot be built, as with a control character in its URL.
    bool Build(const std::string& method, const std::string& url, const RtspHeaders& headers, std::string& request);
    // The same request once more, with what the last challenge asks for.
    bool BuildAgain(std::string& request) { return Build(m_name, m_url, m_headers, request); }

    // Whether a message is the answer to the last request.
    bool IsAnswer(const std::string& message) const;
    Outcome TakeAnswer(const std::string& message);

    // Of the last answer: the first head of that name, in any case of letters (RFC 2326, section 15.1).
    std::string Header(const char* name) const;
    int Status() const { return m_status; }
    const std::vector<std::string>& MethodNames() const { return m_methods; }
    const std::string& Method() const { return m_name; }

    // The session that SETUP has opened, and the seconds after which the camera forgets it.
    const std::string& Session() const { return m_session; }
    int SessionSeconds() const { return m_sessionSeconds; }

private:
    Outcome TakeChallenge();
    std::vector<std::string> Headers(const char* name) const;
    void TakeSession();

    CCommonAuthenticator m_authenticator;
    const bool m_hasCredentials;
    std::unique_ptr<CCommonRtspMethodBase> m_method;
    std::string m_name;
    std::string m_url;
    RtspHeaders m_headers;
    std::vector<std::string> m_methods;
    std::string m_head;  // of the last answer
    std::string m_session;
    int m_sessionSeconds = 60;
    int m_sequence = 0;
    int m_status = 0;
    bool m_challenged = false;
    bool m_repeated = false;  // the request in hand
};

// The first line of an answer, made fit for the log.
std::string StatusLine(const std::string& message);

}  // namespace gvxrtsp
