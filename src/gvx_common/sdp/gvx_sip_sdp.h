#pragma once

#include "gvx_common/records/stream_param.h"

#include <cstdint>
#include <string>

// Ends of line: every line that is written ends with the first; a session description is read up to the second.
inline constexpr char SDP_LINE_TERMINAL_TAG[] = "\r\n";
inline constexpr char SDP_LINE_TERMINAL_TAG_N[] = "\n";

// The kind of a media block (RFC 4566, section 5.14).
enum SDP_MEDIA_TYPE : unsigned int {
    SDP_MEDIA_NONE = 0,  // before the first block, or in one that is not known
    SDP_MEDIA_APPLICATION = 1,
    SDP_MEDIA_VIDEO = 2,
    SDP_MEDIA_AUDIO = 3,
};

// Values of the setting SUPPORT_AREA_TYPE, which picks the number of H.265 and the f= line in T28181 texts.
enum _SUPPORT_AREA_TYPE : int {
    SUPPORT_AREA_DEFAULT = 0,
    SUPPORT_AREA_JIANGSU = 1,
    SUPPORT_AREA_HEFEI = 2,
    SUPPORT_AREA_OTHER = 3,
};

// Numbers of video formats in the f= line of T28181 texts.
enum _T28181_VIDEO_FORMAT : int {
    T28181_VIDEO_FORMAT_INVALID = 0,
    T28181_VIDEO_FORMAT_MPEG4 = 1,
    T28181_VIDEO_FORMAT_H264 = 2,
    T28181_VIDEO_FORMAT_SVAC = 3,
    T28181_VIDEO_FORMAT_3PG = 4,
    T28181_VIDEO_FORMAT_H265 = 5,
    T28181_VIDEO_FORMAT_MAX = 6,
};

// Session descriptions (RFC 4566) of SIP sessions: makes them from the parameters of a stream and reads a peer's into
// them. The private form goes to the platform's media peers, the T28181 forms to devices of that standard.
//
// Made on the stack for one call; instances share nothing, any thread may use its own. Parameters stay the caller's.
// Results are ZVS_SUCCEED (0), ZVS_FAIL (1) and ZVS_PARA_INVALID (2). Encoders, DecodeSDP and DecodeT28181TalkSDP give 2
// for a null pointer or an empty text where one is needed; the operations on single lines give 1 there. An encoder sets its output only when it succeeds. A decoder that fails leaves in the parameters what the
// lines before stored. A text to be read ends at its first NUL.
//
// Source addresses in the parameters (m_nSrcRtp...Ip) are in network byte order, destination and NAT addresses in host
// byte order. Numbers of a peer are stored as atoi gives them: a port or payload type outside its range is for whoever
// uses it to refuse.
class CServiceSDP {
public:
    CServiceSDP() = default;
    virtual ~CServiceSDP() = default;

    // What stands behind the colon of the u= line of T28181 texts; 0 until it is set.
    void SetPlaybackType(std::int32_t playbackType) { m_playbackType = playbackType; }

    // ---- offers (bIsResp false: where the stream is to be sent) and answers (where it comes from) ----

    // The private form. A video or application block fails for a transport other than RTP_OVER_UDP and RTP_OVER_TCP; an
    // audio block takes any other for UDP.
    int EncodeSDP(const std::string& strLensID, const CStreamParam* pStreamParam, std::string& strOutputSDP,
                  bool bIsResp);
    // The T28181 form; the text is logged. bNat has an offer name the NAT address and ports; an answer names its own
    // address, whatever bNat.
    int EncodeT28181SDP(const std::string& strLensID, CStreamParam* pStreamParam, std::string& strOutputSDP,
                        bool bIsResp, bool bNat);
    // The T28181 form of talk and broadcast with one audio block, which is the private form's. For any other service
    // type the text has no media, and the result is still ZVS_SUCCEED.
    int EncodeT28181TalkSDP(ZVS_SERVICE_TYPE enBusinessTpye, const std::string& strLensID,
                            const CStreamParam* pStreamParam, std::string& strOutputSDP, bool bIsResp, bool bNat);

    // One media block of the private form; nMedia is an SDP_MEDIA_TYPE. strDstMediaIP must not be empty but is not
    // used otherwise, nor is the port: both come from the parameters.
    int EncodeMedia(unsigned int nMedia, const CStreamParam* pStreamParam, const std::string& strDstMediaIP,
                    unsigned int uiDstMediaPort, std::string& strMedia, bool bIsResp);
    // The same in the T28181 form, for video and audio alone. A video block has no formats to choose from where
    // SUPPORT_AREA_TYPE is not 0, 1 or 2; that is logged and no failure.
    int EncodeT28181Media(unsigned int nMedia, const CStreamParam* pStreamParam, const std::string& strDstMediaIP,
                          unsigned int uiDstMediaPort, std::string& strMedia, bool bIsRespone, bool bNat);
    // The number of a ZVS_VIDEO_DEC_TYPE in the f= line. The number of H.264 is 1, which the standard gives to MPEG-4,
    // and MJPEG has 2, that of H.264: peers know these numbers so. Formats without a number give 1 and a log line.
    unsigned int converVideoEncode(unsigned int uiEnCoudeMode);

    // ---- a peer's texts ----

    // Reads lines that end with LF or CR LF. Text behind the last end of line is not read. Times are not kept.
    int DecodeSDP(const std::string& strSDP, CStreamParam* pStreamParam);
    // Reads lines that end with CR LF alone; an empty line fails. Of each media block, one that is not sendonly sets
    // the audio port, the transport and the payload type of audio, so the last of them holds.
    int DecodeT28181TalkSDP(const std::string& strSDP, CStreamParam* pStreamParam);

    // One line without its end. nMedia is the block that the line belongs to and becomes that of an m= line.
    int DecodeLine(const std::string& strData, unsigned int& nMedia, CStreamParam* pStreamParam);
    // Lines o=, c=, t=, m= and a=. All but the last fail at 1024 characters and more. One space stands between two
    // tokens.
    //
    // The session identifier is kept only with the transport to the destination RTP_OVER_TCP and m_nRecvStreamMode 1. A
    // space behind the address fails.
    int DecodeOriginator(const std::string& strData, CStreamParam* pStreamParam);
    // Sets the source addresses of video and audio, also from within a media block, so the last such line holds. What
    // is no address is stored as INADDR_NONE.
    int DecodeConnection(const std::string& strData, CStreamParam* pStreamParam);
    int DecodeActiveTime(const std::string& strData, CStreamParam* pStreamParam);
    // Sets the source port of a kind that has none yet, and the transport; an application block sets both ports always.
    // A block of a kind that is not known is passed over, with nMedia 0.
    int DecodeMedia(const std::string& strData, unsigned int& nMedia, CStreamParam* pStreamParam);
    // Sets a payload type from an rtpmap of H264, PS or PCM.
    int DecodeAttribute(const std::string& strData, unsigned int nMedia, CStreamParam* pStreamParam);

    // One media block of a talk, up to the first line that does not belong to it. nMediaLength: the bytes of its
    // lines with their ends.
    int DecodeSingleTalkMedia(const std::string& strData, unsigned int& nMedia, CStreamParam* pStreamParam,
                              int& nMediaLength);
    // A line a= of a talk: an rtpmap of H264 or PCM, or the direction. bSendOnly is set to true or left as it is. Fails
    // where a format's line is no rtpmap, or one of its texts is longer than 63 characters.
    int DecodeAttributeEx(const std::string& strData, unsigned int nMedia, CStreamParam* pStreamParam, bool& bSendOnly);

private:
    std::int32_t m_playbackType = 0;
};
