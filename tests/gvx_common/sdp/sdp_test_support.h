#pragma once

#include "gvx_common/records/media_types.h"
#include "gvx_common/sdp/gvx_sip_sdp.h"
#include "gvx_common/utility/gvx_utility.h"

#include <cstring>
#include <string>

#include <arpa/inet.h>

// A live stream of H.264 and G.711 over UDP from 10.0.0.9 to 192.0.2.10, and audio from 10.0.0.8 to 192.0.2.11. Its
// keys are not in use.
inline CStreamParam UsualStream() {
    CStreamParam param("svc");
    param.m_strSessionID = "7001";
    param.m_nBusinessType = 1;
    param.m_nVideoFormat = VIDEO_DEC_H264;
    param.m_nAudioFormat = GVX_AUDIO_FORMAT_G711A;
    param.m_nSrcTransProtocol = param.m_nDstTransProtocol = RTP_OVER_UDP;
    param.m_nSrcRtpVideoIp = inet_addr("10.0.0.9");
    param.m_nSrcRtpAudioIp = inet_addr("10.0.0.8");
    param.m_nSrcRtpVideoPort = 6000;
    param.m_nSrcRtpAudioPort = 6002;
    CGvxUtility::convertIpv4ToNum("192.0.2.10", param.m_nDstVideoIP);
    CGvxUtility::convertIpv4ToNum("192.0.2.11", param.m_nDstAudioIP);
    param.m_nDstVideoPort = 5000;
    param.m_nDstAudioPort = 5002;
    CGvxUtility::convertIpv4ToNum("198.51.100.7", param.m_nDstNatIP);
    param.m_nNatVideoPort = 7000;
    param.m_nNatAudioPort = 7002;
    std::strcpy(param.m_securityKeyOfMedia, "video,key");
    std::strcpy(param.m_securityKeyOfAudio, "audio,key");
    return param;
}

// What a description sets beside the session, as one text: address, both ports, transport, both payload types. The
// address of audio follows where it is another.
inline std::string Set(const CStreamParam& param) {
    std::string text = inet_ntoa(in_addr{param.m_nSrcRtpVideoIp});
    for (const std::uint32_t number : {param.m_nSrcRtpVideoPort, param.m_nSrcRtpAudioPort, param.m_nSrcTransProtocol,
                                       param.m_nVideoPayLoadType, param.m_nAudioPayLoadType}) {
        text += " " + std::to_string(number);
    }
    return param.m_nSrcRtpAudioIp == param.m_nSrcRtpVideoIp ? text
                                                            : text + " " + inet_ntoa(in_addr{param.m_nSrcRtpAudioIp});
}

// Tests write a text with "|" for each end of line.
inline std::string Lines(const std::string& text, const std::string& end = "\r\n") {
    return CGvxUtility::replaceAll(text, "|", end);
}
