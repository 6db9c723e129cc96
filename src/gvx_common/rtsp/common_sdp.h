#pragma once

#include "gvx_common/utility/counted_ptr.h"

#include <cstdint>
#include <list>
#include <map>
#include <string>
#include <unordered_map>

// One level of a session description. Of lines or attributes that repeat, the first counts.
struct CommonSdpElement {
    std::map<char, std::string> mapCommonSdpElement;           // letter of the line to its value, attributes left out
    std::unordered_map<std::string, std::string> hmAttriInfo;  // name of the "a=" line to its value
};

// Parses the session description of an RTSP answer (RFC 2326, appendix C; RFC 4566) into tables that are asked by key:
// one for the session, one for each media name. It reads text only; one thread at a time uses an object. Failures are
// log lines and results; tables then stay as far as they were filled.
//
// An attribute is searched for its ':' beyond the end of its line. A flag attribute, which has none, thus takes the
// text up to the next ':' of the description as its name, and fails the parse when there is none, or when that name is
// longer than 127 characters. "a=sendonly" is passed over, and "a=recvonly" may stand last.
class CCommonSdp {
public:
    CCommonSdp() = default;
    CCommonSdp(const CCommonSdp&) = delete;
    CCommonSdp& operator=(const CCommonSdp&) = delete;

    // To be called before a text is parsed; empties the tables. 0, or 1 without memory.
    int Init();

    // Takes a terminated text of at most 4095 characters. nLen is the length that its sender gave for it; it is kept
    // but does not limit the text. 0; 1 for null, a negative length or a text that is too long.
    int InitSdpPack(const char* szSdpContent, int nLen);

    // Fills the tables anew. 0; 1 for a line that is none or that its level can not take.
    int ParseSdp();

    // Empties the tables; the text stays.
    void Clear();

    // By letter: 1 when there is such a line, else 0. A null szElement only asks. A value that does not fit
    // uiElementSize leaves an empty text, with a log line.
    int GetSessionElement(char cKey, std::uint32_t uiElementSize, char* szElement);
    int GetMediaElement(const char* szMediaName, char cKey, std::uint32_t uiElementSize, char* szElement);

    // By attribute: 0 when its value was copied; 1 when there is none or it does not fit. For null, the first gives 2
    // and the second 1. A media whose lines could not be parsed gives 0 and copies nothing.
    int GetSessionElementA(const char* szKey, char* szElement, std::uint32_t uiElementSize);
    int GetMediaElementA(const char* szMediaName, const char* szKey, char* szElement, std::uint32_t uiElementSize);

    // Names of the media in order of appearance: the first word of the "m=" line, and "audioback" for an audio that
    // the device takes in ("a=sendonly"). Of media with one name the first is kept, and the name is listed for each.
    // Owned by this object; null before Init.
    std::list<std::string>* GetMediaNameList() { return m_pMediaName.get(); }

private:
    static bool IsNewline(char c) { return c == '\r' || c == '\n'; }
    static bool IsLowercase(char c) { return c >= 'a' && c <= 'z'; }
    // Moves inputLine to the next line, and sets nextLine to the one behind it, null at the end of the text.
    static int FormatSdpLine(const char*& inputLine, const char*& nextLine);
    static bool IsAudioBack(const char* pSdpLine);
    static int GetMediaName(const char* pSdpLine, std::string& name);
    static int ParseSdpLine(char cKey, const char* sdpLine, char* szValue, std::uint32_t uiValueSize);
    static int ParseAttriLine(const char* pSdpLine, char* szAttriName, std::uint32_t uiNameSize, char* szAttriValue,
                              std::uint32_t uiAttrValueLen);
    int ParseLine(const char* pSdpLine, CommonSdpElement* pCommonSdpElement);
    int ParseMedia(const char* pSdpLine);

    std::uint32_t m_nSdpLen = 0;
    char m_szSdpContent[4096] = {};
    char m_szLineContent[1024] = {};
    CommonSdpElement m_stSession;
    std::unordered_map<std::string, gvx::CountedPtr<CommonSdpElement>> m_hmMedia;
    gvx::CountedPtr<std::list<std::string>> m_pMediaName;
};
