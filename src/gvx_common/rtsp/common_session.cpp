#include "gvx_common/rtsp/common_session.h"

#include <cstring>

#include "base/bounded_string.h"
#include "base/log.h"

namespace {

constexpr char kTitle[] = "RTSP session";
constexpr char kRtp[] = "RTP/AVP";
constexpr char kRaw[] = "RAW/RAW/UDP";
constexpr int kPayloadFormats = 128;  // RFC 3550, section 5.1: seven bits

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

}  // namespace

void CCommonSession::Clear() {
    std::memset(m_szSessionName, 0, sizeof(m_szSessionName));
    std::memset(m_szCtrlPath, 0, sizeof(m_szCtrlPath));
    std::memset(m_szSessionType, 0, sizeof(m_szSessionType));
    std::memset(m_szContentBase, 0, sizeof(m_szContentBase));
}

int CCommonSession::SetMediaType(const char* szLine) {
    if (szLine == nullptr) {
        GVX_LOG_ERR(kTitle, "Input parameter is null.");
        return 1;
    }
    const char* const end = szLine + std::strlen(szLine);
    const char* digits = end;
    while (digits != szLine && IsDigit(digits[-1])) {
        --digits;
    }
    if (digits == end) {
        GVX_LOG_ERR(kTitle, "Line \"m=\" is not end with INT!");
        return 1;
    }
    int format = 0;
    for (; digits != end && format < kPayloadFormats; ++digits) {
        format = format * 10 + (*digits - '0');
    }
    if (format >= kPayloadFormats) {
        GVX_LOG_ERR(kTitle, "Bad \"m=\" line: %s! PayloadFormat > 127", szLine);
        return 1;
    }
    std::memset(m_szSessionType, 0, sizeof(m_szSessionType));
    const char* type = nullptr;
    if (std::strstr(szLine, kRtp) != nullptr) {
        type = kRtp;
    } else if (std::strstr(szLine, "UDP") != nullptr || std::strstr(szLine, "udp") != nullptr) {
        type = kRaw;  // "RAW/RAW/UDP" among them
    } else {
        GVX_LOG_ERR(kTitle, "Bad \"m=\" line: %s.", szLine);
        return 1;
    }
    return strncpy_s(m_szSessionType, sizeof(m_szSessionType), type, std::strlen(type)) == 0 ? 0 : 1;
}
