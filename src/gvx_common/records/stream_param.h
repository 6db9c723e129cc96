#pragma once

#include "base/zvs_types.h"

#include <cstdint>
#include <string>

struct SOCKET_INFO;

enum _MU_MEDIA_TRANS_MODE : int {
    MU_MEDIA_DIRECT_TRANS = 1,
    MU_MEDIA_INDIRECT_TRANS = 2,
};

enum _MEDIA_SECURITY_ENABLE_E : int {
    MEDIA_SECURITY_DISABLE = 0,
    MEDIA_SECURITY_ENABLE = 1,
};

enum _MEDIA_SECURITY_ALGORITHM_E : int {
    TV_ZVS_IPC_ENCRYPT_SIMPLE = 0,
    TV_ZVS_IPC_ENCRYPT_AES256 = 1,
    TV_ZVS_IPC_ENCRYPT_AES256_CBC = 5,
    TV_ZVS_IPC_ENCRYPT_AES256_CBC_SEC = 6,
};

// One media stream as the platform asked for it and as negotiation settled it. A session fills it, the lens
// completes it; it lives as long as the stream. Addresses are IPv4 and, like ports, in host byte order. No lock: the
// session that owns it hands it on from step to step. When it is destroyed, the keys are wiped, and source ports that
// CGvxPortMgr has handed out go back to it: to the pool of the source transport. A copy gives nothing back.
class CStreamParam {
public:
    CStreamParam();
    CStreamParam(const CStreamParam&) = default;
    CStreamParam& operator=(const CStreamParam&) = default;
    virtual ~CStreamParam();

    // Who takes the ports back; set when the library is loaded, by the port manager.
    using PortReturner = void (*)(bool overTcp, unsigned int port);
    static void SetPortReturner(PortReturner returner);

    // Writes the fields to the log at information level, in a few lines; keys never appear.
    void print() const;

    std::string m_strServiceID;
    std::string m_strSessionID;
    std::string m_strSrcCode;  // source code of the lens
    std::string m_strRecordFileName;
    std::string m_strRecordStartTime;
    std::string m_strRecordEndTime;
    std::string m_strPuRecordStartTime;  // range on the device
    std::string m_strPuRecordEndTime;
    char m_securityKeyOfMedia[200];
    char m_securityKeyOfAudio[200];
    char m_CBCSecurityAlgorithmIV[16];
    std::uint32_t m_nBusinessType;
    std::uint32_t m_nRecvStreamMode;
    std::uint32_t m_nDstCast;  // unicast or multicast
    std::uint32_t m_nStreamID;  // an _STREAM_TYPE_EX
    std::uint32_t m_nVideoFormat;
    std::uint32_t m_nAudioFormat;
    std::uint32_t m_nSrcTransProtocol;  // TRANS_PROTOCOL values
    std::uint32_t m_nDstTransProtocol;
    std::uint32_t m_nDstVideoIP;
    std::uint32_t m_nDstVideoPort;
    std::uint32_t m_nDstAudioIP;
    std::uint32_t m_nDstAudioPort;
    std::uint32_t m_nMediaTransMode;  // an _MU_MEDIA_TRANS_MODE
    std::uint32_t m_nSrcRtpVideoPort;
    std::uint32_t m_nSrcRtpAudioPort;
    std::uint32_t m_nSrcRtpVideoIp;
    std::uint32_t m_nSrcRtpAudioIp;
    std::uint32_t m_nVedioAnalyseIP;  // receiver of the analysis stream
    std::uint32_t m_nVedioAnalysePort;
    std::uint32_t m_nVideoPayLoadType;  // negotiated RTP payload types
    std::uint32_t m_nAudioPayLoadType;
    std::uint32_t m_nMediaSecurityEnable;     // an _MEDIA_SECURITY_ENABLE_E
    std::uint32_t m_nMediaSecurityAlgorithm;  // an _MEDIA_SECURITY_ALGORITHM_E
    std::uint32_t m_nNeedURI;                 // non-zero: the response must carry a URI
    SOCKET_INFO* m_pSocketInfo;               // the stream's socket record, not owned
    std::uint32_t m_nDstNatIP;
    void* m_pUserData;  // opaque, not owned
    bool m_bRTSP;       // carried by RTSP
    std::uint32_t m_nNatVideoPort;
    std::uint32_t m_nNatAudioPort;
    std::uint32_t m_nNatIntelPort;
    std::uint32_t m_nNatVideoIP;
    std::uint32_t m_nNatAudioIP;
    std::uint32_t m_nNatIntelIP;
    std::string m_natURL;
    ZVS_UINT32 m_nPlayBackStreamType;

private:
    // Whether this object gives its ports back: the one that was filled does, what was made or assigned from it not.
    class PortDuty {
    public:
        PortDuty() = default;
        PortDuty(const PortDuty&) : m_own(false) {}
        PortDuty& operator=(const PortDuty& other) {
            m_own = m_own && &other == this;
            return *this;
        }
        bool IsOwn() const { return m_own; }

    private:
        bool m_own = true;
    };

    void ReleasePorts() const;

    PortDuty m_portDuty;
};
