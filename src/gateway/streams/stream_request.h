#pragma once

#include "gateway/messages/answer.h"
#include "gvx_common/records/media_types.h"
#include "gvx_common/records/stream_param.h"

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
    int service = 0;  // a ZVS_SERVICE_TYPE; any other value is live view
    STREAM_TYPE_EX streamType = STREAM_TYPE_REAL_MAIN;
    TRANS_PROTOCOL protocol = RTP_OVER_UDP;
    std::uint32_t dstIp = 0;  // host order
    std::uint16_t dstVideoPort = 0;
    std::uint16_t dstAudioPort = 0;     // 0: no audio over UDP
    std::uint16_t dstMetadataPort = 0;  // UDP only
    bool audio = true;
    bool metadata = false;
    bool extension = false;
    std::string contentID;  // of a recording; empty: whatever lies in the range
    std::string startTime;  // of a recording, UTC, "YYYYMMDDhhmmss"
    std::string endTime;
    std::string askedBy;  // the link that has brought the request

    // Sound alone, of which the platform's comes in.
    bool IsVoice() const { return service == SERVICE_TYPE_AUDIO_CALL || service == SERVICE_TYPE_AUDIO_BROADCAST; }
    bool IsRecording() const { return service == SERVICE_TYPE_PU_PLAYBACK || service == SERVICE_TYPE_PU_DOWNLOAD; }
};

// Reads the request (docs/nss-messages.md). ZVS_PARA_INVALID for one that is not allowed. Any thread.
Result ReadStreamRequest(const Json::Value& body, StreamRequest& request);

}  // namespace gvx
