#pragma once

#include "gateway/messages/answer.h"
#include "gvx_common/records/media_types.h"

#include <cstdint>
#include <string>

namespace Json {
class Value;
}

namespace gvx {

// What NSS_START_STREAM_REQ asks for.
struct StreamRequest {
    std::string lensCode;  // empty: the device's first lens
    std::string serviceID;
    STREAM_TYPE_EX streamType = STREAM_TYPE_REAL_MAIN;
    TRANS_PROTOCOL protocol = RTP_OVER_UDP;
    std::uint32_t dstIp = 0;  // host order
    std::uint16_t dstVideoPort = 0;
    std::uint16_t dstAudioPort = 0;     // 0: no audio over UDP
    std::uint16_t dstMetadataPort = 0;  // UDP only
    bool audio = true;
    bool metadata = false;
    bool extension = false;
};

// Reads the request (docs/nss-messages.md). ZVS_PARA_INVALID for one that is not allowed. Any thread.
Result ReadStreamRequest(const Json::Value& body, StreamRequest& request);

}  // namespace gvx
