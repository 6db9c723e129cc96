#include "gvx_common/rtsp/common_sdp.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include <strings.h>

#include "base/bounded_string.h"
#include "base/log.h"

namespace {

constexpr char kTitle[] = "RTSP SDP";
constexpr char kSendOnly[] = "a=sendonly";
constexpr char kRecvOnly[] = "a=recvonly";
constexpr char kAudio[] = "audio";
constexpr char kAudioBack[] = "audioback";
constexpr std::size_t kNameBytes = 128;  // of a media or an attribute, terminator included

// A line is a pointer into the whole text; this is what of it to print.
int LineLength(const char* line) {
    return static_cast<int>(std::strcspn(line, "\r\n"));
}

int CopyElement(char* target, std::uint32_t size, const std::string& value) {
    if (strncpy_s(target, size, value.c_str(), value.size()) != 0) {
        GVX_LOG_ERR(kTitle, "strncpy_s szElement failed!");
        return 1;
    }
    return 0;
}

}  // namespace

int CCommonSdp::Init() {
    if (m_pMediaName == nullptr) {
        m_pMediaName = gvx::MakeCounted<std::list<std::string>>();
        if (m_pMediaName == nullptr) {
            GVX_LOG_ERR(kTitle, "New media name error.");
            return 1;
        }
    }
    Clear();
    return 0;
}

void CCommonSdp::Clear() {
    m_stSession.mapCommonSdpElement.clear();
    m_stSession.hmAttriInfo.clear();
    m_hmMedia.clear();
    if (m_pMediaName != nullptr) {
        m_pMediaName->clear();
    }
}

int CCommonSdp::InitSdpPack(const char* szSdpContent, int nLen) {
    if (szSdpContent == nullptr || nLen < 0) {
        GVX_LOG_ERR(kTitle, "Input parameter error, len is [%d].", nLen);
        return 1;
    }
    std::memset(m_szSdpContent, 0, sizeof(m_szSdpContent));
    if (strncpy_s(m_szSdpContent, sizeof(m_szSdpContent), szSdpContent, sizeof(m_szSdpContent)) != 0) {
        GVX_LOG_ERR(kTitle, "strncpy_s m_szSdpContent failed!");
        return 1;
    }
    m_nSdpLen = static_cast<std::uint32_t>(nLen);
    return 0;
}

int CCommonSdp::FormatSdpLine(const char*& inputLine, const char*& nextLine) {
    while (IsNewline(*inputLine)) {
        ++inputLine;
    }
    nextLine = nullptr;
    if (*inputLine == '\0') {
        GVX_LOG_ERR(kTitle, "Line end.");
        return 1;
    }
    const char* end = inputLine + LineLength(inputLine);
    while (IsNewline(*end)) {
        ++end;
    }
    if (*end != '\0') {
        nextLine = end;
    }
    if (!IsLowercase(inputLine[0]) || inputLine[1] != '=') {
        GVX_LOG_ERR(kTitle, "Invalid sdp line: %.*s.", LineLength(inputLine), inputLine);
        return 1;
    }
    return 0;
}

int CCommonSdp::ParseSdp() {
    if (m_pMediaName == nullptr) {
        GVX_LOG_ERR(kTitle, "Media name list is null.");
        return 1;
    }
    Clear();
    const char* line = m_szSdpContent;
    const char* nextLine = nullptr;
    for (; line != nullptr; line = nextLine) {
        if (FormatSdpLine(line, nextLine) != 0) {
            GVX_LOG_ERR(kTitle, "Format sdp line failed.");
            return 1;
        }
        if (*line == 'm') {
            return ParseMedia(line);
        }
        if (ParseLine(line, &m_stSession) != 0) {
            GVX_LOG_ERR(kTitle, "Parse session line failed.");
            return 1;
        }
    }
    return 0;
}

int CCommonSdp::ParseMedia(const char* pSdpLine) {
    // A second media of one name is read like any other and then dropped.
    CommonSdpElement unbound;
    CommonSdpElement* current = nullptr;
    std::string name;
    const char* nextLine = nullptr;
    for (const char* line = pSdpLine; line != nullptr; line = nextLine) {
        if (FormatSdpLine(line, nextLine) != 0) {
            GVX_LOG_ERR(kTitle, "Format sdp line failed.");
            return 1;
        }
        if (*line == 'm') {
            if (GetMediaName(line, name) != 0) {
                return 1;
            }
            if (strncasecmp(name.c_str(), kAudio, std::strlen(kAudio)) == 0 && IsAudioBack(nextLine)) {
                name = kAudioBack;
            }
            const auto [at, isNew] = m_hmMedia.emplace(name, nullptr);
            if (isNew) {
                at->second = gvx::MakeCounted<CommonSdpElement>();
            }
            current = isNew ? at->second.get() : &unbound;
            m_pMediaName->push_back(name);
        }
        if (ParseLine(line, current) != 0) {
            GVX_LOG_ERR(kTitle, "Parse media line failed.");
            if (current != &unbound) {
                m_hmMedia[name] = nullptr;
            }
            return 1;
        }
    }
    return 0;
}

bool CCommonSdp::IsAudioBack(const char* pSdpLine) {
    const char* nextLine = nullptr;
    for (const char* line = pSdpLine; line != nullptr; line = nextLine) {
        if (FormatSdpLine(line, nextLine) != 0) {
            GVX_LOG_ERR(kTitle, "Failed to format sdp line.");
            return false;
        }
        if (*line == 'm') {
            GVX_LOG_INFO(kTitle, "Already find another session info.");
            return false;
        }
        if (strncasecmp(line, kSendOnly, std::strlen(kSendOnly)) == 0) {
            return true;
        }
    }
    return false;
}

int CCommonSdp::ParseLine(const char* pSdpLine, CommonSdpElement* pCommonSdpElement) {
    if (pSdpLine == nullptr || pCommonSdpElement == nullptr) {
        GVX_LOG_ERR(kTitle, "Input parameter is null.");
        return 2;
    }
    std::memset(m_szLineContent, 0, sizeof(m_szLineContent));
    if (*pSdpLine != 'a') {
        if (ParseSdpLine(*pSdpLine, pSdpLine, m_szLineContent, sizeof(m_szLineContent)) != 0) {
            GVX_LOG_ERR(kTitle, "Parse sdp line failed.");
            return 1;
        }
        pCommonSdpElement->mapCommonSdpElement.emplace(*pSdpLine, m_szLineContent);
        return 0;
    }
    if (std::strncmp(pSdpLine, kSendOnly, std::strlen(kSendOnly)) == 0) {
        return 0;
    }
    char name[kNameBytes] = {};
    if (ParseAttriLine(pSdpLine, name, sizeof(name), m_szLineContent, sizeof(m_szLineContent)) != 0) {
        GVX_LOG_ERR(kTitle, "Parse attri line failed.");
        return 1;
    }
    pCommonSdpElement->hmAttriInfo.emplace(name, m_szLineContent);
    return 0;
}

// The value is what "<key>=%[^\r\n]" would scan: an empty one, or one that does not fit, is a failure.
int CCommonSdp::ParseSdpLine(char cKey, const char* sdpLine, char* szValue, std::uint32_t uiValueSize) {
    if (sdpLine[0] != cKey || sdpLine[1] != '=') {
        return 1;
    }
    const char* value = sdpLine + 2;
    const std::size_t length = std::strcspn(value, "\r\n");
    return length != 0 && strncpy_s(szValue, uiValueSize, value, length) == 0 ? 0 : 1;
}

int CCommonSdp::ParseAttriLine(const char* pSdpLine, char* szAttriName, std::uint32_t uiNameSize, char* szAttriValue,
                               std::uint32_t uiAttrValueLen) {
    const char* equals = std::strchr(pSdpLine, '=');
    if (equals == nullptr) {
        GVX_LOG_ERR(kTitle, "AttriLine [%.*s] not has '='", LineLength(pSdpLine), pSdpLine);
        return 1;
    }
    const char* colon = std::strchr(equals, ':');
    if (colon == nullptr) {
        const bool isRecvOnly = std::strstr(pSdpLine, kRecvOnly) != nullptr;
        GVX_LOG(isRecvOnly ? OM_LOG_INFO : OM_LOG_ERR, kTitle, "AttriLine [%.*s] not has ':'", LineLength(pSdpLine),
                pSdpLine);
        return isRecvOnly ? 0 : 1;
    }
    if (strncpy_s(szAttriName, uiNameSize, equals + 1, static_cast<std::size_t>(colon - equals - 1)) != 0) {
        GVX_LOG_ERR(kTitle, "strncpy_s szAttriName failed!");
        return 1;
    }
    const char* value = colon + 1;
    value += std::strspn(value, " ");
    // One place is the terminator's.
    const std::size_t length = std::min<std::size_t>(std::strcspn(value, "\r\n"), uiAttrValueLen - 1);
    return strncpy_s(szAttriValue, uiAttrValueLen, value, length) == 0 ? 0 : 1;
}

// The scan passes over blanks and line ends, so an "m=" line without a word takes its name from the next line.
int CCommonSdp::GetMediaName(const char* pSdpLine, std::string& name) {
    char word[kNameBytes] = {};
    if (sscanf_s(pSdpLine, "m=%s", word, static_cast<unsigned int>(sizeof(word))) != 1) {
        GVX_LOG_ERR(kTitle, "Input line is [%.*s]", LineLength(pSdpLine), pSdpLine);
        return 1;
    }
    name = word;
    return 0;
}

int CCommonSdp::GetSessionElement(char cKey, std::uint32_t uiElementSize, char* szElement) {
    const auto at = m_stSession.mapCommonSdpElement.find(cKey);
    if (at == m_stSession.mapCommonSdpElement.end()) {
        GVX_LOG_INFO(kTitle, "Key %c is not found.", cKey);
        return 0;
    }
    if (szElement != nullptr) {
        CopyElement(szElement, uiElementSize, at->second);
    }
    return 1;
}

int CCommonSdp::GetSessionElementA(const char* szKey, char* szElement, std::uint32_t uiElementSize) {
    if (szKey == nullptr || szElement == nullptr) {
        GVX_LOG_ERR(kTitle, "Input parameter is null.");
        return 2;
    }
    const auto at = m_stSession.hmAttriInfo.find(szKey);
    if (at == m_stSession.hmAttriInfo.end()) {
        GVX_LOG_INFO(kTitle, "Can't find key: %s", szKey);
        return 1;
    }
    return CopyElement(szElement, uiElementSize, at->second);
}

int CCommonSdp::GetMediaElement(const char* szMediaName, char cKey, std::uint32_t uiElementSize, char* szElement) {
    if (szMediaName == nullptr) {
        GVX_LOG_ERR(kTitle, "Input parameter is null.");
        return 0;
    }
    const auto media = m_hmMedia.find(szMediaName);
    if (media == m_hmMedia.end()) {
        GVX_LOG_INFO(kTitle, "Can't find media name: %s", szMediaName);
        return 0;
    }
    const CommonSdpElement none;
    const CommonSdpElement& element = media->second != nullptr ? *media->second : none;
    const auto at = element.mapCommonSdpElement.find(cKey);
    if (at == element.mapCommonSdpElement.end()) {
        GVX_LOG_INFO(kTitle, "Key [%c] is not found in media name [%s]", cKey, szMediaName);
        return 0;
    }
    if (szElement != nullptr) {
        CopyElement(szElement, uiElementSize, at->second);
    }
    return 1;
}

int CCommonSdp::GetMediaElementA(const char* szMediaName, const char* szKey, char* szElement,
                                 std::uint32_t uiElementSize) {
    if (szMediaName == nullptr || szKey == nullptr || szElement == nullptr) {
        GVX_LOG_ERR(kTitle, "Input parameter null.");
        return 1;
    }
    const auto media = m_hmMedia.find(szMediaName);
    if (media == m_hmMedia.end()) {
        GVX_LOG_INFO(kTitle, "Can't find media name: %s", szMediaName);
        return 1;
    }
    if (media->second == nullptr) {
        return 0;
    }
    const auto at = media->second->hmAttriInfo.find(szKey);
    if (at == media->second->hmAttriInfo.end()) {
        GVX_LOG_INFO(kTitle, "Can't find key [%s] in media name [%s].", szKey, szMediaName);
        return 1;
    }
    return CopyElement(szElement, uiElementSize, at->second);
}
