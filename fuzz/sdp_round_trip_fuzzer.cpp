// Descriptions that we make of any parameters, read again: they consist of whole lines, and where no text of the
// parameters breaks a line, the reader takes them and finds the ports and the address.

#include "gvx_common/records/media_types.h"
#include "gvx_common/sdp/gvx_sip_sdp.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include <arpa/inet.h>

namespace {

void Require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

// Takes the input piece by piece; zeros when it is used up.
class Input {
public:
    Input(const std::uint8_t* data, std::size_t size) : m_at(data), m_left(size) {}

    void Take(void* target, std::size_t bytes) {
        const std::size_t count = std::min(bytes, m_left);
        std::memset(target, 0, bytes);
        std::memcpy(target, m_at, count);
        m_at += count;
        m_left -= count;
    }
    std::uint32_t Number(std::size_t bytes) {
        std::uint32_t value = 0;
        Take(&value, bytes);
        return value;
    }
    std::string Text() {
        std::string text(Number(1), '\0');
        Take(text.data(), text.size());
        return text;
    }

private:
    const std::uint8_t* m_at;
    std::size_t m_left;
};

bool IsWord(const std::string& text) {
    return !text.empty() && text.size() < 200 &&
           std::all_of(text.begin(), text.end(), [](char c) { return c > ' ' && c < 127; });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    CStreamParam param;
    const bool isResp = input.Number(1) % 2 != 0;
    const bool nat = input.Number(1) % 2 != 0;
    const std::uint32_t form = input.Number(1) % 3;
    param.m_nBusinessType = input.Number(1) % 32;
    param.m_nVideoFormat = input.Number(1) % 16;
    param.m_nAudioFormat = input.Number(1) % 8;
    param.m_nSrcTransProtocol = input.Number(1) % 5;
    param.m_nDstTransProtocol = input.Number(1) % 5;
    param.m_nRecvStreamMode = input.Number(1) % 2;
    param.m_nMediaSecurityEnable = input.Number(1) % 2;
    for (std::uint32_t* field :
         {&param.m_nSrcRtpVideoIp, &param.m_nSrcRtpAudioIp, &param.m_nDstVideoIP, &param.m_nDstAudioIP,
          &param.m_nDstNatIP, &param.m_nSrcRtpVideoPort, &param.m_nSrcRtpAudioPort, &param.m_nDstVideoPort,
          &param.m_nDstAudioPort, &param.m_nNatVideoPort, &param.m_nNatAudioPort, &param.m_nVideoPayLoadType,
          &param.m_nAudioPayLoadType, &param.m_nStreamID}) {
        *field = input.Number(4);
    }
    const std::string lens = input.Text();
    param.m_strSessionID = input.Text();
    param.m_strServiceID = input.Text();
    param.m_strRecordStartTime = input.Text();
    param.m_strRecordEndTime = input.Text();
    input.Take(param.m_securityKeyOfMedia, sizeof(param.m_securityKeyOfMedia));
    input.Take(param.m_securityKeyOfAudio, sizeof(param.m_securityKeyOfAudio));

    CServiceSDP codec;
    codec.SetPlaybackType(static_cast<std::int32_t>(param.m_nStreamID));
    std::string text;
    int result = 0;
    if (form == 0) {
        result = codec.EncodeSDP(lens, &param, text, isResp);
    } else if (form == 1) {
        result = codec.EncodeT28181SDP(lens, &param, text, isResp, nat);
    } else {
        const auto type = static_cast<ZVS_SERVICE_TYPE>(param.m_nBusinessType);
        result = codec.EncodeT28181TalkSDP(type, lens, &param, text, isResp, nat);
    }
    Require((result == 0) == !text.empty());
    if (result != 0) {
        return 0;
    }
    Require(text.compare(0, 5, "v=0\r\n") == 0 && text.compare(text.size() - 2, 2, "\r\n") == 0);
    CStreamParam got;
    const int read = codec.DecodeSDP(text, &got);
    CStreamParam talk;
    codec.DecodeT28181TalkSDP(text, &talk);
    // A reader passes over what "=" there is before the first word.
    const bool clear = IsWord(lens) && lens.front() != '=' && IsWord(param.m_strServiceID) &&
                       (param.m_strSessionID.empty() || IsWord(param.m_strSessionID)) &&
                       std::none_of(param.m_securityKeyOfMedia, std::end(param.m_securityKeyOfMedia),
                                    [](char c) { return c == '\n'; }) &&
                       std::none_of(param.m_securityKeyOfAudio, std::end(param.m_securityKeyOfAudio),
                                    [](char c) { return c == '\n'; });
    // Two blocks that no reader takes: video without formats, which ends with its protocol, and an application block
    // over UDP, which an answer has whose source is UDP where the destination is TCP.
    const bool isOdd =
        (form == 1 && text.find("AVP\r\n") != std::string::npos) || text.find(" UDP vss_rtsp\r\n") != std::string::npos;
    if (clear && !isOdd) {
        Require(read == 0);
        const std::uint32_t address = isResp             ? param.m_nSrcRtpVideoIp
                                      : form != 0 && nat ? htonl(param.m_nDstNatIP)
                                                         : htonl(param.m_nDstVideoIP);
        Require(got.m_nSrcRtpVideoIp == address && got.m_nSrcRtpAudioIp == address);
    }
    return 0;
}
