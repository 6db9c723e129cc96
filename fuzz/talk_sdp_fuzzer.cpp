// Talk answers of T28181 devices, whole and one media block: no block reaches beyond the text, and none sets video.

#include "gvx_common/records/media_types.h"
#include "gvx_common/sdp/gvx_sip_sdp.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

namespace {

void Require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    CServiceSDP codec;
    CStreamParam param("service");
    const int result = codec.DecodeT28181TalkSDP(text, &param);
    Require(result >= 0 && result <= 2 && param.m_strServiceID == "service" && param.m_strSessionID.empty());
    Require(param.m_nSrcRtpVideoPort == 0 && param.m_nSrcTransProtocol <= RTP_OVER_TCP);

    CStreamParam block;
    unsigned int media = SDP_MEDIA_NONE;
    int length = 0;
    const int blockResult = codec.DecodeSingleTalkMedia(text, media, &block, length);
    const std::string read = text.substr(0, text.find('\0'));
    Require(length >= 0 && static_cast<std::size_t>(length) <= read.size() && media <= SDP_MEDIA_AUDIO);
    Require(length == 0 || read.compare(static_cast<std::size_t>(length) - 2, 2, "\r\n") == 0);
    Require(blockResult == 0 || block.m_nSrcRtpAudioPort == 0);
    bool sendOnly = false;
    codec.DecodeAttributeEx(text, media, &block, sendOnly);
    return 0;
}
