#include "gateway/requests/snapshot_work.h"

#include "base/fixed_text.h"
#include "base/json_io.h"
#include "base/log.h"
#include "bp/session.h"
#include "gateway/messages/answer.h"
#include "gateway/messages/request_body.h"
#include "gateway/requests/gateway_context.h"

namespace gvx {

namespace {

constexpr long long kMostPictures = 10;
constexpr long long kLongestInterval = 60000;

Result ReadSnapshotRequest(const Json::Value& body, PU_SNAP_CONF_REQ& request) {
    const long long number = JsonInt(body, "SnapNum", 1);
    const long long interval = JsonInt(body, "SnapInterval", 0);
    const long long type = JsonInt(body, "SnapType", SNAP_TYPE_MANUAL);
    const long long session = JsonInt(body, "SessionID", 0);
    if (number < 1 || number > kMostPictures) {
        return {ZVS_PARA_INVALID, "SnapNum is not one of 1 to 10."};
    }
    if (interval < 0 || interval > kLongestInterval) {
        return {ZVS_PARA_INVALID, "SnapInterval is not one of 0 to 60000."};
    }
    if (type < SNAP_TYPE_NONE || type > SNAP_TYPE_ALARM || session < 0) {
        return {ZVS_PARA_INVALID, "SnapType is not one of 0 to 3, or SessionID is below 0."};
    }
    request.nSnapNum = static_cast<std::uint32_t>(number);
    request.nSnapInterval = static_cast<std::uint32_t>(interval);
    request.bIsUpload = JsonBool(body, "Upload", true);
    request.sessionId = static_cast<std::uint64_t>(session);
    request.enSnapType = static_cast<SnapType>(type);
    return {};
}

// The device that a response is about, with its body; null when there is none of them.
Device* DeviceOfResponse(GatewayContext& context, const BP::CCmd& cmd, Json::Value& body) {
    Device* const device = ReadJsonObject(cmd, body) ? context.devices.FindHere(JsonText(body, "DevCode")) : nullptr;
    if (device == nullptr) {
        GVX_LOG_WARN("Snapshot", "cmd[0x%04x] names no device that is there.", cmd.GetReqID());
    }
    return device;
}

}  // namespace

int TakeSnapshot(GatewayContext& context, BP::CGvxSessionBase& session, const BP::CCmd& cmd) {
    const std::string code = session.GetRespDevID();
    Json::Value body;
    PU_SNAP_CONF_REQ request{};
    Result result = ReadJsonObject(cmd, body) ? ReadSnapshotRequest(body, request)
                                              : Result{ZVS_PARA_INVALID, "There is no JSON body."};
    Device* const device = context.devices.FindHere(code);
    const std::string lens = JsonText(body, "LensCode");
    if (!result.Failed()) {
        result = device == nullptr ? Failure(ZVS_GVX_DEV_NOT_EXIST) : device->RequestSnapshot(lens, request);
    }
    Json::Value answer(Json::objectValue);
    answer["DevCode"] = code;
    answer["LensCode"] = lens;
    if (result.Failed()) {
        GVX_LOG_ERR_CODE("Snapshot", result.code, "%s [dev:%s, lens:%s]", result.reason.c_str(), code.c_str(),
                         lens.c_str());
        RefuseJson(cmd, std::move(answer), result);
        return result.code;
    }
    answer["LensCode"] = device->FindLens(lens)->code;
    answer["SessionID"] = Json::UInt64(request.sessionId);
    AnswerJson(cmd, answer, ZVS_SUCCEED);
    return ZVS_SUCCEED;
}

int TakeUploadAddress(GatewayContext& context, BP::CGvxSessionBase& /*session*/, const BP::CCmd& cmd) {
    Json::Value body;
    Device* const device = DeviceOfResponse(context, cmd, body);
    if (device == nullptr) {
        return ZVS_GVX_DEV_NOT_EXIST;
    }
    PU_UPLOAD_IMAGE_RSP address;
    address.strLensCode = JsonText(body, "LensCode");
    address.strUrl = JsonText(body, "URL");
    address.strContentID = JsonText(body, "ContentID");
    address.ullSessionID = static_cast<std::uint64_t>(JsonInt(body, "SessionID", 0));
    address.eSnapType = static_cast<SnapType>(JsonInt(body, "SnapType", SNAP_TYPE_NONE));
    address.nResult = static_cast<std::int32_t>(ResponseCode(cmd).value_or(ZVS_FAIL));
    // An address that is none is no refusal: the platform hears that the picture is lost.
    const bool isLost = address.nResult == 0 && address.strUrl.empty();
    ADAPTER_COMMON_MESSAGE lost{};
    lost.ExceptionType = ADAPTER_REPORT_PICTURE_LOST;
    lost.ulIdentifyID = address.ullSessionID;
    lost.enSnapType = address.eSnapType;
    const bool fits = PutText(lost.chSubDevId, address.strLensCode) && PutText(lost.stContentId, address.strContentID);
    if (isLost) {
        GVX_LOG_ERR_CODE("Snapshot", ZVS_PARA_INVALID, "The answer has no URL, picture '%s' is lost. [dev:%s, lens:%s]",
                         address.strContentID.c_str(), device->Code().c_str(), address.strLensCode.c_str());
        address.nResult = ZVS_PARA_INVALID;
    }
    device->TakeUploadAddress(std::move(address));
    if (isLost && fits) {
        device->TakeReport(lost);
    }
    return ZVS_SUCCEED;
}

int TakeUploadEnd(GatewayContext& context, BP::CGvxSessionBase& /*session*/, const BP::CCmd& cmd) {
    Json::Value body;
    Device* const device = DeviceOfResponse(context, cmd, body);
    if (device == nullptr) {
        return ZVS_GVX_DEV_NOT_EXIST;
    }
    PU_UPLOAD_IMAGE_COMP_REQ end;
    end.strContentID = JsonText(body, "ContentID");
    end.ullSessionID = static_cast<std::uint64_t>(JsonInt(body, "SessionID", 0));
    end.nResult = static_cast<std::int32_t>(ResponseCode(cmd).value_or(ZVS_FAIL));
    end.ullBytes = static_cast<std::uint64_t>(JsonInt(body, "Bytes", 0));
    device->TakeUploadEnd(JsonText(body, "LensCode"), std::move(end));
    return ZVS_SUCCEED;
}

}  // namespace gvx
