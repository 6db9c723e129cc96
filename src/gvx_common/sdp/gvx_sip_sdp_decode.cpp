#include "gvx_common/sdp/gvx_sip_sdp.h"

#include "base/bounded_string.h"
#include "base/log.h"
#include "gvx_common/records/media_types.h"

#include <ace/OS_NS_arpa_inet.h>

#include <algorithm>
#include <cstdlib>
#include <string_view>

namespace {

constexpr std::size_t kLineBytes = 1024;  // a longest line with its NUL
constexpr unsigned int kWordBytes = 64;   // a longest word of a talk's rtpmap with its NUL

// Text of a peer up to its first NUL.
std::string_view TextOf(const std::string& text) {
    return text.c_str();
}

char Lower(char letter) {
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

bool Holds(std::string_view line, std::string_view word) {
    return line.find(word) != std::string_view::npos;
}

// As atoi has it: 0 for no number, and a negative one wraps.
std::uint32_t NumberOf(std::string_view token) {
    return static_cast<std::uint32_t>(std::atoi(std::string(token).c_str()));
}

unsigned int MediaOf(std::string_view word) {
    if (word == "video") {
        return SDP_MEDIA_VIDEO;
    }
    if (word == "audio") {
        return SDP_MEDIA_AUDIO;
    }
    return word == "application" ? SDP_MEDIA_APPLICATION : SDP_MEDIA_NONE;
}

void LogBadLine(const char* failure, std::string_view line) {
    GVX_LOG_ERR(failure, "Line_Data=%.*s.", static_cast<int>(line.size()), line.data());
}

bool CanDecode(std::string_view text, const CStreamParam* param) {
    if (text.empty() || param == nullptr) {
        GVX_LOG_ERR("decode sdp - invalid param", "SDP_Size=%d, Stream_Param=%p.", static_cast<int>(text.size()),
                    static_cast<const void*>(param));
        return false;
    }
    return true;
}

// The lines of a text, one after the other; what stands behind the last end of line is none.
class LineCutter {
public:
    LineCutter(std::string_view text, std::string_view end) : m_rest(text), m_end(end) {}

    bool Next(std::string& line) {
        const std::size_t end = m_rest.find(m_end);
        if (end == std::string_view::npos) {
            return false;
        }
        line.assign(m_rest, 0, end);
        m_rest.remove_prefix(end + m_end.size());
        return true;
    }
    // What is not cut yet.
    std::string_view Rest() const { return m_rest; }
    void Return(std::string_view rest) { m_rest = rest; }

private:
    std::string_view m_rest;
    const std::string_view m_end;
};

// The tokens of one line, which a space each separates, behind its letter and "=".
class LineTokens {
public:
    LineTokens(const std::string& line, char letter) : m_line(TextOf(line)), m_rest(m_line) {
        if (!m_rest.empty() && Lower(m_rest.front()) == letter) {
            m_rest.remove_prefix(1);
            Skip(letter);
        }
        Skip(' ');
        Skip('=');
        Skip(' ');
    }

    bool Fits() const {
        if (m_line.size() < kLineBytes) {
            return true;
        }
        GVX_LOG_ERR("decode line", "strncpy_s szData failed!");
        return false;
    }

    std::string_view Next() {
        const std::size_t space = m_rest.find(' ');
        m_followed = space != std::string_view::npos;
        const std::string_view token = m_rest.substr(0, space);
        m_rest.remove_prefix(m_followed ? space + 1 : m_rest.size());
        return token;
    }

    // Whether a space stands behind the last token; logs what is missing where none does.
    bool IsFollowed(const char* failure) const {
        if (!m_followed) {
            LogBadLine(failure, m_line);
        }
        return m_followed;
    }
    bool IsFollowed() const { return m_followed; }
    std::string_view Line() const { return m_line; }

private:
    void Skip(char character) { m_rest.remove_prefix(std::min(m_rest.find_first_not_of(character), m_rest.size())); }

    const std::string_view m_line;
    std::string_view m_rest;
    bool m_followed = false;
};

int DecodeTalkBlock(CServiceSDP& codec, std::string_view data, unsigned int& nMedia, CStreamParam& param,
                    int& nMediaLength) {
    nMediaLength = 0;
    if (data.empty()) {
        GVX_LOG_WARN("decode single media", "decode single media - this data is emtpy.");
        return ZVS_FAIL;
    }
    CStreamParam block{std::string()};
    bool bSendOnly = false;
    bool isOpen = false;
    LineCutter lines(data, SDP_LINE_TERMINAL_TAG);
    for (std::string line; lines.Next(line);) {
        if (line.empty()) {
            GVX_LOG_WARN("decode single media", "decode single media - this line is emtpy.");
            return ZVS_FAIL;
        }
        const char letter = Lower(line.front());
        int result = ZVS_SUCCEED;
        if (letter == 'm' && !isOpen) {
            isOpen = true;
            result = codec.DecodeMedia(line, nMedia, &block);
        } else if (letter == 'a' && isOpen) {
            result = codec.DecodeAttributeEx(line, nMedia, &block, bSendOnly);
        } else {
            break;
        }
        if (result != ZVS_SUCCEED) {
            return result;
        }
        nMediaLength = static_cast<int>(data.size() - lines.Rest().size());
    }
    if (!bSendOnly) {
        param.m_nSrcRtpAudioPort = block.m_nSrcRtpAudioPort;
        param.m_nSrcTransProtocol = block.m_nSrcTransProtocol;
        param.m_nAudioPayLoadType = block.m_nAudioPayLoadType;
    }
    return ZVS_SUCCEED;
}

}  // namespace

int CServiceSDP::DecodeSDP(const std::string& strSDP, CStreamParam* pStreamParam) {
    const std::string_view text = TextOf(strSDP);
    if (!CanDecode(text, pStreamParam)) {
        return ZVS_PARA_INVALID;
    }
    unsigned int nMedia = SDP_MEDIA_NONE;
    LineCutter lines(text, SDP_LINE_TERMINAL_TAG_N);
    for (std::string line; lines.Next(line);) {
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        const int result = DecodeLine(line, nMedia, pStreamParam);
        if (result != ZVS_SUCCEED) {
            LogBadLine("decode sdp - failure to decode line", line);
            return result;
        }
    }
    return ZVS_SUCCEED;
}

int CServiceSDP::DecodeT28181TalkSDP(const std::string& strSDP, CStreamParam* pStreamParam) {
    const std::string_view text = TextOf(strSDP);
    if (!CanDecode(text, pStreamParam)) {
        return ZVS_PARA_INVALID;
    }
    unsigned int nMedia = SDP_MEDIA_NONE;
    LineCutter lines(text, SDP_LINE_TERMINAL_TAG);
    std::string_view block = text;
    for (std::string line; lines.Next(line); block = lines.Rest()) {
        if (line.empty()) {
            GVX_LOG_WARN("decode sdp", "decode sdp - this line is emtpy.");
            return ZVS_FAIL;
        }
        int result = ZVS_SUCCEED;
        if (Lower(line.front()) == 'm') {
            int nMediaLength = 0;
            result = DecodeTalkBlock(*this, block, nMedia, *pStreamParam, nMediaLength);
            lines.Return(block.substr(static_cast<std::size_t>(nMediaLength)));
        } else {
            result = DecodeLine(line, nMedia, pStreamParam);
        }
        if (result != ZVS_SUCCEED) {
            LogBadLine("decode sdp - failure to decode line", line);
            return result;
        }
    }
    return ZVS_SUCCEED;
}

int CServiceSDP::DecodeLine(const std::string& strData, unsigned int& nMedia, CStreamParam* pStreamParam) {
    if (pStreamParam == nullptr) {
        GVX_LOG_ERR("decode line", "stream param is NULL!");
        return ZVS_FAIL;
    }
    const std::string_view line = TextOf(strData);
    if (line.empty()) {
        GVX_LOG_WARN("decode line", "decode line - this line is emtpy.");
        return ZVS_SUCCEED;
    }
    switch (Lower(line.front())) {
        case 'a':
            return DecodeAttribute(strData, nMedia, pStreamParam);
        case 'c':
            return DecodeConnection(strData, pStreamParam);
        case 'm':
            return DecodeMedia(strData, nMedia, pStreamParam);
        case 'o':
            return DecodeOriginator(strData, pStreamParam);
        case 't':
            return DecodeActiveTime(strData, pStreamParam);
        default:
            return ZVS_SUCCEED;
    }
}

int CServiceSDP::DecodeOriginator(const std::string& strData, CStreamParam* pStreamParam) {
    GVX_CHECK_NULL_RETURN(pStreamParam, ZVS_FAIL);
    LineTokens tokens(strData, 'o');
    if (!tokens.Fits()) {
        return ZVS_FAIL;
    }
    tokens.Next();
    if (!tokens.IsFollowed("decode originator - username - end")) {
        return ZVS_FAIL;
    }
    const std::string_view session = tokens.Next();
    if (pStreamParam->m_nDstTransProtocol == RTP_OVER_TCP && pStreamParam->m_nRecvStreamMode == 1) {
        pStreamParam->m_strSessionID = session;
    }
    if (!tokens.IsFollowed("decode originator - sess id - end")) {
        return ZVS_FAIL;
    }
    for (const char* const failure : {"decode originator - sess version - end", "decode originator - nettype - end",
                                      "decode originator - addrtype - end"}) {
        tokens.Next();
        if (!tokens.IsFollowed(failure)) {
            return ZVS_FAIL;
        }
    }
    // The address must end the line: a peer that puts a space behind it has its whole text refused.
    tokens.Next();
    if (tokens.IsFollowed()) {
        LogBadLine("decode originator - unicast address - end", tokens.Line());
        return ZVS_FAIL;
    }
    return ZVS_SUCCEED;
}

int CServiceSDP::DecodeConnection(const std::string& strData, CStreamParam* pStreamParam) {
    GVX_CHECK_NULL_RETURN(pStreamParam, ZVS_FAIL);
    LineTokens tokens(strData, 'c');
    if (!tokens.Fits()) {
        return ZVS_FAIL;
    }
    for (const char* const failure : {"decode connection - nettype - end", "decode connection - addrtype - end"}) {
        tokens.Next();
        if (!tokens.IsFollowed(failure)) {
            return ZVS_FAIL;
        }
    }
    const auto address = static_cast<std::uint32_t>(ACE_OS::inet_addr(std::string(tokens.Next()).c_str()));
    pStreamParam->m_nSrcRtpVideoIp = address;
    pStreamParam->m_nSrcRtpAudioIp = address;
    return ZVS_SUCCEED;
}

int CServiceSDP::DecodeActiveTime(const std::string& strData, CStreamParam* pStreamParam) {
    GVX_CHECK_NULL_RETURN(pStreamParam, ZVS_FAIL);
    return LineTokens(strData, 't').Fits() ? ZVS_SUCCEED : ZVS_FAIL;
}

int CServiceSDP::DecodeMedia(const std::string& strData, unsigned int& nMedia, CStreamParam* pStreamParam) {
    GVX_CHECK_NULL_RETURN(pStreamParam, ZVS_FAIL);
    LineTokens tokens(strData, 'm');
    if (!tokens.Fits()) {
        return ZVS_FAIL;
    }
    const std::string_view media = tokens.Next();
    if (!tokens.IsFollowed("decode media - media - end")) {
        return ZVS_FAIL;
    }
    nMedia = MediaOf(media);
    if (nMedia == SDP_MEDIA_NONE) {
        GVX_LOG_WARN("decode media", "unknow media - media[%.*s].", static_cast<int>(media.size()), media.data());
        return ZVS_SUCCEED;
    }
    const std::string_view port = tokens.Next();
    if (!tokens.IsFollowed("decode media - port - end")) {
        return ZVS_FAIL;
    }
    if (nMedia == SDP_MEDIA_APPLICATION) {
        pStreamParam->m_nSrcRtpVideoPort = NumberOf(port);
        pStreamParam->m_nSrcRtpAudioPort = pStreamParam->m_nSrcRtpVideoPort;
    } else {
        std::uint32_t& known =
            nMedia == SDP_MEDIA_VIDEO ? pStreamParam->m_nSrcRtpVideoPort : pStreamParam->m_nSrcRtpAudioPort;
        if (known != 0) {
            return ZVS_SUCCEED;  // a further block of the kind changes neither port nor transport
        }
        known = NumberOf(port);
    }
    const std::string_view protocol = tokens.Next();
    if (!tokens.IsFollowed("decode media - proto - end")) {
        return ZVS_FAIL;
    }
    if (protocol == "RTP/AVP") {
        pStreamParam->m_nSrcTransProtocol = RTP_OVER_UDP;
    } else if (protocol == "RTP/AVP/TCP" || protocol == "TCP" || protocol == "TCP/RTP/AVP") {
        pStreamParam->m_nSrcTransProtocol = RTP_OVER_TCP;
    } else {
        LogBadLine("decode media - unsupported media protocol", tokens.Line());
        return ZVS_FAIL;
    }
    return ZVS_SUCCEED;
}

int CServiceSDP::DecodeAttribute(const std::string& strData, unsigned int /*nMedia*/, CStreamParam* pStreamParam) {
    GVX_CHECK_NULL_RETURN(pStreamParam, ZVS_FAIL);
    constexpr std::string_view kMap = "rtpmap:";
    const std::string_view line = TextOf(strData);
    const std::size_t map = line.find(kMap);
    const std::size_t space = line.find(' ');
    if (map == std::string_view::npos || space == std::string_view::npos || space <= map + kMap.size()) {
        return ZVS_SUCCEED;
    }
    const std::string_view payload = line.substr(map + kMap.size(), space - map - kMap.size());
    if (Holds(line, "H264") || Holds(line, "PS")) {
        pStreamParam->m_nVideoPayLoadType = NumberOf(payload);
    } else if (Holds(line, "PCM")) {
        pStreamParam->m_nAudioPayLoadType = NumberOf(payload);
    }
    return ZVS_SUCCEED;
}

int CServiceSDP::DecodeSingleTalkMedia(const std::string& strData, unsigned int& nMedia, CStreamParam* pStreamParam,
                                       int& nMediaLength) {
    GVX_CHECK_NULL_RETURN(pStreamParam, ZVS_FAIL);
    return DecodeTalkBlock(*this, TextOf(strData), nMedia, *pStreamParam, nMediaLength);
}

int CServiceSDP::DecodeAttributeEx(const std::string& strData, unsigned int /*nMedia*/, CStreamParam* pStreamParam,
                                   bool& bSendOnly) {
    GVX_CHECK_NULL_RETURN(pStreamParam, ZVS_FAIL);
    const std::string_view line = TextOf(strData);
    std::uint32_t* payload = nullptr;
    if (Holds(line, "H264")) {
        payload = &pStreamParam->m_nVideoPayLoadType;
    } else if (Holds(line, "PCM")) {
        payload = &pStreamParam->m_nAudioPayLoadType;
    }
    if (payload != nullptr) {
        char name[kWordBytes] = {};
        char format[kWordBytes] = {};
        int number = static_cast<int>(*payload);
        const int items = sscanf_s(strData.c_str(), "%[^:]:%d %s", name, kWordBytes, &number, format, kWordBytes);
        *payload = static_cast<std::uint32_t>(number);
        return items == 3 ? ZVS_SUCCEED : ZVS_FAIL;
    }
    if (Holds(line, "sendonly")) {
        bSendOnly = true;
    }
    return ZVS_SUCCEED;
}
