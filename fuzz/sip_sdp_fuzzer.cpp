// Session descriptions of SIP peers. Nothing but what an answer may set is set, and text behind the last end of line
// does not matter.

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

CStreamParam Decode(const std::string& text, int& result) {
    CStreamParam param("service");
    param.m_nDstTransProtocol = RTP_OVER_TCP;
    param.m_nRecvStreamMode = 1;
    result = CServiceSDP().DecodeSDP(text, &param);
    return param;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    int result = 0;
    const CStreamParam param = Decode(text, result);
    Require(result >= 0 && result <= 2 && (result == 2) == (size == 0 || data[0] == 0));
    Require(param.m_strServiceID == "service" && param.m_nDstVideoIP == 0 && param.m_nDstVideoPort == 0);
    Require(param.m_nSrcTransProtocol == 0 || param.m_nSrcTransProtocol == RTP_OVER_UDP ||
            param.m_nSrcTransProtocol == RTP_OVER_TCP);
    Require(param.m_strSessionID.size() < 1024 && param.m_strSessionID.find_first_of(" \n") == std::string::npos);
    Require(param.m_nSrcRtpVideoIp == param.m_nSrcRtpAudioIp);

    const std::string read = text.substr(0, text.find('\0'));
    int again = 0;
    const CStreamParam lines = Decode(read.substr(0, read.rfind('\n') + 1), again);
    Require(read.find('\n') == std::string::npos || again == result);
    Require(lines.m_nSrcRtpVideoPort == param.m_nSrcRtpVideoPort && lines.m_strSessionID == param.m_strSessionID &&
            lines.m_nSrcRtpVideoIp == param.m_nSrcRtpVideoIp && lines.m_nVideoPayLoadType == param.m_nVideoPayLoadType);
    return 0;
}
