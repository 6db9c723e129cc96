#include "gvx_common/records/stream_param.h"

#include "base/bounded_string.h"
#include "base/log.h"

#include <array>
#include <cstdio>

#include <arpa/inet.h>

namespace {

// Dotted form of an address in host byte order.
std::array<char, 16> DottedAddress(std::uint32_t address) {
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "%u.%u.%u.%u", address >> 24, (address >> 16) & 0xFFu,
                  (address >> 8) & 0xFFu, address & 0xFFu);
    return text;
}

}  // namespace

CStreamParam::CStreamParam(const std::string& strServiceID)
    : m_strServiceID(strServiceID),
      m_securityKeyOfMedia{},
      m_securityKeyOfAudio{},
      m_CBCSecurityAlgorithmIV{},
      m_nBusinessType(0),
      m_nRecvStreamMode(0),
      m_nDstCast(0),
      m_nStreamID(0),
      m_nVideoFormat(0),
      m_nAudioFormat(0),
      m_nSrcTransProtocol(0),
      m_nDstTransProtocol(0),
      m_nDstVideoIP(0),
      m_nDstVideoPort(0),
      m_nDstAudioIP(0),
      m_nDstAudioPort(0),
      m_nMediaTransMode(0),
      m_nSrcRtpVideoPort(0),
      m_nSrcRtpAudioPort(0),
      m_nSrcRtpVideoIp(0),
      m_nSrcRtpAudioIp(0),
      m_nVedioAnalyseIP(0),
      m_nVedioAnalysePort(0),
      m_nVideoPayLoadType(0),
      m_nAudioPayLoadType(0),
      m_nMediaSecurityEnable(MEDIA_SECURITY_DISABLE),
      m_nMediaSecurityAlgorithm(TV_ZVS_IPC_ENCRYPT_SIMPLE),
      m_nNeedURI(0),
      m_pSocketInfo(nullptr),
      m_nDstNatIP(0),
      m_pUserData(nullptr),
      m_bRTSP(false),
      m_nNatVideoPort(0),
      m_nNatAudioPort(0),
      m_nNatIntelPort(0),
      m_nNatVideoIP(0),
      m_nNatAudioIP(0),
      m_nNatIntelIP(0),
      m_nPlayBackStreamType(0) {}

CStreamParam::~CStreamParam() {
    memset_s(m_securityKeyOfMedia, sizeof(m_securityKeyOfMedia), 0, sizeof(m_securityKeyOfMedia));
    memset_s(m_securityKeyOfAudio, sizeof(m_securityKeyOfAudio), 0, sizeof(m_securityKeyOfAudio));
    memset_s(m_CBCSecurityAlgorithmIV, sizeof(m_CBCSecurityAlgorithmIV), 0, sizeof(m_CBCSecurityAlgorithmIV));
}

void CStreamParam::print() const {
    if (!OMLogEnabled(OM_LOG_INFO)) {
        return;
    }
    GVX_LOG_INFO("Stream param", "service[%s] session[%s] source[%s] stream[%u] business[%u] receive mode[%u] cast[%u]",
                 m_strServiceID.c_str(), m_strSessionID.c_str(), m_strSrcCode.c_str(), m_nStreamID, m_nBusinessType,
                 m_nRecvStreamMode, m_nDstCast);
    GVX_LOG_INFO("Stream param",
                 "video format[%u] payload[%u] audio format[%u] payload[%u] source transport[%u] destination "
                 "transport[%u] media transport mode[%u]",
                 m_nVideoFormat, m_nVideoPayLoadType, m_nAudioFormat, m_nAudioPayLoadType, m_nSrcTransProtocol,
                 m_nDstTransProtocol, m_nMediaTransMode);
    GVX_LOG_INFO("Stream param", "destination video[%s:%u] audio[%s:%u] NAT[%s] source video[%s:%u] audio[%s:%u]",
                 DottedAddress(m_nDstVideoIP).data(), m_nDstVideoPort, DottedAddress(m_nDstAudioIP).data(),
                 m_nDstAudioPort, DottedAddress(m_nDstNatIP).data(), DottedAddress(ntohl(m_nSrcRtpVideoIp)).data(),
                 m_nSrcRtpVideoPort, DottedAddress(ntohl(m_nSrcRtpAudioIp)).data(), m_nSrcRtpAudioPort);
    GVX_LOG_INFO("Stream param", "analysis[%s:%u] NAT video[%s:%u] audio[%s:%u] intelligence[%s:%u] NAT URL[%s]",
                 DottedAddress(m_nVedioAnalyseIP).data(), m_nVedioAnalysePort, DottedAddress(m_nNatVideoIP).data(),
                 m_nNatVideoPort, DottedAddress(m_nNatAudioIP).data(), m_nNatAudioPort,
                 DottedAddress(m_nNatIntelIP).data(), m_nNatIntelPort, m_natURL.c_str());
    GVX_LOG_INFO("Stream param",
                 "record[%s] from[%s] to[%s] device from[%s] to[%s] playback type[%u] security[%u] algorithm[%u] need "
                 "URI[%u] RTSP[%d]",
                 m_strRecordFileName.c_str(), m_strRecordStartTime.c_str(), m_strRecordEndTime.c_str(),
                 m_strPuRecordStartTime.c_str(), m_strPuRecordEndTime.c_str(), m_nPlayBackStreamType,
                 m_nMediaSecurityEnable, m_nMediaSecurityAlgorithm, m_nNeedURI, m_bRTSP ? 1 : 0);
}
