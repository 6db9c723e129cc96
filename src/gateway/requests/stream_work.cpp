#include "gateway/requests/stream_work.h"

#include "base/json_io.h"
#include "base/log.h"
#include "bp/session.h"
#include "gateway/messages/answer.h"
#include "gateway/messages/request_body.h"
#include "gateway/requests/gateway_context.h"
#include "gvx_common/records/rtp_payload.h"

namespace gvx {

namespace {

constexpr unsigned int kVideoClockRate = 90000;
constexpr unsigned int kVoiceClockRate = 8000;

int Refuse(const BP::CCmd& cmd, const std::string& device, const std::string& serviceID, const Result& result) {
    GVX_LOG_ERR_CODE("Stream", result.code, "cmd[0x%04x] %s [dev:%s, stream:%s]", cmd.GetReqID(), result.reason.c_str(),
                     device.c_str(), serviceID.c_str());
    Json::Value body(Json::objectValue);
    body["DevCode"] = device;
    body["ServiceID"] = serviceID;
    RefuseJson(cmd, std::move(body), result);
    return result.code;
}

Json::Value Identity(const std::string& device, const LiveStream& stream) {
    Json::Value body(Json::objectValue);
    body["DevCode"] = device;
    body["LensCode"] = stream.Lens().lensCode;
    body["ServiceID"] = stream.Request().serviceID;
    return body;
}

Json::Value StartedBody(const Device& device, const LiveStream& stream) {
    Json::Value body = Identity(device.Code(), stream);
    body["ServiceType"] = stream.Request().service;
    body["StreamType"] = static_cast<int>(stream.Request().streamType);
    body["Protocol"] = static_cast<int>(stream.Request().protocol);
    body["SrcIP"] = stream.SourceIp();
    body["SrcVideoPort"] = stream.Request().IsVoice() ? 0 : stream.SourceVideoPort();
    body["SrcAudioPort"] = stream.SourceAudioPort();
    body["VideoFormat"] = stream.VideoFormat();
    body["VideoPayload"] = stream.VideoPayload();
    body["AudioFormat"] = stream.AudioFormat();
    body["AudioPayload"] = stream.AudioPayload();
    body["SrcMetadataPort"] = stream.SourceMetadataPort();
    body["MetadataPayload"] = stream.SendsMetadata() ? kPayloadMetadata : 0;
    body["ClockRate"] = stream.Request().IsVoice() ? kVoiceClockRate : kVideoClockRate;
    if (stream.Request().IsVoice()) {
        body["VoicePort"] = stream.VoicePort();
    }
    const Device::Lens* lens = device.FindLens(stream.Lens().lensCode);
    body["Width"] = lens == nullptr ? 0 : lens->ability.nWidth;
    body["Height"] = lens == nullptr ? 0 : lens->ability.nHeight;
    return body;
}

void AddStatistics(Json::Value& body, const StreamStatistics& statistics) {
    body["VideoFrames"] = Json::UInt64(statistics.ullVideoFrames);
    body["VideoPackets"] = Json::UInt64(statistics.ullVideoPackets);
    body["AudioPackets"] = Json::UInt64(statistics.ullAudioPackets);
    body["MetadataPackets"] = Json::UInt64(statistics.metadataPackets);
    body["VoiceFrames"] = Json::UInt64(statistics.voiceFrames);
    body["Dropped"] = Json::UInt64(statistics.ullDroppedPackets);
    body["Bytes"] = Json::UInt64(statistics.ullBytes);
}

// Frees a stream's identifier when it goes, unless the stream keeps it.
class StreamReservation {
public:
    StreamReservation(DeviceTable& devices, const std::string& serviceID)
        : m_devices(devices), m_serviceID(serviceID) {}
    ~StreamReservation() {
        if (!m_kept) {
            m_devices.ReleaseStream(m_serviceID);
        }
    }
    StreamReservation(const StreamReservation&) = delete;
    StreamReservation& operator=(const StreamReservation&) = delete;

    void Keep() { m_kept = true; }

private:
    DeviceTable& m_devices;
    const std::string& m_serviceID;
    bool m_kept = false;
};

// Reserves the identifier in the whole gateway, then starts the stream.
Result OpenStream(GatewayContext& context, Device& device, const StreamRequest& request, LiveStream*& stream) {
    if (!context.devices.ReserveStream(request.serviceID, device.Code())) {
        return Failure(ZVS_GVX_STREAM_EXIST);
    }
    StreamReservation reservation(context.devices, request.serviceID);
    Result result = device.StartStream(request, stream);
    if (!result.Failed()) {
        reservation.Keep();
    }
    return result;
}

// The stream that a request names by its ServiceID, and its device; stream is null when the request was refused with
// the code.
struct NamedStream {
    std::string serviceID;
    Device* device = nullptr;
    LiveStream* stream = nullptr;
    int code = ZVS_SUCCEED;
};

NamedStream FindStreamOrRefuse(GatewayContext& context, const std::string& device, const BP::CCmd& cmd) {
    NamedStream named;
    Result result;
    Json::Value body;
    if (!ReadJsonObject(cmd, body)) {
        result = {ZVS_PARA_INVALID, "There is no JSON body."};
    } else {
        named.serviceID = JsonText(body, "ServiceID");
        named.device = context.devices.FindHere(device);
        named.stream = named.device == nullptr ? nullptr : named.device->FindStream(named.serviceID);
        if (named.stream == nullptr) {
            result = Failure(named.device == nullptr ? ZVS_GVX_DEV_NOT_EXIST : ZVS_GVX_STREAM_NOT_EXIST);
        }
    }
    named.code = result.Failed() ? Refuse(cmd, device, named.serviceID, result) : result.code;
    return named;
}

}  // namespace

int StartStream(GatewayContext& context, BP::CGvxSessionBase& session, const BP::CCmd& cmd) {
    const std::string code = session.GetRespDevID();
    Json::Value body;
    StreamRequest request;
    Result result = ReadJsonObject(cmd, body) ? ReadStreamRequest(body, request)
                                              : Result{ZVS_PARA_INVALID, "There is no JSON body."};
    request.askedBy = cmd.GetNetLinkID();
    Device* const device = result.Failed() ? nullptr : context.devices.FindHere(code);
    LiveStream* stream = nullptr;
    if (!result.Failed()) {
        result = device == nullptr ? Failure(ZVS_GVX_DEV_NOT_EXIST) : OpenStream(context, *device, request, stream);
    }
    if (result.Failed()) {
        return Refuse(cmd, code, request.serviceID, result);
    }
    try {
        Json::Value started = StartedBody(*device, *stream);
        if (std::string sdp = stream->SessionDescription(); !sdp.empty()) {
            started["SDP"] = std::move(sdp);
        }
        AnswerJson(cmd, started, ZVS_SUCCEED);
    } catch (const std::exception&) {  // no memory: the request is refused, and nobody will stop the stream
        stream->LetFlow();
        const StreamReservation ending(context.devices, request.serviceID);
        StreamStatistics untold;
        device->StopStream(request.serviceID, untold);
        throw;
    }
    stream->LetFlow();
    GVX_LOG_INFO("Start stream", "[dev:%s, lens:%s, stream:%s]", code.c_str(), stream->Lens().lensCode.c_str(),
                 request.serviceID.c_str());
    return ZVS_SUCCEED;
}

int StopStream(GatewayContext& context, BP::CGvxSessionBase& session, const BP::CCmd& cmd) {
    const std::string code = session.GetRespDevID();
    const NamedStream named = FindStreamOrRefuse(context, code, cmd);
    if (named.stream == nullptr) {
        return named.code;
    }
    Json::Value answer = Identity(code, *named.stream);
    StreamStatistics statistics;
    int result = ZVS_SUCCEED;
    {
        const StreamReservation ending(context.devices, named.serviceID);
        result = named.device->StopStream(named.serviceID, statistics);
    }
    AddStatistics(answer, statistics);
    if (result != ZVS_SUCCEED) {
        RefuseJson(cmd, std::move(answer), Failure(result, "The plug-in did not stop the stream cleanly."));
    } else {
        AnswerJson(cmd, answer, result);
    }
    GVX_LOG_INFO("Stop stream", "result %d. [dev:%s, stream:%s]", result, code.c_str(), named.serviceID.c_str());
    return result;
}

int ControlStream(GatewayContext& context, BP::CGvxSessionBase& session, const BP::CCmd& cmd) {
    const std::string code = session.GetRespDevID();
    const NamedStream named = FindStreamOrRefuse(context, code, cmd);
    if (named.stream == nullptr) {
        return named.code;
    }
    Json::Value body;
    ReadJsonObject(cmd, body);  // it could be read before
    constexpr double kFastest = 16;
    constexpr long long kLastSecond = 366LL * 86400;
    const long long command = JsonInt(body, "Command", -1);
    const long long position = JsonInt(body, "Position", 0);
    STREAM_CONTROL_PARAM_S control;
    Result result;
    if (command < STREAM_CONTROL_PLAY || command > STREAM_CONTROL_SPEED) {
        result = {ZVS_PARA_INVALID, "Command is not 0, 1, 2 or 3."};
    } else if (position < 0 || position > kLastSecond) {
        result = {ZVS_PARA_INVALID, "Position is not one of 0 to 31622400."};
    } else {
        control.eCmd = static_cast<STREAM_CONTROL_CMD>(command);
        control.uiPosition = static_cast<std::uint32_t>(position);
        control.dSpeed = body["Speed"].isNumeric() ? body["Speed"].asDouble() : 1;
        const bool allowed = control.dSpeed != 0 && control.dSpeed >= -kFastest && control.dSpeed <= kFastest;
        result = allowed ? named.stream->Control(control) : Result{ZVS_PARA_INVALID, "Speed is not one of -16 to 16."};
    }
    if (result.Failed()) {
        return Refuse(cmd, code, named.serviceID, result);
    }
    AnswerJson(cmd, Identity(code, *named.stream), ZVS_SUCCEED);
    return ZVS_SUCCEED;
}

int GetKeyFrame(GatewayContext& context, BP::CGvxSessionBase& session, const BP::CCmd& cmd) {
    const std::string code = session.GetRespDevID();
    const NamedStream named = FindStreamOrRefuse(context, code, cmd);
    if (named.stream == nullptr) {
        return named.code;
    }
    const int result = named.stream->RequestKeyframe();
    if (result != ZVS_SUCCEED) {
        return Refuse(cmd, code, named.serviceID, Failure(result));
    }
    AnswerJson(cmd, Identity(code, *named.stream), ZVS_SUCCEED);
    return ZVS_SUCCEED;
}

}  // namespace gvx
