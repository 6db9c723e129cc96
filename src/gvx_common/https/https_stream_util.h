#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <ace/Thread_Mutex.h>
#include <ace/Thread_Semaphore.h>

class CHttpsClient;

// Sends files to a server by HTTPS POST. Clients stay connected between uploads and are used again for the same server;
// five uploads run at a time, further ones wait. Any number of threads may call.
class CHttpsStreamUtil {
public:
    // The singleton; never null, alive until the process ends.
    static CHttpsStreamUtil* GetInstance();

    CHttpsStreamUtil();
    ~CHttpsStreamUtil();
    CHttpsStreamUtil(const CHttpsStreamUtil&) = delete;
    CHttpsStreamUtil& operator=(const CHttpsStreamUtil&) = delete;

    // Sends the file, which is opened as named, to "https://host:port/path?...FILESESSIONID=value&...": port, question
    // mark and session are required, the session's pair is sent as a cookie. A link that is lost is made once more;
    // silence of 2 s is tried up to three times; the file is sent from its start each time. All of it takes
    // HTTPS_UPLOAD_TIMEOUT seconds at most (1800 by default).
    // 0 when the server answered 200; 2 for an empty argument or a URL of another form or with a control character; 1
    // for any other answer and most failures; ZVS_NET_SEND_ERROR or ZVS_NET_RECV_ERROR when the last try ended in
    // silence; ZVS_OPERATE_MEMORY_ERROR when a lock failed.
    int UploadFile(const std::string& fileName, const std::string& url);

    // Whether the URL begins with "https://", in any case of letters, and goes on.
    static bool IsHttpsProtocol(const std::string& url);

    // The parts of such a URL; 0, or 2 with a log line.
    static int ParseURL(const std::string& url, std::string& host, std::uint16_t& port, std::string& uploadURL,
                        std::string& sessionID);
    // The status code of an answer's head, 0 when there is none, and whether the server keeps the link.
    static void HandleResponse(const char* response, std::size_t responseLen, unsigned int& resCode,
                               bool& remoteKeepAlive);
    // How many bytes of body follow the head: false when only the end of the link tells (RFC 9112, section 6.3).
    static bool BodyLength(const char* response, std::size_t responseLen, unsigned int resCode, std::uint64_t& length);

private:
    struct Target;

    int Init();
    static bool CheckURL(const std::string& url);
    std::unique_ptr<CHttpsClient> PopClientLocked();
    int RecyleClientLocked(std::unique_ptr<CHttpsClient> client);
    static int UploadFileInner(CHttpsClient& client, const std::string& fileName, const Target& target);
    static int SendRequestHeaderAndFile(const std::string& fileName, const Target& target, CHttpsClient& client);
    static int SendFile(int descriptor, std::uint64_t length, CHttpsClient& client);
    static int ReadAnswer(CHttpsClient& client, unsigned int& code, bool& remoteKeepAlive, bool& linkIsClean);
    static bool ReadOff(CHttpsClient& client, std::uint64_t bytes);
    static std::string GenerateNormalUploadRequest(const Target& target, const char* port, const char* contentLength);

    bool m_inited = false;
    std::vector<std::unique_ptr<CHttpsClient>> m_clientPool;  // idle ones; guarded by m_clientMutex
    std::unique_ptr<ACE_Thread_Semaphore> m_poolSemaphore;
    ACE_Thread_Mutex m_clientMutex;
    ACE_Thread_Mutex m_initMutex;  // guards Init; never held together with the other
};
