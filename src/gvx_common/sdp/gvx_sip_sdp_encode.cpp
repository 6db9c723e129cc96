#include "gvx_common/sdp/gvx_sip_sdp.h"

#include "base/bounded_string.h"
#include "base/log.h"
#include "bp/cmd.h"
#include "gvx_common/config/setting_table.h"
#include "gvx_common/records/media_types.h"
#include "gvx_common/utility/gvx_utility.h"

#include <charconv>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string_view>

#include <arpa/inet.h>
#include <netinet/in.h>

namespace {

constexpr const char* kTimeFormat = "YYYYMMDDhhmmss";
constexpr std::size_t kTimeLength = 14;
constexpr std::size_t kUsualBytes = 1024;  // more than a text with keys takes

// A text in the making. It may hold the keys of the media, so that what is not handed over is wiped.
class SdpText {
public:
    SdpText() { m_text.reserve(kUsualBytes); }
    ~SdpText() { Wipe(m_text); }
    SdpText(const SdpText&) = delete;
    SdpText& operator=(const SdpText&) = delete;

    template <typename... Parts>
    void Add(const Parts&... parts) {
        (AddPart(parts), ...);
    }
    template <typename... Parts>
    void Line(const Parts&... parts) {
        (AddPart(parts), ...);
        AddPart(SDP_LINE_TERMINAL_TAG);
    }
    const char* c_str() const { return m_text.c_str(); }
    void HandOver(std::string& output) { m_text.swap(output); }

private:
    static void Wipe(std::string& text) { memset_s(text.data(), text.size(), 0, text.size()); }
    void AddPart(std::string_view part) {
        if (m_text.size() + part.size() > m_text.capacity()) {
            std::string longer;
            longer.reserve(2 * (m_text.size() + part.size()));
            longer.append(m_text);
            Wipe(m_text);
            m_text.swap(longer);
        }
        m_text.append(part);
    }
    void AddPart(std::uint32_t number) { AddNumber(number); }
    void AddPart(std::int32_t number) { AddNumber(number); }
    template <typename Number>
    void AddNumber(Number number) {
        char digits[std::numeric_limits<Number>::digits10 + 2];
        const char* const end = std::to_chars(digits, digits + sizeof(digits), number).ptr;
        AddPart(std::string_view(digits, static_cast<std::size_t>(end - digits)));
    }

    std::string m_text;
};

std::string SourceAddress(std::uint32_t networkOrder) {
    char text[INET_ADDRSTRLEN] = {};
    const in_addr address{networkOrder};
    inet_ntop(AF_INET, &address, text, sizeof(text));
    return text;
}

bool IsTalk(std::uint32_t serviceType) {
    return serviceType == SERVICE_TYPE_AUDIO_CALL || serviceType == SERVICE_TYPE_AUDIO_BROADCAST;
}

bool IsRecord(std::uint32_t serviceType) {
    return serviceType == SERVICE_TYPE_PU_PLAYBACK || serviceType == SERVICE_TYPE_PU_DOWNLOAD ||
           serviceType == SERVICE_TYPE_PU_UPLOAD;
}

const char* PrivateSessionName(std::uint32_t serviceType) {
    switch (serviceType) {
        case SERVICE_TYPE_PU_DOWNLOAD:
        case SERVICE_TYPE_PU_UPLOAD:
            return "Download";
        case SERVICE_TYPE_PU_PLAYBACK:
            return "Playback";
        default:
            return "Play";
    }
}

const char* T28181SessionName(std::uint32_t serviceType) {
    switch (serviceType) {
        case SERVICE_TYPE_AUDIO_CALL:
            return "Talk";
        case SERVICE_TYPE_AUDIO_BROADCAST:
            return "BroadCast";
        default:
            return PrivateSessionName(serviceType);
    }
}

// The time of now stands for a session that has no identifier yet.
int AddOriginator(const std::string& lensID, const CStreamParam& param, const std::string& address, SdpText& sdp) {
    char chCurrentTime[32] = {};
    if (snprintf_s(chCurrentTime, sizeof(chCurrentTime), sizeof(chCurrentTime) - 1, "%d",
                   static_cast<int>(BP::OSTime::Time())) < 0) {
        GVX_LOG_ERR("encode sdp", "snprintf_s chCurrentTime failed");
        return ZVS_FAIL;
    }
    const std::string_view session = param.m_strSessionID.empty() ? chCurrentTime : param.m_strSessionID.c_str();
    sdp.Line("o=", lensID, " ", session, " ", session, " IN IP4 ", address);
    return ZVS_SUCCEED;
}

// The time goes to local time and from there to seconds, so of the hour that comes twice when summer time ends both
// passes give the same numbers. A text that is too short or no time leaves nothing.
int AddRecordTime(const std::string& utcTime, const char* failure, SdpText& sdp) {
    std::string localTime;
    long seconds = 0;
    if (utcTime.size() < kTimeLength || CGvxUtility::TransUTCFormatToLocal(utcTime, localTime, kTimeFormat) != 0 ||
        CGvxUtility::TransLocalFormatToGMTUTC(localTime, seconds, kTimeFormat) != 0) {
        return ZVS_SUCCEED;
    }
    char text[20] = {};
    if (snprintf_s(text, sizeof(text), sizeof(text) - 1, "%ld", seconds) < 0) {
        GVX_LOG_ERR("encode sdp", "%s", failure);
        return ZVS_FAIL;
    }
    sdp.Add(text);
    return ZVS_SUCCEED;
}

int AddActiveTime(const CStreamParam& param, const char* endFailure, SdpText& sdp) {
    if (!IsRecord(param.m_nBusinessType)) {
        sdp.Line("t=0 0");
        return ZVS_SUCCEED;
    }
    sdp.Add("t=");
    if (AddRecordTime(param.m_strRecordStartTime, "snprintf_s czStartTime failed", sdp) != ZVS_SUCCEED) {
        return ZVS_FAIL;
    }
    sdp.Add(" ");
    if (AddRecordTime(param.m_strRecordEndTime, endFailure, sdp) != ZVS_SUCCEED) {
        return ZVS_FAIL;
    }
    sdp.Line();
    return ZVS_SUCCEED;
}

// Not for stronger algorithms, whose keys do not travel in a session description.
void AddCrypto(const CStreamParam& param, const char (&key)[200], SdpText& sdp) {
    if (param.m_nMediaSecurityEnable == MEDIA_SECURITY_ENABLE &&
        param.m_nMediaSecurityAlgorithm == TV_ZVS_IPC_ENCRYPT_SIMPLE) {
        sdp.Line("a=crypto:1 TV_ZVS_IPC_ENCRYPT_SIMPLE inline:", std::string_view(key, strnlen(key, sizeof(key))));
    }
}

struct MediaFormat {
    std::uint32_t payload;
    const char* map;
};

MediaFormat VideoFormatOf(std::uint32_t format) {
    switch (format) {
        case VIDEO_DEC_MJPEG:
            return {26, "JPEG/90000"};
        case VIDEO_DEC_H265:
            return {108, "H265/90000"};
        case VIDEO_DEC_SVAC:
            return {104, "SVAC/90000"};
        case VIDEO_DEC_HIK:
            return {109, "HIK/90000"};
        default:
            return {99, "H264/90000"};
    }
}

MediaFormat AudioFormatOf(std::uint32_t format) {
    switch (format) {
        case GVX_AUDIO_FORMAT_G711A:
            return {8, "PCMA/8000"};
        case GVX_AUDIO_FORMAT_G711U:
            return {0, "PCMU/8000"};
        case AUDIO_FORMAT_G726:
            return {4, "G723/8000"};
        default:
            GVX_LOG_WARN("encode media - unsupport audio format - use default", "Unsupported_Format=%u.", format);
            return {8, "PCMA/8000"};
    }
}

int AddApplication(const CStreamParam& param, std::uint32_t port, std::uint32_t protocol, SdpText& sdp) {
    if (protocol != RTP_OVER_UDP && protocol != RTP_OVER_TCP) {
        GVX_LOG_ERR("encode media - unsupport application protocol", "Protocol=%d.", static_cast<int>(protocol));
        return ZVS_FAIL;
    }
    sdp.Line("m=application ", port, protocol == RTP_OVER_UDP ? " UDP" : " TCP", " vss_rtsp");
    sdp.Line(param.m_nRecvStreamMode == 1 ? "a=setup:active" : "a=setup:passive");
    sdp.Line("a=connection:new");
    sdp.Line("a=Transport:interleaved=0-1");
    sdp.Line("a=sendrecv");
    return ZVS_SUCCEED;
}

int AddVideo(const CStreamParam& param, std::uint32_t port, std::uint32_t protocol, bool isResponse, SdpText& sdp) {
    if (protocol != RTP_OVER_UDP && protocol != RTP_OVER_TCP) {
        GVX_LOG_ERR("encode media - unsupport video protocol", "Protocol=%d.", static_cast<int>(protocol));
        return ZVS_FAIL;
    }
    MediaFormat format = VideoFormatOf(param.m_nVideoFormat);
    if (!isResponse && param.m_nVideoPayLoadType != 0 && param.m_nVideoFormat != VIDEO_DEC_H265) {
        format.payload = param.m_nVideoPayLoadType;
    }
    sdp.Line("m=video ", port, protocol == RTP_OVER_UDP ? " RTP/AVP " : " RTP/AVP/TCP ", format.payload);
    AddCrypto(param, param.m_securityKeyOfMedia, sdp);
    sdp.Line("a=rtpmap:", format.payload, " ", format.map);
    sdp.Line("a=control:trackID=1");
    return ZVS_SUCCEED;
}

void AddAudio(const CStreamParam& param, std::uint32_t port, const char* protocolName, SdpText& sdp) {
    MediaFormat format = AudioFormatOf(param.m_nAudioFormat);
    if (param.m_nAudioPayLoadType != 0) {
        format.payload = param.m_nAudioPayLoadType;
    }
    sdp.Line("m=audio ", port, protocolName, " ", format.payload);
    AddCrypto(param, param.m_securityKeyOfAudio, sdp);
    sdp.Line("a=rtpmap:", format.payload, " ", format.map);
    sdp.Line("a=control:trackID=2");
}

int AddPrivateMedia(unsigned int media, const CStreamParam& param, bool isResponse, SdpText& sdp) {
    const std::uint32_t videoPort = isResponse ? param.m_nSrcRtpVideoPort : param.m_nDstVideoPort;
    const std::uint32_t audioPort = isResponse ? param.m_nSrcRtpAudioPort : param.m_nDstAudioPort;
    const std::uint32_t protocol = isResponse ? param.m_nSrcTransProtocol : param.m_nDstTransProtocol;
    switch (media) {
        case SDP_MEDIA_APPLICATION:
            return AddApplication(param, videoPort, protocol, sdp);
        case SDP_MEDIA_VIDEO:
            return AddVideo(param, videoPort, protocol, isResponse, sdp);
        case SDP_MEDIA_AUDIO:
            // Any protocol but TCP counts as UDP here.
            AddAudio(param, audioPort, protocol == RTP_OVER_TCP ? " RTP/AVP/TCP" : " RTP/AVP", sdp);
            return ZVS_SUCCEED;
        default:
            GVX_LOG_ERR("encode media - unsupport media", "Media=%u.", media);
            return ZVS_FAIL;
    }
}

const char* T28181ProtocolName(std::uint32_t protocol) {
    switch (protocol) {
        case RTP_OVER_UDP:
            return " RTP/AVP";
        case RTP_OVER_TCP:
            return " TCP/RTP/AVP";
        default:
            return nullptr;
    }
}

unsigned int AreaOf(const std::string& setting) {
    return static_cast<unsigned int>(std::atoi(setting.c_str()));
}

// The payload type of H.265 in this area, or null with a log line where none is agreed.
const char* H265Payload(const std::string& area) {
    switch (AreaOf(area)) {
        case SUPPORT_AREA_DEFAULT:
        case SUPPORT_AREA_JIANGSU:
            return "111";
        case SUPPORT_AREA_HEFEI:
            return "108";
        default:
            GVX_LOG_ERR("Encode t28181 media fail.", "support area=%s.", area.c_str());
            return nullptr;
    }
}

// Where the peer is to send to, or where the stream comes from.
std::string T28181Address(const CStreamParam& param, bool isResponse, bool nat) {
    return isResponse ? SourceAddress(param.m_nSrcRtpVideoIp)
                      : CGvxUtility::convertNum2Ipv4(nat ? param.m_nDstNatIP : param.m_nDstVideoIP);
}

int AddT28181Video(const CStreamParam& param, std::uint32_t port, std::uint32_t protocol, CServiceSDP& codec,
                   SdpText& sdp) {
    const char* const protocolName = T28181ProtocolName(protocol);
    if (protocolName == nullptr) {
        GVX_LOG_ERR("encode media - unsupport video protocol", "Protocol=%d.", static_cast<int>(protocol));
        return ZVS_FAIL;
    }
    const std::string area = gvx::SettingText(gvx::Setting::SUPPORT_AREA_TYPE);
    sdp.Add("m=video ", port, protocolName);
    if (const char* const payload = H265Payload(area)) {
        sdp.Add(" 96 97 98 99 ", payload);
    }
    sdp.Line();
    AddCrypto(param, param.m_securityKeyOfMedia, sdp);
    if (protocol == RTP_OVER_TCP) {
        sdp.Line("a=setup:passive");
        sdp.Line("a=connection:new");
    }
    sdp.Line("a=rtpmap:96 PS/90000");
    sdp.Line("a=rtpmap:97 MPEG4/90000");
    sdp.Line("a=rtpmap:98 H264/90000");
    sdp.Line("a=rtpmap:99 SVAC/90000");
    if (const char* const payload = H265Payload(area)) {
        sdp.Line("a=rtpmap:", payload, " H265/90000");
    }
    sdp.Line("a=control:trackID=1");
    if (AreaOf(area) == SUPPORT_AREA_HEFEI) {
        sdp.Line("f=v/", codec.converVideoEncode(param.m_nVideoFormat), "/", param.m_nStreamID + 101, "///a///");
    }
    sdp.Line("a=", gvx::SettingText(gvx::Setting::LIVE_VIEW_VIDEO));
    return ZVS_SUCCEED;
}

int AddT28181Media(unsigned int media, const CStreamParam& param, bool isResponse, bool nat, CServiceSDP& codec,
                   SdpText& sdp) {
    const std::uint32_t peerVideoPort = nat ? param.m_nNatVideoPort : param.m_nDstVideoPort;
    const std::uint32_t peerAudioPort = nat ? param.m_nNatAudioPort : param.m_nDstAudioPort;
    GVX_LOG_INFO("T28181 PortMap Send to pu Port:", "VideoPort[%u],AudioPort[%u]", peerVideoPort, peerAudioPort);
    const std::uint32_t protocol = isResponse ? param.m_nSrcTransProtocol : param.m_nDstTransProtocol;
    if (media == SDP_MEDIA_VIDEO) {
        return AddT28181Video(param, isResponse ? param.m_nSrcRtpVideoPort : peerVideoPort, protocol, codec, sdp);
    }
    if (media != SDP_MEDIA_AUDIO) {
        GVX_LOG_ERR("encode media - unsupport media", "Media=%u.", media);
        return ZVS_FAIL;
    }
    const char* const protocolName = T28181ProtocolName(protocol);
    if (protocolName == nullptr) {
        GVX_LOG_ERR("encode media - unsupport audio protocol", "Protocol=%d.", static_cast<int>(protocol));
        return ZVS_FAIL;
    }
    AddAudio(param, isResponse ? param.m_nSrcRtpAudioPort : peerAudioPort, protocolName, sdp);
    return ZVS_SUCCEED;
}

}  // namespace

int CServiceSDP::EncodeSDP(const std::string& strLensID, const CStreamParam* pStreamParam, std::string& strOutputSDP,
                           bool bIsResp) {
    if (strLensID.empty() || pStreamParam == nullptr) {
        GVX_LOG_ERR("encode sdp - invalid param", "Lens count=%d, Stream Param=%p.", static_cast<int>(strLensID.size()),
                    static_cast<const void*>(pStreamParam));
        return ZVS_PARA_INVALID;
    }
    const CStreamParam& param = *pStreamParam;
    const std::uint32_t service = param.m_nBusinessType;
    const std::string strSipMediaIP =
        bIsResp ? SourceAddress(param.m_nSrcRtpVideoIp) : CGvxUtility::convertNum2Ipv4(param.m_nDstVideoIP);
    const char* const strServiceType = PrivateSessionName(service);

    SdpText sdp;
    sdp.Line("v=0");
    if (AddOriginator(strLensID, param, strSipMediaIP, sdp) != ZVS_SUCCEED) {
        return ZVS_FAIL;
    }
    sdp.Line("s=", strServiceType);
    sdp.Line("i=", strServiceType, " to Pu");
    if (service == SERVICE_TYPE_AUDIO_BROADCAST) {
        sdp.Add("u=rtsp://",
                bIsResp ? SourceAddress(param.m_nSrcRtpAudioIp) : CGvxUtility::convertNum2Ipv4(param.m_nDstAudioIP),
                ":", bIsResp ? param.m_nSrcRtpAudioPort : param.m_nDstAudioPort);
    } else {
        sdp.Add("u=rtsp://", strSipMediaIP, ":", bIsResp ? param.m_nSrcRtpVideoPort : param.m_nDstVideoPort);
    }
    sdp.Line("/", param.m_strServiceID, ".sdp");
    sdp.Line("c=IN IP4 ", strSipMediaIP);
    if (AddActiveTime(param, "snprintf_s czStartTime failed", sdp) != ZVS_SUCCEED) {
        return ZVS_FAIL;
    }
    const auto addMedia = [&](unsigned int media, const char* failure) {
        if (AddPrivateMedia(media, param, bIsResp, sdp) == ZVS_SUCCEED) {
            return true;
        }
        GVX_LOG_ERR(failure, "Lens_ID=%s, Service_ID=%s.", strLensID.c_str(), param.m_strServiceID.c_str());
        return false;
    };
    if ((param.m_nDstTransProtocol == RTP_OVER_TCP &&
         !addMedia(SDP_MEDIA_APPLICATION, "encode sdp - failure to encode media")) ||
        (!IsTalk(service) && !addMedia(SDP_MEDIA_VIDEO, "encode sdp - failure to encode video.")) ||
        !addMedia(SDP_MEDIA_AUDIO, "encode sdp - failure to encode audio.")) {
        return ZVS_FAIL;
    }
    sdp.Line(service == SERVICE_TYPE_AUDIO_BROADCAST ? "a=sendonly" : "a=sendrecv");
    sdp.HandOver(strOutputSDP);
    return ZVS_SUCCEED;
}

int CServiceSDP::EncodeMedia(unsigned int nMedia, const CStreamParam* pStreamParam, const std::string& strDstMediaIP,
                             unsigned int /*uiDstMediaPort*/, std::string& strMedia, bool bIsResp) {
    if (strDstMediaIP.empty() || pStreamParam == nullptr) {
        GVX_LOG_ERR("encode media - invalid param", "Media=%d.", static_cast<int>(nMedia));
        return ZVS_PARA_INVALID;
    }
    SdpText media;
    const int result = AddPrivateMedia(nMedia, *pStreamParam, bIsResp, media);
    if (result == ZVS_SUCCEED) {
        media.HandOver(strMedia);
    }
    return result;
}

int CServiceSDP::EncodeT28181SDP(const std::string& strLensID, CStreamParam* pStreamParam, std::string& strOutputSDP,
                                 bool bIsResp, bool bNat) {
    if (strLensID.empty() || pStreamParam == nullptr) {
        GVX_LOG_ERR("encode sdp - invalid param", "Lens_ID_Size=%d, Stream_Param=%p.",
                    static_cast<int>(strLensID.size()), static_cast<const void*>(pStreamParam));
        return ZVS_PARA_INVALID;
    }
    const CStreamParam& param = *pStreamParam;
    const std::uint32_t service = param.m_nBusinessType;
    const bool bNatCross = bNat && !bIsResp;
    const std::string strSipMediaIP = T28181Address(param, bIsResp, bNat);
    const char* const strServiceType = T28181SessionName(service);

    SdpText sdp;
    sdp.Line("v=0");
    if (AddOriginator(strLensID, param, strSipMediaIP, sdp) != ZVS_SUCCEED) {
        return ZVS_FAIL;
    }
    sdp.Line("s=", strServiceType);
    if (!IsTalk(service)) {
        sdp.Line("i=", strServiceType, " to Pu");
        sdp.Line("u=", strLensID, ":", m_playbackType);
    }
    sdp.Line("c=IN IP4 ", strSipMediaIP);
    if (AddActiveTime(param, "snprintf_s czEndTime failed", sdp) != ZVS_SUCCEED) {
        return ZVS_FAIL;
    }
    const auto addAudio = [&](gvx::Setting direction) {
        if (AddT28181Media(SDP_MEDIA_AUDIO, param, bIsResp, bNatCross, *this, sdp) != ZVS_SUCCEED) {
            GVX_LOG_ERR("encode sdp - failure to encode audio", "Lens_ID=%s, Service_ID=%s.", strLensID.c_str(),
                        param.m_strServiceID.c_str());
            return ZVS_FAIL;
        }
        sdp.Line("a=", gvx::SettingText(direction));
        return ZVS_SUCCEED;
    };
    int result = ZVS_SUCCEED;
    if (service == SERVICE_TYPE_AUDIO_CALL) {
        // Both directions are sendonly by default: devices are known to take it so.
        result = addAudio(gvx::Setting::AUDIO_TALK_SEND);
        if (result == ZVS_SUCCEED) {
            result = addAudio(gvx::Setting::AUDIO_TALK_RECV);
        }
    } else if (service == SERVICE_TYPE_AUDIO_BROADCAST) {
        result = addAudio(gvx::Setting::AUDIO_BROADCAST);
    } else {
        result = AddT28181Media(SDP_MEDIA_VIDEO, param, bIsResp, bNatCross, *this, sdp);
        if (result != ZVS_SUCCEED) {
            GVX_LOG_ERR("encode sdp - failure to encode video.", "Lens_ID=%s, Service_ID=%s.", strLensID.c_str(),
                        param.m_strServiceID.c_str());
        }
    }
    if (result != ZVS_SUCCEED) {
        return ZVS_FAIL;
    }
    GVX_LOG_INFO("T28181 encode sdp", "T28181 encode sdp, the sdp string is:%s", sdp.c_str());
    sdp.HandOver(strOutputSDP);
    return ZVS_SUCCEED;
}

int CServiceSDP::EncodeT28181TalkSDP(ZVS_SERVICE_TYPE enBusinessTpye, const std::string& strLensID,
                                     const CStreamParam* pStreamParam, std::string& strOutputSDP, bool bIsResp,
                                     bool bNat) {
    if (strLensID.empty() || pStreamParam == nullptr) {
        GVX_LOG_ERR("encode sdp - invalid param", "Lens_ID_Size=%d, Stream_Param=%p.",
                    static_cast<int>(strLensID.size()), static_cast<const void*>(pStreamParam));
        return ZVS_PARA_INVALID;
    }
    const std::string strSipMediaIP = T28181Address(*pStreamParam, bIsResp, bNat);
    const bool isBroadcast = enBusinessTpye == SERVICE_TYPE_AUDIO_BROADCAST;

    SdpText sdp;
    sdp.Line("v=0");
    sdp.Line("o=", strLensID, " ", pStreamParam->m_strServiceID, " ", static_cast<std::uint32_t>(BP::OSTime::Time()),
             " IN IP4 ", strSipMediaIP);
    sdp.Line(isBroadcast ? "s=BroadCast" : "s=Play");
    sdp.Line("c=IN IP4 ", strSipMediaIP);
    sdp.Line("t=0 0");
    if (isBroadcast || enBusinessTpye == SERVICE_TYPE_AUDIO_CALL) {
        if (AddPrivateMedia(SDP_MEDIA_AUDIO, *pStreamParam, bIsResp, sdp) != ZVS_SUCCEED) {
            GVX_LOG_ERR("encode sdp - failure to encode audio", "Lens_ID=%s, Service_ID=%s.", strLensID.c_str(),
                        pStreamParam->m_strServiceID.c_str());
            return ZVS_FAIL;
        }
        if (isBroadcast) {
            sdp.Line("f=v/////a/1/8/1");
        }
        sdp.Line(isBroadcast ? "a=sendonly" : "a=recvonly");
    }
    sdp.HandOver(strOutputSDP);
    return ZVS_SUCCEED;
}

int CServiceSDP::EncodeT28181Media(unsigned int nMedia, const CStreamParam* pStreamParam,
                                   const std::string& strDstMediaIP, unsigned int /*uiDstMediaPort*/,
                                   std::string& strMedia, bool bIsRespone, bool bNat) {
    if (strDstMediaIP.empty() || pStreamParam == nullptr) {
        GVX_LOG_ERR("encode media - invalid param", "Media=%u.", nMedia);
        return ZVS_PARA_INVALID;
    }
    SdpText media;
    const int result = AddT28181Media(nMedia, *pStreamParam, bIsRespone, bNat, *this, media);
    if (result == ZVS_SUCCEED) {
        media.HandOver(strMedia);
    }
    return result;
}

unsigned int CServiceSDP::converVideoEncode(unsigned int uiEnCoudeMode) {
    switch (uiEnCoudeMode) {
        case VIDEO_DEC_H264:
            return T28181_VIDEO_FORMAT_MPEG4;
        case VIDEO_DEC_MJPEG:
            return T28181_VIDEO_FORMAT_H264;
        case VIDEO_DEC_H265:
            return T28181_VIDEO_FORMAT_H265;
        case VIDEO_DEC_SVAC:
            return T28181_VIDEO_FORMAT_SVAC;
        default:
            GVX_LOG_ERR("conver Video Encode failed!", "uiEnCoudeMode is [%d]", static_cast<int>(uiEnCoudeMode));
            return T28181_VIDEO_FORMAT_MPEG4;
    }
}
