#pragma once

#include "base/zvs_types.h"
#include "gvx_common/records/pool_port.h"

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

struct SOCKET_INFO;

enum _MU_MEDIA_TRANS_MODE : int {
    MU_MEDIA_DIRECT_TRANS = 1,
    MU_MEDIA_INDIRECT_TRANS = 2,
};

// What a stream is for; every other value counts as live view.
enum ZVS_SERVICE_TYPE : int {
    SERVICE_TYPE_AUDIO_CALL = 5,
    SERVICE_TYPE_AUDIO_BROADCAST = 6,
    SERVICE_TYPE_PU_DOWNLOAD = 7,
    SERVICE_TYPE_PU_PLAYBACK = 8,
    SERVICE_TYPE_PU_UPLOAD = 27,
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
// completes it; it lives as long as the stream. No lock: the session that owns it hands it on from step to step. When
// it is destroyed, the keys are wiped.
//
// Addresses are IPv4. Those of the source (m_nSrcRtpVideoIp, m_nSrcRtpAudioIp) are in network byte order, as session
// descriptions are read into them; all others and the ports are in host byte order. What a peer has described is stored
// as it came: whoever opens a socket refuses a port outside 1 to 65535.
class CStreamParam {
public:
    CStreamParam() : CStreamParam(std::string()) {}
    explicit CStreamParam(const std::string& strServiceID);
    CStreamParam(const CStreamParam&) = default;
    CStreamParam& operator=(const CStreamParam&) = default;
    virtual ~CStreamParam();

    // Keeps a port of a pool for this stream; it goes back when these parameters are destroyed, after the sockets. The
    // port fields are no such claim, since they may hold those of a peer: nothing goes back because of them.
    void KeepPort(gvx::PoolPort port) { m_keptPorts.list.push_back(std::move(port)); }

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
    std::uint32_t m_nBusinessType;  // a ZVS_SERVICE_TYPE
    std::uint32_t m_nRecvStreamMode;
    std::uint32_t m_nDstCast;   // unicast or multicast
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
    std::uint32_t m_nSrcRtpVideoIp;   // network byte order
    std::uint32_t m_nSrcRtpAudioIp;   // network byte order
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
    // A copy keeps no ports, and what is assigned to keeps its own: each port goes back once.
    struct KeptPorts {
        KeptPorts() = default;
        KeptPorts(const KeptPorts&) {}
        KeptPorts& operator=(const KeptPorts&) { return *this; }
        std::vector<gvx::PoolPort> list;
    };

    KeptPorts m_keptPorts;
};
