#include "gateway/streams/stream_request.h"

#include "base/json_io.h"
#include "base/zvs_error.h"
#include "gateway/messages/request_body.h"

#include <arpa/inet.h>

namespace gvx {

namespace {

Result Invalid(const char* reason) {
    return {ZVS_PARA_INVALID, reason};
}

Result ReadDestination(const Json::Value& body, StreamRequest& request) {
    in_addr address{};
    if (inet_pton(AF_INET, JsonText(body, "DstIP").c_str(), &address) != 1 || address.s_addr == 0) {
        return Invalid("DstIP is missing or no IPv4 address.");
    }
    request.dstIp = ntohl(address.s_addr);
    const long long video = JsonInt(body, "DstVideoPort", 0);
    if (video < 1 || video > 65535) {
        return Invalid("DstVideoPort is not one of 1 to 65535.");
    }
    const long long audio = JsonInt(body, "DstAudioPort", 0);
    if (audio < 0 || audio > 65535) {
        return Invalid("DstAudioPort is not one of 0 to 65535.");
    }
    const long long metadata = JsonInt(body, "DstMetadataPort", 0);
    const bool metadataNeedsPort = request.metadata && request.protocol == RTP_OVER_UDP;
    if (metadata < (metadataNeedsPort ? 1 : 0) || metadata > 65535) {
        return Invalid(metadataNeedsPort ? "DstMetadataPort is not one of 1 to 65535."
                                         : "DstMetadataPort is not one of 0 to 65535.");
    }
    request.dstMetadataPort = static_cast<std::uint16_t>(metadata);
    request.dstVideoPort = static_cast<std::uint16_t>(video);
    request.dstAudioPort = static_cast<std::uint16_t>(audio);
    return {};
}

}  // namespace

Result ReadStreamRequest(const Json::Value& body, StreamRequest& request) {
    request.serviceID = JsonText(body, "ServiceID");
    if (!IsCode(request.serviceID)) {
        return Invalid("ServiceID is missing or no identifier of 1 to 32 characters.");
    }
    request.lensCode = JsonText(body, "LensCode");
    const long long type = JsonInt(body, "StreamType", STREAM_TYPE_REAL_MAIN);
    if (type < STREAM_TYPE_REAL_MAIN || type > STREAM_TYPE_REAL_SUB2) {
        return Invalid("StreamType is not 0, 1 or 2.");
    }
    const long long protocol = JsonInt(body, "Protocol", RTP_OVER_UDP);
    if (protocol != RTP_OVER_UDP && protocol != RTP_OVER_TCP) {
        return Invalid("Protocol is not 1 or 2.");
    }
    request.streamType = static_cast<STREAM_TYPE_EX>(type);
    request.protocol = static_cast<TRANS_PROTOCOL>(protocol);
    request.audio = JsonBool(body, "Audio", true);
    request.metadata = JsonBool(body, "Metadata", false);
    request.extension = JsonBool(body, "Extension", false);
    return ReadDestination(body, request);
}

}  // namespace gvx
