#include "gateway/requests/gateway_work.h"

#include "base/json_io.h"
#include "base/log.h"
#include "bp/session.h"
#include "gateway/messages/answer.h"
#include "gateway/messages/request_body.h"
#include "gateway/requests/gateway_context.h"

namespace gvx {

namespace {

constexpr unsigned int kVideoClockRate = 90000;
constexpr int kMetadataPayload = 107;

int Refuse(const BP::CCmd& cmd, const std::string& device, const std::string& serviceID, int code,
           const std::string& reason) {
    GVX_LOG_ERR_CODE("Stream", code, "cmd[0x%04x] %s [dev:%s, stream:%s]", cmd.GetReqID(), reason.c_str(),
                     device.c_str(), serviceID.c_str());
    Json::Value body(Json::objectValue);
    body["DevCode"] = device;
    body["ServiceID"] = serviceID;
    RefuseJson(cmd, std::move(body), code, reason);
    return code;
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
    body["StreamType"] = static_cast<int>(stream.Request().streamType);
    body["Protocol"] = static_cast<int>(stream.Request().protocol);
    body["SrcIP"] = stream.SourceIp();
    body["SrcVideoPort"] = stream.SourceVideoPort();
    body["SrcAudioPort"] = stream.SourceAudioPort();
    body["VideoFormat"] = stream.VideoFormat();
    body["VideoPayload"] = stream.VideoPayload();
    body["AudioFormat"] = stream.AudioFormat();
    body["AudioPayload"] = stream.AudioPayload();
    body["SrcMetadataPort"] = stream.SourceMetadataPort();
    body["MetadataPayload"] = stream.SendsMetadata() ? kMetadataPayload : 0;
    body["ClockRate"] = kVideoClockRate;
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
    body["Dropped"] = Json::UInt64(statistics.ullDroppedPackets);
    body["Bytes"] = Json::UInt64(statistics.ullBytes);
}

// The device and the stream that a request names. 0, or the code to refuse with.
int FindStream(GatewayContext& context, const std::string& code, const std::string& serviceID, Device*& device,
               LiveStream*& stream) {
    device = context.devices.FindHere(code);
    if (device == nullptr) {
        return ZVS_GVX_DEV_NOT_EXIST;
    }
    stream = device->FindStream(serviceID);
    return stream == nullptr ? ZVS_GVX_STREAM_NOT_EXIST : ZVS_SUCCEED;
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

// Reserves the identifier in the whole gateway, then starts the stream. 0, or a code with a sentence.
int OpenStream(GatewayContext& context, Device& device, const StreamRequest& request, LiveStream*& stream,
               std::string& reason) {
    if (!context.devices.ReserveStream(request.serviceID, device.Code())) {
        reason = ReasonOf(ZVS_GVX_STREAM_EXIST);
        return ZVS_GVX_STREAM_EXIST;
    }
    StreamReservation reservation(context.devices, request.serviceID);
    const int code = device.StartStream(request, stream, reason);
    if (code == ZVS_SUCCEED) {
        reservation.Keep();
    }
    return code;
}

int CloseStream(GatewayContext& context, Device& device, const std::string& serviceID,
                StreamStatistics& statistics) {
    const StreamReservation ending(context.devices, serviceID);
    return device.StopStream(serviceID, statistics);
}

// The stream that a request names by its ServiceID.
struct NamedStream {
    std::string serviceID;
    Device* device = nullptr;
    LiveStream* stream = nullptr;
};

int ReadNamedStream(GatewayContext& context, const std::string& code, const BP::CCmd& cmd, NamedStream& named,
                    std::string& reason) {
    Json::Value body;
    if (!ReadJsonObject(cmd, body)) {
        reason = "There is no JSON body.";
        return ZVS_PARA_INVALID;
    }
    named.serviceID = JsonText(body, "ServiceID");
    const int result = FindStream(context, code, named.serviceID, named.device, named.stream);
    if (result != ZVS_SUCCEED) {
        reason = ReasonOf(result);
    }
    return result;
}

}  // namespace

int StartStream(GatewayContext& context, BP::CGvxSessionBase& session, const BP::CCmd& cmd) {
    const std::string code = session.GetRespDevID();
    Json::Value body;
    StreamRequest request;
    std::string reason = "There is no JSON body.";
    if (!ReadJsonObject(cmd, body) || !ReadStreamRequest(body, request, reason)) {
        return Refuse(cmd, code, request.serviceID, ZVS_PARA_INVALID, reason);
    }
    Device* device = context.devices.FindHere(code);
    if (device == nullptr) {
        return Refuse(cmd, code, request.serviceID, ZVS_GVX_DEV_NOT_EXIST, ReasonOf(ZVS_GVX_DEV_NOT_EXIST));
    }
    LiveStream* stream = nullptr;
    const int result = OpenStream(context, *device, request, stream, reason);
    if (result != ZVS_SUCCEED) {
        return Refuse(cmd, code, request.serviceID, result, reason);
    }
    AnswerJson(cmd, StartedBody(*device, *stream), ZVS_SUCCEED);
    stream->LetFlow();
    GVX_LOG_INFO("Start stream", "[dev:%s, lens:%s, stream:%s]", code.c_str(), stream->Lens().lensCode.c_str(),
                 request.serviceID.c_str());
    return ZVS_SUCCEED;
}

int StopStream(GatewayContext& context, BP::CGvxSessionBase& session, const BP::CCmd& cmd) {
    const std::string code = session.GetRespDevID();
    NamedStream named;
    std::string reason;
    int result = ReadNamedStream(context, code, cmd, named, reason);
    if (result != ZVS_SUCCEED) {
        return Refuse(cmd, code, named.serviceID, result, reason);
    }
    Json::Value answer = Identity(code, *named.stream);
    StreamStatistics statistics;
    result = CloseStream(context, *named.device, named.serviceID, statistics);
    AddStatistics(answer, statistics);
    if (result != ZVS_SUCCEED) {
        RefuseJson(cmd, std::move(answer), result,
                   "The plug-in did not stop the stream cleanly. " + ReasonOf(result));
    } else {
        AnswerJson(cmd, answer, result);
    }
    GVX_LOG_INFO("Stop stream", "result %d. [dev:%s, stream:%s]", result, code.c_str(),
                 named.serviceID.c_str());
    return result;
}

int GetKeyFrame(GatewayContext& context, BP::CGvxSessionBase& session, const BP::CCmd& cmd) {
    const std::string code = session.GetRespDevID();
    NamedStream named;
    std::string reason;
    int result = ReadNamedStream(context, code, cmd, named, reason);
    if (result != ZVS_SUCCEED) {
        return Refuse(cmd, code, named.serviceID, result, reason);
    }
    result = named.stream->RequestKeyframe();
    if (result != ZVS_SUCCEED) {
        return Refuse(cmd, code, named.serviceID, result, ReasonOf(result));
    }
    AnswerJson(cmd, Identity(code, *named.stream), ZVS_SUCCEED);
    return ZVS_SUCCEED;
}

}  // namespace gvx
