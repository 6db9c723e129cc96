#include "gvx_common/http/common_http_stream.h"

#include "gvx_common/config/setting_table.h"
#include "gvx_common/utility/gvx_utility.h"
#include "base/bounded_string.h"
#include "base/clock.h"
#include "base/log.h"

#include <ace/FILE_Connector.h>
#include <ace/OS_NS_errno.h>

#include <algorithm>
#include <cctype>
#include <climits>
#include <cstring>
#include <new>
#include <string>

#include <fcntl.h>

namespace {

constexpr const char* kTitle = "HTTP stream";
constexpr const char* kLineEnd = "\r\n";
constexpr const char* kHeaderFailed = "GVX format requese header failed.";
constexpr const char* kShortHeaderFailed = "GVX format request header failed.";
constexpr int kReceiveSeconds = 8;
constexpr int kBodyPiece = 1024;
constexpr int kPicturePiece = 1500;
constexpr std::size_t kChallengeBytes = 512;
constexpr std::size_t kAlgorithmBytes = 16;
constexpr int kFileMode = 0644;

constexpr const char* kAccept =
    "Accept: image/jpeg, application/x-ms-application, image/gif, application/xaml+xml, image/pjpeg, "
    "application/x-ms-xbap, application/vnd.ms-excel, application/vnd.ms-powerpoint, application/msword, */*";
// Two texts on one line: devices have always seen it so.
constexpr const char* kUserAgent =
    "User-Agent:Mozilla/4.0 (compatible; MSIE 5.00; Windows 98)"
    "User-Agent: Mozilla/4.0 (compatible; MSIE 7.0; Windows NT 6.1; Trident/4.0; SLCC2; .NET CLR 2.0.50727; .NET CLR "
    "3.5.30729; .NET CLR 3.0.30729; Media Center PC 6.0; .NET4.0C; .NET4.0E; aff-kingsoft-ciba)";

// Copies what stands between name (which ends with a quote) and the closing quote, cut at the field's size.
template <std::size_t N>
void CopyQuoted(const char* value, const char* name, char (&field)[N]) {
    const char* begin = std::strstr(value, name);
    if (begin != nullptr) {
        begin += std::strlen(name);
        const std::size_t length = std::min(std::strcspn(begin, "\""), N - 1);
        std::memcpy(field, begin, length);
        field[length] = '\0';
    }
}

void ReadAlgorithm(const char* value, std::uint8_t& mask) {
    constexpr const char* kName = "algorithm=";
    const char* begin = std::strstr(value, kName);
    if (begin == nullptr) {
        return;
    }
    begin += std::strlen(kName);
    const std::string word(begin, std::min(std::strcspn(begin, ", "), kAlgorithmBytes));
    if (word.compare(0, 7, "SHA-256") == 0) {
        mask |= HTTP_AUTH_ALGORTM_MASK_SHA256;
    } else if (word.compare(0, 3, "MD5") == 0) {
        mask |= HTTP_AUTH_ALGORTM_MASK_MD5;
    } else {
        GVX_LOG_WARN(kTitle, "Unknown http auth algorithm");
    }
}

// "Basic " and base64 in lines of 72 characters: the one value whose line feeds may be left out.
bool IsBasicInLines(const char* value) {
    constexpr const char* kScheme = "Basic ";
    return std::strncmp(value, kScheme, std::strlen(kScheme)) == 0 &&
           std::all_of(value + std::strlen(kScheme), value + std::strlen(value), [](char c) {
               return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '+' || c == '/' || c == '=' || c == '\n';
           });
}

}  // namespace

CCommonHttpStream::CCommonHttpStream() : m_pResponse(new (std::nothrow) char[kResponseBytes]()) {
    m_nResponseLimit = m_pResponse != nullptr ? kResponseBytes : 0;
    m_oSocketStream.SetTimeout(RECV_TYPE, ACE_Time_Value(kReceiveSeconds));
}

CCommonHttpStream::~CCommonHttpStream() {
    Close();
    memset_s(m_RequestHeader, sizeof(m_RequestHeader), 0, sizeof(m_RequestHeader));
}

// What was asked before is done with; a peer that sends a byte now and then meets no other limit.
void CCommonHttpStream::StartDeadline() {
    const long long seconds =
        m_exchangeSeconds > 0 ? m_exchangeSeconds : gvx::SettingNumber(gvx::Setting::HTTP_EXCHANGE_TIMEOUT);
    m_oSocketStream.SetDeadline(gvx::MonotonicMilliseconds() + seconds * 1000);
}

int CCommonHttpStream::Init(const char* szHost, std::uint16_t uPort, const char* Username, const char* PassWord) {
    if (szHost == nullptr) {
        GVX_LOG_ERR(kTitle, "szHost is NULL.");
        return ZVS_PARA_INVALID;
    }
    if (m_bConnected) {
        m_oSocketStream.Close();
        m_bConnected = false;
    }
    if (strncpy_s(m_ipaddr, sizeof(m_ipaddr), szHost, std::strlen(szHost)) != 0) {
        GVX_LOG_ERR(kTitle, "strncpy_s m_ipaddr failed!");
        return ZVS_FAIL;
    }
    m_port = uPort;
    // The credentials of the device before are not for this one.
    m_credentials.Forget();
    StartDeadline();
    const int result = m_oSocketStream.Connect(szHost, uPort, 0);
    m_bConnected = result == 0;
    if (Username == nullptr) {
        GVX_LOG_ERR(kTitle, "invalid user.");
        return ZVS_PARA_INVALID;
    }
    if (PassWord == nullptr) {
        GVX_LOG_ERR(kTitle, "invalid pass.");
        return ZVS_PARA_INVALID;
    }
    const int taken = m_credentials.Take(Username, PassWord);
    return taken != ZVS_SUCCEED ? taken : result;
}

void CCommonHttpStream::Close() {
    ClearLastReq();
    if (m_bConnected) {
        m_oSocketStream.Close();
        m_bConnected = false;
    }
}

void CCommonHttpStream::ClearLastReq() {
    memset_s(m_RequestBody, sizeof(m_RequestBody), 0, sizeof(m_RequestBody));
    memset_s(m_RequestHeader, sizeof(m_RequestHeader), 0, sizeof(m_RequestHeader));
    memset_s(m_ResponseHeader, sizeof(m_ResponseHeader), 0, sizeof(m_ResponseHeader));
    memset_s(m_pResponse.get(), static_cast<std::size_t>(m_nResponseLimit), 0, kResponseBytes);
    m_bResponsed = false;
    m_nResponseHeaderSize = 0;
    m_nResponseSize = 0;
    m_pContent.reset();
}

// ---- requests ----

void CCommonHttpStream::ForgetRequest() {
    memset_s(m_RequestHeader, sizeof(m_RequestHeader), 0, sizeof(m_RequestHeader));
}

bool CCommonHttpStream::Append(const char* text) {
    return text != nullptr && strncat_s(m_RequestHeader, sizeof(m_RequestHeader), text, std::strlen(text)) == 0;
}

bool CCommonHttpStream::AppendEnd(const char* pCookieAndRange, long nFrom, long nTo) {
    char number[24];
    bool done = pCookieAndRange == nullptr || (Append("Set Cookie:0") && Append(pCookieAndRange) && Append(kLineEnd));
    if (nFrom > 0) {
        done = done && snprintf_s(number, sizeof(number), sizeof(number) - 1, "%ld", nFrom) > 0 &&
               Append("Range: bytes=") && Append(number) && Append("-");
        if (nFrom < nTo) {
            done = done && snprintf_s(number, sizeof(number), sizeof(number) - 1, "%ld", nTo) > 0 && Append(number);
        }
        done = done && Append(kLineEnd);
    }
    return done && Append(kLineEnd);
}

const char* CCommonHttpStream::FormatRequestHeader(const char* pServer, const char* pPort, const char* pObject,
                                                   long& Length, const char* RequestType, const char* pCookie,
                                                   const char* pReferer, long nFrom, long nTo, int /*nReserved*/) {
    ClearLastReq();
    for (const char* text : {pServer, pPort, pObject, RequestType, pCookie, pReferer}) {
        if (CGvxUtility::HoldsControlCharacter(text)) {
            GVX_LOG_ERR(kHeaderFailed, "A text of the request holds a control character.");
            return nullptr;
        }
    }
    bool done = Append(RequestType) && Append(pObject) && Append(" HTTP/1.1") && Append(kLineEnd);
    if (pReferer != nullptr) {
        done = done && Append("Referer:") && Append(pReferer) && Append(kLineEnd);
    }
    done = done && Append(kAccept) && Append(kLineEnd) && Append(kUserAgent) && Append(kLineEnd) &&
           Append("Accept-Encoding: gzip, deflate") && Append(kLineEnd) && Append("Host: ") && Append(pServer);
    if (pPort != nullptr) {
        done = done && Append(":") && Append(pPort);
    }
    done =
        done && Append(kLineEnd) && Append("Connection: close") && Append(kLineEnd) && AppendEnd(pCookie, nFrom, nTo);
    if (!done) {
        ForgetRequest();
        GVX_LOG_ERR(kHeaderFailed, "strncat_s  failed.");
        return nullptr;
    }
    Length = static_cast<long>(std::strlen(m_RequestHeader));
    return m_RequestHeader;
}

const char* CCommonHttpStream::FormatARequestHeader(const char* pServer, const char* pObject, long& Length,
                                                    const char* RequestType, const char* pCookie, const char* pReferer,
                                                    long nFrom, long nTo, int /*nReserved*/) {
    ClearLastReq();
    for (const char* text : {pServer, pObject, RequestType, pCookie, pReferer}) {
        if (CGvxUtility::HoldsControlCharacter(text)) {
            GVX_LOG_ERR(kShortHeaderFailed, "A text of the request holds a control character.");
            return nullptr;
        }
    }
    bool done = Append(RequestType) && Append(pObject) && Append(" HTTP/1.1") && Append(kLineEnd) && Append("Host:") &&
                Append(pServer) && Append(kLineEnd);
    if (pReferer != nullptr) {
        done = done && Append("Referer:") && Append(pReferer) && Append(kLineEnd);
    }
    if (!done || !AppendEnd(pCookie, nFrom, nTo)) {
        ForgetRequest();
        GVX_LOG_ERR(kShortHeaderFailed, "strncat_s to resquest failed.");
        return nullptr;
    }
    Length = static_cast<long>(std::strlen(m_RequestHeader));
    return m_RequestHeader;
}

const char* CCommonHttpStream::FormatRequestHeaderEx(const char* pType, const char* pValue, long& Length) {
    const std::size_t length = std::strlen(m_RequestHeader);
    if (length < 2 || pType == nullptr || pValue == nullptr) {
        GVX_LOG_ERR(kTitle, "NULL or <2 bytes");
        return nullptr;
    }
    std::string value = pValue;
    if (IsBasicInLines(pValue)) {
        value.erase(std::remove(value.begin(), value.end(), '\n'), value.end());
    }
    bool done = !CGvxUtility::HoldsControlCharacter(pType) && !CGvxUtility::HoldsControlCharacter(value.c_str());
    if (!done) {
        GVX_LOG_ERR(kTitle, "A header line holds a control character.");
    } else {
        m_RequestHeader[length - 2] = '\0';
        done = Append(pType) && Append(":") && Append(value.c_str()) && Append(kLineEnd) && Append(kLineEnd);
        if (!done) {
            GVX_LOG_ERR(kTitle, "strncat_s to head failed.");
        }
    }
    memset_s(value.data(), value.size() + 1, 0, value.size());
    if (!done) {
        ForgetRequest();  // so that what was refused is not sent without its line
        return nullptr;
    }
    Length = static_cast<long>(std::strlen(m_RequestHeader));
    return m_RequestHeader;
}

const char* CCommonHttpStream::FormatRequestBody(const char* pType, const char* pValue, long& Length) {
    // The room is that of the request, which takes the body in the end.
    const std::size_t room = sizeof(m_RequestBody) - std::strlen(m_RequestHeader);
    const auto append = [this, room](const char* text) {
        return text != nullptr && strncat_s(m_RequestBody, room, text, std::strlen(text)) == 0;
    };
    if (!append(pType) || !append("=") || !append(pValue) || !Append(m_RequestBody)) {
        ForgetRequest();
        GVX_LOG_ERR(kTitle, "strncat_s to body failed.");
        return nullptr;
    }
    Length = static_cast<long>(std::strlen(m_RequestHeader));
    return m_RequestHeader;
}

bool CCommonHttpStream::SendRequest(const char* pRequestHeader, long Length, bool /*bReserved*/) {
    const char* request = pRequestHeader != nullptr ? pRequestHeader : m_RequestHeader;
    long most = Length != 0 ? Length : static_cast<long>(std::strlen(request));
    if (pRequestHeader == nullptr) {
        most = std::min(most, static_cast<long>(std::strlen(request)));  // no more than was composed
    }
    if (most <= 0 || most > INT_MAX) {
        GVX_LOG_ERR(kTitle, "There is no request to send.");
        return false;
    }
    const auto length = static_cast<unsigned int>(most);
    StartDeadline();
    if (m_oSocketStream.Send(request, length) == -1) {
        GVX_LOG_ERR(kTitle, "failed, error: %d.", ACE_OS::last_error());
        return false;
    }
    m_RequestLength = static_cast<long>(length);
    return true;
}

// ---- answers ----

void CCommonHttpStream::IsResponseEnd(int nIndex, bool& bEndResponse) const {
    bEndResponse =
        nIndex >= 3 && nIndex < kRequestBytes && std::memcmp(m_ResponseHeader + nIndex - 3, "\r\n\r\n", 4) == 0;
}

// Byte by byte, so that nothing of the body is taken by mistake. False when the peer closed or was silent.
bool CCommonHttpStream::ReadHeader(int& count) {
    bool end = false;
    for (m_nCurIndex = 0; m_nCurIndex < kRequestBytes && !end; ++m_nCurIndex) {
        if (m_oSocketStream.Recv(m_ResponseHeader + m_nCurIndex, 1, 0) < 1) {
            return false;
        }
        IsResponseEnd(m_nCurIndex, end);
    }
    m_ResponseHeader[m_nCurIndex] = '\0';
    count = m_nCurIndex;
    return true;
}

const char* CCommonHttpStream::GetResponseHeader(int& nLength) {
    if (!m_bResponsed) {
        int count = 0;
        if (!ReadHeader(count)) {
            GVX_LOG_ERR(kTitle, "error:%d.", ACE_OS::last_error());
            return nullptr;
        }
        m_nResponseHeaderSize = count;
        m_bResponsed = true;
    }
    nLength = m_nResponseHeaderSize;
    return m_ResponseHeader;
}

const char* CCommonHttpStream::GetResponse(int& nLength, bool bNeedPrintResponse) {
    int timeouts = 0;
    while (!m_bResponsed && m_nResponseSize < kResponseBytes && m_pResponse != nullptr) {
        char piece[kBodyPiece];
        const auto count = static_cast<int>(m_oSocketStream.Recv(piece, sizeof(piece), 0));
        if (count == 0) {
            break;
        }
        if (count < 0) {
            if (timeouts > CMN_MAX_TIME_OUT_TIMES) {
                GVX_LOG_ERR(kTitle, "HTTP  timeout > CMN_MAX_TIME_OUT_TIMES break.");
                break;
            }
            if (m_nResponseSize == 0) {
                GVX_LOG_ERR(kTitle, "len:%d, nIndex:%d.", count, m_nResponseSize);
                return nullptr;
            }
            if (ACE_OS::last_error() != ETIME) {
                break;
            }
            ++timeouts;
            continue;
        }
        if (count >= kResponseBytes - m_nResponseSize) {
            GVX_LOG_ERR(kTitle, "memcpy_s  failed.");
            return nullptr;
        }
        std::memcpy(m_pResponse.get() + m_nResponseSize, piece, static_cast<std::size_t>(count));
        m_nResponseSize += count;
    }
    m_bResponsed = true;
    nLength = m_nResponseSize;
    if (bNeedPrintResponse) {
        DumpResponse();
    }
    return m_pResponse.get();
}

int CCommonHttpStream::GetField(const char* szDst, const char* szSession, char* szValue, int nMaxLength) const {
    if (!m_bResponsed) {
        GVX_LOG_ERR(kTitle, "m_bResponsed is false.");
        return ZVS_FAIL;
    }
    if (szValue == nullptr || szDst == nullptr || szSession == nullptr) {
        return ZVS_FAIL;
    }
    const char* name = std::strstr(szDst, szSession);
    if (name == nullptr) {
        GVX_LOG_INFO(kTitle, "can't find %s.", szSession);
        return -2;
    }
    const char* end = std::strstr(name, kLineEnd);
    if (end == nullptr) {
        GVX_LOG_ERR(kTitle, "can't find CRLF.");
        return ZVS_FAIL;
    }
    // Behind the name, its colon and a blank. Devices' code relies on the presence test: a value is never copied.
    const std::ptrdiff_t length = end - (name + std::strlen(szSession) + 2);
    if (std::min<std::ptrdiff_t>(length, nMaxLength) >= 0) {
        return ZVS_FAIL;
    }
    if (nMaxLength > 0) {
        *szValue = '\0';
    }
    return ZVS_SUCCEED;
}

namespace {

int ReadValue(const char* name, char* outbuf, int& buflen, const char*& end) {
    if (name == nullptr) {
        GVX_LOG_INFO(kTitle, "Begin is null.");
        return ZVS_PARA_INVALID;
    }
    const char* assign = std::strchr(name, ':');
    if (assign == nullptr) {
        GVX_LOG_ERR(kTitle, "Assign is null.");
        return ZVS_PARA_INVALID;
    }
    end = std::strstr(assign, kLineEnd);
    if (end == nullptr) {
        GVX_LOG_ERR(kTitle, "End is null.");
        return ZVS_PARA_INVALID;
    }
    const std::ptrdiff_t length = end - assign - 1;
    if (length == 0) {
        GVX_LOG_ERR(kTitle, "Length is zero.");
        return ZVS_FAIL;
    }
    if (outbuf == nullptr || length > buflen) {
        GVX_LOG_ERR(kTitle, "Length is longer than buffer length.");
        return ZVS_FAIL;
    }
    std::memcpy(outbuf, assign + 1, static_cast<std::size_t>(length));
    buflen = static_cast<int>(length);
    return ZVS_SUCCEED;
}

}  // namespace

int CCommonHttpStream::ParseSession(const char* pMsg, const char* param, char* outbuf, int& buflen, int offset) {
    const char* end = nullptr;
    const bool inside = pMsg != nullptr && offset >= 0 &&
                        strnlen(pMsg, static_cast<std::size_t>(offset)) == static_cast<std::size_t>(offset);
    return ReadValue(inside ? CGvxUtility::strcasestr(pMsg + offset, param) : nullptr, outbuf, buflen, end);
}

int CCommonHttpStream::parseSession(const char* pMsg, const char* param, char* outbuf, int& buflen, int& offset) {
    const char* end = nullptr;
    const bool given = pMsg != nullptr && param != nullptr;
    const int result = ReadValue(given ? std::strstr(pMsg, param) : nullptr, outbuf, buflen, end);
    if (result == ZVS_SUCCEED) {
        offset = static_cast<int>(end - pMsg);
    }
    return result;
}

int CCommonHttpStream::DealHttpSnapShot(const char* snapFileName, Common_HTTP_AUTH& httpAuth) {
    if (snapFileName == nullptr) {
        GVX_LOG_ERR(kTitle, "invalid args");
        return ZVS_PARA_INVALID;
    }
    int headerLength = 0;
    if (!ReadHeader(headerLength)) {
        GVX_LOG_ERR(kTitle, "failed, error: %d.", ACE_OS::last_error());
        return ZVS_FAIL;
    }
    if (IsUnauthorizedRsp(m_ResponseHeader, httpAuth)) {
        GVX_LOG_INFO(kTitle, "Unauthorized rsp.");
        return ZVS_GVX_UNAUTHORIZED;
    }
    char number[21] = {};
    int numberLength = sizeof(number) - 1;
    const bool given = ParseSession(m_ResponseHeader, "Content-Length", number, numberLength, 0) == ZVS_SUCCEED;
    const int snapLen = given ? CGvxUtility::toInt(number) : 0;
    if (snapLen < 1 || snapLen > gvx::SettingNumber(gvx::Setting::SNASHOT_PIC_MAX_SIZE)) {
        GVX_LOG_ERR(kTitle, "snapLen is negative or zero.");
        return ZVS_FAIL;
    }
    if (snapLen > kResponseBytes) {
        std::unique_ptr<char[]> larger(new (std::nothrow) char[static_cast<std::size_t>(snapLen)]);
        if (larger == nullptr) {
            GVX_LOG_ERR(kTitle, "alloc memory failed");
            return ZVS_ALLOC_MEMORY_ERROR;
        }
        m_pResponse = std::move(larger);
        m_nResponseLimit = snapLen;
    }
    int held = 0;
    const int result = ReadPicture(snapLen, held);
    if (result != ZVS_SUCCEED) {
        return result;
    }
    const int saved = save2file(snapFileName, m_pResponse.get(), held);
    if (saved != ZVS_SUCCEED) {
        GVX_LOG_ERR(kTitle, "save2file failed");
    }
    return saved;
}

int CCommonHttpStream::ReadPicture(int snapLen, int& held) {
    int timeouts = 0;
    while (held < snapLen) {
        char piece[kPicturePiece];
        const auto count = static_cast<int>(m_oSocketStream.Recv(piece, sizeof(piece), 0));
        if (count == 0) {
            break;
        }
        if (count < 0) {
            const int error = ACE_OS::last_error();
            if (timeouts > CMN_MAX_TIME_OUT_TIMES) {
                GVX_LOG_ERR(kTitle, "http response timeout > CMN_MAX_TIME_OUT_TIMES break.");
                break;
            }
            GVX_LOG_ERR(kTitle, "failed, error:%d.", error);
            if (held == 0) {
                GVX_LOG_ERR(kTitle, "Get Response failed, len:%d, snapIndex: 0.", count);
                return ZVS_FAIL;
            }
            if (error != ETIME) {
                break;
            }
            ++timeouts;
            continue;
        }
        if (count > m_nResponseLimit - held) {
            return ZVS_FAIL;
        }
        if (memcpy_s(m_pResponse.get() + held, static_cast<std::size_t>(m_nResponseLimit - held), piece,
                     static_cast<std::size_t>(count)) != 0) {
            GVX_LOG_ERR(kTitle, "memcpy_s  failed.");
            return ZVS_OPERATE_MEMORY_ERROR;
        }
        held += count;
    }
    m_nResponseSize = held;
    return ZVS_SUCCEED;
}

int CCommonHttpStream::DealHttpContent(bool /*bReserved*/, ACE_Message_Queue_Base* /*pQueue*/) {
    return ZVS_SUCCEED;
}

int CCommonHttpStream::save2file(const char* snapFileName, const char* buf, int buflen) const {
    if (snapFileName == nullptr || buf == nullptr) {
        GVX_LOG_ERR(kTitle, "Pointer is null.");
        return ZVS_PARA_INVALID;
    }
    ACE_FILE_IO file;
    ACE_FILE_Connector connector;
    if (connector.connect(file, ACE_FILE_Addr(snapFileName), nullptr, ACE_Addr::sap_any, 0,
                          O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC, kFileMode) != 0) {
        GVX_LOG_ERR(kTitle, "Fail to open file, errno: %d!", ACE_OS::last_error());
        return ZVS_FAIL;
    }
    const auto written = static_cast<int>(file.send_n(buf, static_cast<std::size_t>(std::max(buflen, 0))));
    if (written != buflen) {
        GVX_LOG_ERR(kTitle, "save to %s failed, errorNO:[%d]  buflen[%d] dumplen[%d]", snapFileName,
                    ACE_OS::last_error(), buflen, written);
        file.remove();
        return ZVS_FAIL;
    }
    file.close();
    GVX_LOG_INFO(kTitle, "save file %s success.", snapFileName);
    return ZVS_SUCCEED;
}

void CCommonHttpStream::DumpHttpContent() {
    char length[12] = {};
    if (GetField(m_ResponseHeader, "Content-Length", length, sizeof(length)) < 1) {
        GVX_LOG_ERR(kTitle, "GetField error.");
        return;
    }
    GVX_LOG_INFO(kTitle, "Content-Length is :%s.", length);
    char piece[kBodyPiece + 1];
    ssize_t iRecvSize = 0;
    while ((iRecvSize = m_oSocketStream.Recv(piece, kBodyPiece, 0)) > 0) {
        piece[iRecvSize] = '\0';
        GVX_LOG_INFO(kTitle, "DUMP: %s.", piece);
    }
    GVX_LOG_ERR(kTitle, "RECV data error.iRecvSize is :%d", static_cast<int>(iRecvSize));
    m_oSocketStream.Close();
    m_bConnected = false;
}

void CCommonHttpStream::DumpRequest() const {}

void CCommonHttpStream::DumpResponse() const {
    if (m_pResponse != nullptr && m_nResponseSize > 0) {
        GVX_LOG_INFO("Dumphttp.response", "m_nResponseSize: %d", m_nResponseSize);
    }
}

int CCommonHttpStream::GetBitCount(int nNumber) {
    constexpr int kMostDigits = 8;
    int digits = nNumber < 0 ? 0 : 1;
    for (; nNumber >= 10 && digits < kMostDigits; nNumber /= 10) {
        ++digits;
    }
    return digits;
}

const char* CCommonHttpStream::myStrStr(const char* pBuffer, int nLength, const char* pNeedle) {
    if (pBuffer == nullptr || pNeedle == nullptr || *pNeedle == '\0') {
        return nullptr;
    }
    const auto length = static_cast<int>(std::strlen(pNeedle));
    int matched = 0;
    for (int i = 0; i < nLength; ++i) {
        matched = pBuffer[i] == pNeedle[matched] ? matched + 1 : 0;
        if (matched == length) {
            return pBuffer + i + 1 - length;
        }
    }
    return nullptr;
}

// ---- credentials ----

bool CCommonHttpStream::IsUnauthorizedRsp(const char* pResponseHeader, Common_HTTP_AUTH& httpAuth) {
    if (pResponseHeader == nullptr || std::strstr(pResponseHeader, "401 Unauthorized") == nullptr) {
        GVX_LOG_INFO(kTitle, "Http ResponseHeader is picture's data.");
        return false;
    }
    if (std::strstr(pResponseHeader, "Digest") == nullptr) {
        httpAuth.authType = HTTP_AUTH_BASIC;
        return true;
    }
    httpAuth.authType = HTTP_AUTH_DIGEST;
    char value[kChallengeBytes + 1] = {};
    // Not set back: a challenge that is longer than the one before it ends the loop.
    int length = kChallengeBytes;
    int position = 0;
    while (ParseSession(pResponseHeader, "WWW-Authenticate", value, length, position) == ZVS_SUCCEED) {
        value[length] = '\0';
        position += length;
        CopyQuoted(value, "realm=\"", httpAuth.szRealm);
        CopyQuoted(value, "qop=\"", httpAuth.szMsgQOP);
        CopyQuoted(value, "nonce=\"", httpAuth.szNonce);
        ReadAlgorithm(value, httpAuth.uiAlgorithm);
    }
    return true;
}

const char* CCommonHttpStream::GenBasicAuthorization() {
    return m_credentials.MakeBasic(m_ipaddr);
}

const char* CCommonHttpStream::GenDigestAuthorization(Common_HTTP_AUTH& httpAuth, const char* pUri) {
    return m_credentials.MakeDigest(httpAuth, pUri);
}
