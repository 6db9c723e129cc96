#include "gateway/streams/stream_request.h"

#include "base/json_io.h"
#include "base/zvs_error.h"
#include "gateway/messages/request_body.h"

#include <algorithm>
#include <iterator>
#include <string_view>

#include <arpa/inet.h>

namespace gvx {

namespace {

Result Invalid(const char* reason) {
    return {ZVS_PARA_INVALID, reason};
}

// The stream types of a service, from first to last; the first is the usual one.
struct ServiceRow {
    int service;
    STREAM_TYPE_EX first;
    STREAM_TYPE_EX last;
    const char* fault;
};
constexpr ServiceRow kServices[] = {
    {1, STREAM_TYPE_REAL_MAIN, STREAM_TYPE_REAL_SUB2, "StreamType is not 0, 1 or 2."},
    {SERVICE_TYPE_AUDIO_CALL, STREAM_AUDIO_TALKBACK, STREAM_AUDIO_TALKBACK, "StreamType of a talk is not 4."},
    {SERVICE_TYPE_AUDIO_BROADCAST, STREAM_AUDIO_BROADCAST, STREAM_AUDIO_BROADCAST,
     "StreamType of a broadcast is not 10."},
    {SERVICE_TYPE_PU_DOWNLOAD, STREAM_TYPE_PLAYBACK1, STREAM_TYPE_PLAYBACK4,
     "StreamType of a recording is not 5 to 8."},
    {SERVICE_TYPE_PU_PLAYBACK, STREAM_TYPE_PLAYBACK1, STREAM_TYPE_PLAYBACK4,
     "StreamType of a recording is not 5 to 8."},
};

bool IsUtcTime(const std::string& text) {
    return text.size() == std::string_view("YYYYMMDDhhmmss").size() &&
           text.find_first_not_of("0123456789") == std::string::npos;
}

Result ReadService(const Json::Value& body, StreamRequest& request) {
    const long long service = JsonInt(body, "ServiceType", kServices[0].service);
    const auto row = std::find_if(std::begin(kServices), std::end(kServices),
                                  [service](const ServiceRow& candidate) { return candidate.service == service; });
    if (row == std::end(kServices)) {
        return Invalid("ServiceType is not 1, 5, 6, 7 or 8.");
    }
    request.service = row->service;
    const long long type = JsonInt(body, "StreamType", row->first);
    if (type < row->first || type > row->last) {
        return Invalid(row->fault);
    }
    request.streamType = static_cast<STREAM_TYPE_EX>(type);
    if (!request.IsRecording()) {
        return {};
    }
    request.contentID = JsonText(body, "ContentID");
    request.startTime = JsonText(body, "StartTime");
    request.endTime = JsonText(body, "EndTime");
    if (!IsUtcTime(request.startTime) || !IsUtcTime(request.endTime) || request.startTime >= request.endTime) {
        return Invalid("StartTime and EndTime are no range of UTC times, YYYYMMDDhhmmss.");
    }
    return {};
}

Result ReadDestination(const Json::Value& body, StreamRequest& request) {
    in_addr address{};
    if (inet_pton(AF_INET, JsonText(body, "DstIP").c_str(), &address) != 1 || address.s_addr == 0) {
        return Invalid("DstIP is missing or no IPv4 address.");
    }
    request.dstIp = ntohl(address.s_addr);
    const long long video = JsonInt(body, "DstVideoPort", 0);
    if (!request.IsVoice() && (video < 1 || video > 65535)) {
        return Invalid("DstVideoPort is not one of 1 to 65535.");
    }
    const long long audio = JsonInt(body, "DstAudioPort", 0);
    if (audio < (request.IsVoice() ? 1 : 0) || audio > 65535) {
        return Invalid(request.IsVoice() ? "DstAudioPort is not one of 1 to 65535."
                                         : "DstAudioPort is not one of 0 to 65535.");
    }
    const long long metadata = JsonInt(body, "DstMetadataPort", 0);
    const bool metadataNeedsPort = request.metadata && request.protocol == RTP_OVER_UDP;
    if (metadata < (metadataNeedsPort ? 1 : 0) || metadata > 65535) {
        return Invalid(metadataNeedsPort ? "DstMetadataPort is not one of 1 to 65535."
                                         : "DstMetadataPort is not one of 0 to 65535.");
    }
    request.dstMetadataPort = static_cast<std::uint16_t>(metadata);
    request.dstVideoPort = static_cast<std::uint16_t>(request.IsVoice() ? 0 : video);
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
    if (Result read = ReadService(body, request); read.Failed()) {
        return read;
    }
    const long long protocol = JsonInt(body, "Protocol", RTP_OVER_UDP);
    if (protocol != RTP_OVER_UDP && protocol != RTP_OVER_TCP) {
        return Invalid("Protocol is not 1 or 2.");
    }
    request.protocol = static_cast<TRANS_PROTOCOL>(protocol);
    request.audio = JsonBool(body, "Audio", true);
    request.metadata = !request.IsVoice() && JsonBool(body, "Metadata", false);
    request.extension = JsonBool(body, "Extension", false);
    return ReadDestination(body, request);
}

}  // namespace gvx
