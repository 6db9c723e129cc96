#include "gvx_common/https/https_stream_util.h"

#include "gvx_common/config/setting_table.h"
#include "gvx_common/https/https_client.h"
#include "gvx_common/utility/gvx_utility.h"
#include "base/bounded_string.h"
#include "base/clock.h"
#include "base/log.h"
#include "base/unique_fd.h"

#include <ace/Guard_T.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <limits>
#include <new>
#include <string_view>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr const char* kTitle = "HTTPS upload";
constexpr std::size_t kSchemeLength = 8;  // "https://"
constexpr const char* SESSION_ID_KEY = "FILESESSIONID";
constexpr unsigned int kUploadsAtOnce = 5;
constexpr int kSemaphoreMost = 2147483647;
constexpr int kTries = 3;
constexpr std::size_t kPieceBytes = 4096;
constexpr std::size_t kAnswerBytes = 4096;
// An answer's body up to this size is read off, so that the link can be used again; a longer one costs more than a
// link.
constexpr int kMostInterimHeads = 16;
constexpr std::uint64_t kMostReadOff = 65536;
// Beyond what a large file takes over a slow line: 100 MB at 512 kbit/s.
constexpr std::string_view kBlankLine = "\r\n\r\n";

class SemaphoreGuard {
public:
    explicit SemaphoreGuard(ACE_Thread_Semaphore& semaphore)
        : m_semaphore(semaphore), m_held(semaphore.acquire() == 0) {}
    ~SemaphoreGuard() {
        if (m_held) {
            m_semaphore.release();
        }
    }
    SemaphoreGuard(const SemaphoreGuard&) = delete;
    SemaphoreGuard& operator=(const SemaphoreGuard&) = delete;
    bool Held() const { return m_held; }

private:
    ACE_Thread_Semaphore& m_semaphore;
    const bool m_held;
};

// Calls take with each line of the head, upper-cased and without its end.
template <typename Take>
void ForEachLine(const char* head, std::size_t length, Take take) {
    const std::string_view text(head, length);
    for (std::size_t begin = 0; begin < length;) {
        const std::size_t end = std::min(text.find('\n', begin), length);
        std::string line(text.substr(begin, end - begin));
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        take(CGvxUtility::toUpper(line));
        begin = end + 1;
    }
}

// What stands behind the key and blanks; false when the line does not begin with the key.
bool ValueOf(const std::string& line, std::string_view key, std::string& value) {
    if (line.compare(0, key.size(), key) != 0) {
        return false;
    }
    value = CGvxUtility::trim(line.substr(key.size()));
    return true;
}

std::int64_t Deadline() {
    return gvx::MonotonicMilliseconds() + gvx::SettingNumber(gvx::Setting::HTTPS_UPLOAD_TIMEOUT) * 1000;
}

// The session in it is a credential.
std::string LoggableURL(const std::string& url) {
    return url.substr(0, std::min(url.find('?'), CGvxUtility::toUpper(url).find(SESSION_ID_KEY)));
}

bool IsDigit(char c) {
    return std::isdigit(static_cast<unsigned char>(c)) != 0;
}

}  // namespace

// Where an upload goes.
struct CHttpsStreamUtil::Target {
    ~Target() { memset_s(sessionID.data(), sessionID.size() + 1, 0, sessionID.size()); }

    std::string host;
    std::uint16_t port = 0;
    std::string uploadURL;
    std::string sessionID;
};

CHttpsStreamUtil::CHttpsStreamUtil() = default;
CHttpsStreamUtil::~CHttpsStreamUtil() = default;

CHttpsStreamUtil* CHttpsStreamUtil::GetInstance() {
    // Never deleted: detached threads may still upload while static objects end.
    static CHttpsStreamUtil* const m_instance = new CHttpsStreamUtil;
    return m_instance;
}

int CHttpsStreamUtil::Init() {
    m_poolSemaphore.reset(new (std::nothrow) ACE_Thread_Semaphore(kUploadsAtOnce, nullptr, nullptr, kSemaphoreMost));
    m_inited = m_poolSemaphore != nullptr;
    return m_inited ? ZVS_SUCCEED : ZVS_FAIL;
}

bool CHttpsStreamUtil::IsHttpsProtocol(const std::string& url) {
    return url.size() > kSchemeLength && CGvxUtility::toUpper(url.substr(0, kSchemeLength)) == "HTTPS://";
}

bool CHttpsStreamUtil::CheckURL(const std::string& url) {
    if (!IsHttpsProtocol(url)) {
        GVX_LOG_ERR(kTitle, "CheckURL, url is not https proto");
        return false;
    }
    const std::size_t colon = url.find(':', kSchemeLength);
    const std::size_t slash = url.find('/', kSchemeLength);
    if (colon == std::string::npos || slash == std::string::npos || slash < colon ||
        url.find('\0') != std::string::npos || CGvxUtility::HoldsControlCharacter(url.c_str())) {
        GVX_LOG_ERR(kTitle, "CheckURL, url is invalid");
        return false;
    }
    return true;
}

int CHttpsStreamUtil::ParseURL(const std::string& url, std::string& host, std::uint16_t& port, std::string& uploadURL,
                               std::string& sessionID) {
    const std::string text = url.size() < kSchemeLength ? std::string() : url.substr(kSchemeLength);
    const std::size_t colon = text.find(':');
    const std::size_t slash = text.find('/');
    const std::size_t question = text.find('?');
    const bool whole = colon != std::string::npos && slash != std::string::npos && colon < slash &&
                       question != std::string::npos && slash < question;
    const std::string digits = whole ? text.substr(colon + 1, slash - colon - 1) : std::string();
    const int number = CGvxUtility::toInt(digits);
    if (colon == 0 || digits.empty() || !std::all_of(digits.begin(), digits.end(), IsDigit) || number < 1 ||
        number > std::numeric_limits<std::uint16_t>::max()) {
        GVX_LOG_ERR(kTitle, "ParseURL, invalid URL");
        return ZVS_PARA_INVALID;
    }
    const std::size_t key = CGvxUtility::toUpper(text).find(SESSION_ID_KEY);
    if (key == std::string::npos) {
        GVX_LOG_ERR(kTitle, "ParseURL, can not find the sessionID in URL");
        return ZVS_PARA_INVALID;
    }
    host = text.substr(0, colon);
    port = static_cast<std::uint16_t>(number);
    uploadURL = text.substr(slash, question - slash);
    sessionID = text.substr(key, text.find('&', key) - key);
    return ZVS_SUCCEED;
}

int CHttpsStreamUtil::UploadFile(const std::string& fileName, const std::string& url) {
    if (fileName.empty() || url.empty()) {
        GVX_LOG_ERR(kTitle, "UploadFile, invalid params");
        return ZVS_PARA_INVALID;
    }
    if (!CheckURL(url)) {
        GVX_LOG_ERR(kTitle, "UploadFile, invalid URL");
        return ZVS_PARA_INVALID;
    }
    {
        const ACE_Guard<ACE_Thread_Mutex> guard(m_initMutex);
        if (guard.locked() == 0) {
            return ZVS_OPERATE_MEMORY_ERROR;
        }
        if (!m_inited && Init() != ZVS_SUCCEED) {
            GVX_LOG_ERR(kTitle, "UploadFile error, fail to init env");
            return ZVS_FAIL;
        }
    }
    Target target;
    if (ParseURL(url, target.host, target.port, target.uploadURL, target.sessionID) != ZVS_SUCCEED) {
        GVX_LOG_ERR(kTitle, "UploadFile, fail to get host and port. URL:[%s]", LoggableURL(url).c_str());
        return ZVS_FAIL;
    }
    const SemaphoreGuard place(*m_poolSemaphore);
    if (!place.Held()) {
        return ZVS_OPERATE_MEMORY_ERROR;
    }
    std::unique_ptr<CHttpsClient> client = PopClientLocked();
    if (client == nullptr) {
        GVX_LOG_ERR(kTitle, "UploadFile error, fail to get client");
        return ZVS_FAIL;
    }
    client->SetDeadline(Deadline());
    const int result = UploadFileInner(*client, fileName, target);
    if (RecyleClientLocked(std::move(client)) != ZVS_SUCCEED) {
        GVX_LOG_ERR(kTitle, "UploadFile, lock mutex wrong happened when recycle the client");
    }
    return result;
}

std::unique_ptr<CHttpsClient> CHttpsStreamUtil::PopClientLocked() {
    const ACE_Guard<ACE_Thread_Mutex> guard(m_clientMutex);
    if (guard.locked() == 0) {
        return nullptr;
    }
    if (m_clientPool.empty()) {
        std::unique_ptr<CHttpsClient> fresh(new (std::nothrow) CHttpsClient);
        if (fresh == nullptr) {
            return nullptr;
        }
        fresh->SetCheckCA(true);
        m_clientPool.push_back(std::move(fresh));
    }
    std::unique_ptr<CHttpsClient> last = std::move(m_clientPool.back());
    m_clientPool.pop_back();
    return last;
}

int CHttpsStreamUtil::RecyleClientLocked(std::unique_ptr<CHttpsClient> client) {
    const ACE_Guard<ACE_Thread_Mutex> guard(m_clientMutex);
    if (guard.locked() == 0) {
        return ZVS_OPERATE_MEMORY_ERROR;
    }
    m_clientPool.push_back(std::move(client));
    return ZVS_SUCCEED;
}

int CHttpsStreamUtil::UploadFileInner(CHttpsClient& client, const std::string& fileName, const Target& target) {
    // What came behind the last answer would be taken for that of this upload.
    if (client.IsConnected() && (!client.IsConnectedTo(target.host, target.port) || !client.IsQuiet())) {
        client.Close();
    }
    int result = ZVS_FAIL;
    bool unanswered = false;  // a request whose answer may still come on this link
    for (int i = 0; i < kTries; ++i) {
        if (!client.IsConnected() && client.Connect(target.host, target.port) != ZVS_SUCCEED) {
            GVX_LOG_ERR(kTitle, "UploadFileInner, Connect to remote failed");
            return ZVS_FAIL;
        }
        result = SendRequestHeaderAndFile(fileName, target, client);
        if (result == ZVS_NET_CONNECT_ERROR) {
            GVX_LOG_ERR(kTitle, "UploadFileInner, SendRequestHeaderAndFile failed, will try again");
            if (client.Connect(target.host, target.port) != ZVS_SUCCEED) {
                GVX_LOG_ERR(kTitle, "UploadFileInner, Connect to remote failed");
                return ZVS_FAIL;
            }
            unanswered = false;
            result = SendRequestHeaderAndFile(fileName, target, client);
            if (result != ZVS_SUCCEED) {
                GVX_LOG_ERR(kTitle, "UploadFileInner, send data to remote failed");
                unanswered = true;
                result = ZVS_FAIL;
            }
            break;
        }
        if (result != ZVS_NET_SEND_ERROR && result != ZVS_NET_RECV_ERROR) {
            break;
        }
        GVX_LOG_ERR(kTitle, "UploadFileInner, SendRequestHeaderAndFile timeout, retry");
        unanswered = client.IsConnected();
    }
    if (unanswered) {
        client.Close();
    }
    return result;
}

int CHttpsStreamUtil::SendRequestHeaderAndFile(const std::string& fileName, const Target& target,
                                               CHttpsClient& client) {
    const gvx::UniqueFd file(open(fileName.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    struct stat status {};
    if (!file.Valid() || fstat(file.Get(), &status) != 0 || !S_ISREG(status.st_mode)) {
        GVX_LOG_ERR(kTitle, "SendRequestHeaderAndFile, Can not open the file[%s]", fileName.c_str());
        return ZVS_FAIL;
    }
    const off_t length = lseek(file.Get(), 0, SEEK_END);
    if (length <= 0 || lseek(file.Get(), 0, SEEK_SET) != 0) {
        GVX_LOG_ERR(kTitle, "SendRequestHeaderAndFile, File lenth is 0, no need to send");
        return ZVS_FAIL;
    }
    char strFileLength[65];
    char strPort[17];
    if (snprintf_s(strFileLength, sizeof(strFileLength), sizeof(strFileLength) - 1, "%ld", static_cast<long>(length)) <
        0) {
        GVX_LOG_ERR(kTitle, "SendRequestHeaderAndFile, snprintf_s for strFileLength failed");
        return ZVS_FAIL;
    }
    if (snprintf_s(strPort, sizeof(strPort), sizeof(strPort) - 1, "%u", static_cast<unsigned int>(target.port)) < 0) {
        GVX_LOG_ERR(kTitle, "SendRequestHeaderAndFile, snprintf_s for strPort failed");
        return ZVS_FAIL;
    }
    std::string request = GenerateNormalUploadRequest(target, strPort, strFileLength);
    int result = client.Send(request.data(), request.size());
    memset_s(request.data(), request.size() + 1, 0, request.size());
    if (result != ZVS_SUCCEED) {
        GVX_LOG_ERR(kTitle, "SendRequestHeaderAndFile, send header failed");
    } else {
        result = SendFile(file.Get(), static_cast<std::uint64_t>(length), client);
    }
    if (result != ZVS_SUCCEED) {
        client.Close();  // what was begun is neither continued nor followed on this link
        return result;
    }
    unsigned int code = 0;
    bool remoteKeepAlive = true;
    bool linkIsClean = false;
    result = ReadAnswer(client, code, remoteKeepAlive, linkIsClean);
    if (result != ZVS_SUCCEED) {
        GVX_LOG_ERR(kTitle, "SendRequestHeaderAndFile, recv response failed");
        return result;
    }
    if (!remoteKeepAlive) {
        GVX_LOG_INFO(kTitle, "SendRequestHeaderAndFile, remote close socket, local client will close");
    }
    if (!remoteKeepAlive || !linkIsClean) {
        client.Close();
    }
    if (code != 200) {
        GVX_LOG_ERR(kTitle, "SendRequestHeaderAndFile, remote response error, http code[%u]", code);
        return ZVS_FAIL;
    }
    return ZVS_SUCCEED;
}

int CHttpsStreamUtil::SendFile(int descriptor, std::uint64_t length, CHttpsClient& client) {
    char piece[kPieceBytes];
    for (std::uint64_t sent = 0; sent < length;) {
        const ssize_t count = read(descriptor, piece, std::min<std::uint64_t>(sizeof(piece), length - sent));
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            GVX_LOG_ERR(kTitle, "SendRequestHeaderAndFile, read file failed");
            return ZVS_FAIL;
        }
        const int result = client.Send(piece, static_cast<std::size_t>(count));
        if (result != ZVS_SUCCEED) {
            GVX_LOG_ERR(kTitle, "SendRequestHeaderAndFile, send file failed");
            return result;
        }
        sent += static_cast<std::uint64_t>(count);
    }
    return ZVS_SUCCEED;
}

// The link is clean when nothing of this answer is left on it.
int CHttpsStreamUtil::ReadAnswer(CHttpsClient& client, unsigned int& code, bool& remoteKeepAlive, bool& linkIsClean) {
    char answer[kAnswerBytes];
    std::size_t held = 0;
    int interimHeads = 0;
    for (;;) {
        const std::size_t blank = std::string_view(answer, held).find(kBlankLine);
        const std::size_t head = blank == std::string_view::npos ? held : blank + kBlankLine.size();
        if (blank != std::string_view::npos || held == sizeof(answer)) {
            HandleResponse(answer, head, code, remoteKeepAlive);
            if (blank == std::string_view::npos) {
                return ZVS_SUCCEED;  // longer than any head should be: its first line counts
            }
            if (code >= 100 && code < 200 && ++interimHeads <= kMostInterimHeads) {
                // Another head follows an interim one (RFC 9110, section 15.2).
                std::memmove(answer, answer + head, held - head);
                held -= head;
                continue;
            }
            std::uint64_t body = 0;
            linkIsClean = remoteKeepAlive && BodyLength(answer, head, code, body) && held - head <= body &&
                          body <= kMostReadOff && ReadOff(client, body - (held - head)) && client.IsQuiet();
            return ZVS_SUCCEED;
        }
        std::size_t received = 0;
        const int result = client.Recv(answer + held, sizeof(answer) - held, received);
        if (result != ZVS_SUCCEED) {
            if (held > 0) {
                client.Close();  // the rest of this answer would be taken for that of the next request
            }
            return result;
        }
        held += received;
    }
}

bool CHttpsStreamUtil::ReadOff(CHttpsClient& client, std::uint64_t bytes) {
    char piece[kPieceBytes];
    while (bytes > 0) {
        std::size_t received = 0;
        if (client.Recv(piece, std::min<std::uint64_t>(sizeof(piece), bytes), received) != ZVS_SUCCEED) {
            return false;
        }
        bytes -= received;
    }
    return true;
}

std::string CHttpsStreamUtil::GenerateNormalUploadRequest(const Target& target, const char* port,
                                                          const char* contentLength) {
    return "POST " + target.uploadURL + " HTTP/1.1\r\n" + "Content-Type: application/octet-stream\r\n" +
           "Host: " + target.host + ":" + port + "\r\n" + "Content-Length: " + contentLength + "\r\n" +
           "Cookie: " + target.sessionID + "\r\n" + "Connection: Keep-Alive\r\n" + "\r\n";
}

void CHttpsStreamUtil::HandleResponse(const char* response, std::size_t responseLen, unsigned int& resCode,
                                      bool& remoteKeepAlive) {
    resCode = 0;
    remoteKeepAlive = true;
    ForEachLine(response, responseLen, [&resCode, &remoteKeepAlive](const std::string& line) {
        if (line.find("HTTP/") != std::string::npos) {
            const std::size_t code = std::min(line.find_first_not_of(' ', line.find(' ')), line.size());
            const std::string digits = line.substr(code, 3);
            if (digits.size() == 3 && std::all_of(digits.begin(), digits.end(), IsDigit)) {
                resCode = static_cast<unsigned int>(CGvxUtility::toInt(digits));
            } else {
                GVX_LOG_ERR(kTitle, "HandleResponse, find res code, but its format wrong");
            }
        }
        constexpr std::string_view kConnection = "CONNECTION:";
        const std::size_t key = line.find(kConnection);
        if (key != std::string::npos) {
            const std::string value = CGvxUtility::trim(line.substr(key + kConnection.size()));
            remoteKeepAlive = value.compare(0, 5, "CLOSE") != 0;
        }
    });
}

bool CHttpsStreamUtil::BodyLength(const char* response, std::size_t responseLen, unsigned int resCode,
                                  std::uint64_t& length) {
    length = 0;
    bool known = resCode == 204 || resCode == 304;
    bool coded = false;  // by a transfer coding, or by more than one length
    bool counted = false;
    ForEachLine(response, responseLen, [&](const std::string& line) {
        std::string value;
        if (ValueOf(line, "TRANSFER-ENCODING:", value)) {
            coded = true;
        } else if (ValueOf(line, "CONTENT-LENGTH:", value)) {
            if (known) {
                coded = coded || counted;
                return;
            }
            counted = true;
            constexpr std::size_t kMostDigits = 18;
            known = !value.empty() && value.size() <= kMostDigits && std::all_of(value.begin(), value.end(), IsDigit);
            for (std::size_t i = 0; known && i < value.size(); ++i) {
                length = length * 10 + static_cast<std::uint64_t>(value[i] - '0');
            }
        }
    });
    return known && !coded;
}
