#include "gateway/requests/operation_calls.h"

#include "base/fixed_text.h"
#include "base/json_io.h"

#include <utility>

namespace gvx {
namespace {

std::list<CExtDevInfo> ListOf(EXT_DEVICE_MAP& map) {
    std::list<CExtDevInfo> list;
    for (auto& entry : map) {
        list.push_back(std::move(entry.second));
    }
    return list;
}

EXT_DEVICE_P_MAP MapOf(std::list<CExtDevInfo>& list) {
    EXT_DEVICE_P_MAP map;
    for (CExtDevInfo& device : list) {
        map[device.strCode] = &device;
    }
    return map;
}

// The line that a JSON writer ends a text with is no part of a message.
std::string OneLineJson(const Json::Value& value) {
    std::string text = WriteJson(value);
    while (!text.empty() && text.back() == '\n') {
        text.pop_back();
    }
    return text;
}

}  // namespace

int ChangeDevice(CAdapterDevBase& device, const DeviceChange& change) {
    if (!change.strIP.empty()) {
        device.SetIP(change.strIP);
    }
    if (change.usPort != 0) {
        device.SetPort(change.usPort);
    }
    if (!change.strUserName.empty()) {
        device.SetUserName(change.strUserName);
    }
    if (!change.strPassword.empty()) {
        device.SetPassword(change.strPassword);
        device.SetDevPasswd(change.strPassword);
    }
    return device.ResetLogin();
}

int ReadAbility(CAdapterDevBase& device, const AbilityQuestion& question, AbilityAnswer& answer) {
    if (question.eKind == ABILITY_OWN_WORDS) {
        return device.GetJsonDeivceAbility(answer.ownWords);
    }
    if (question.eKind == ABILITY_OF_MASTER_SLAVE) {
        return device.GetMasterSlaveChannelInfo(answer.ability);
    }
    if (question.strLensCode.empty()) {
        return device.GetDeviceAbility(answer.ability);
    }
    LENS_ABILITY_INFO lens;
    lens.strLensCode = question.strLensCode;
    const int code = device.GetSubDeviceAbility(lens);
    answer.ability.eDevFormType = device.GetDevFromType();
    answer.ability.strModel = device.GetModelType();
    answer.ability.channels.push_back(lens.channel);
    return code;
}

int SendToDevice(CAdapterDevBase& device, const JsonMessage& message) {
    std::string body = OneLineJson(message.body);
    return device.SendJsonMessage2IPC(body.data(), message.strMethod);
}

int SendToLens(CAdapterLensBase& lens, const JsonMessage& message, JsonAnswer& answer) {
    std::string text;
    const int code = lens.HandleSendJsonMessage(message.strMethod, OneLineJson(message.body), text);
    if (!ParseJson(text.data(), text.size(), answer.body, nullptr)) {
        answer.body = text;
    }
    return code;
}

int ListExternDevices(CAdapterDevBase& device, ExternDevices& devices) {
    EXT_DEVICE_MAP cameras;
    EXT_DEVICE_MAP inputs;
    EXT_DEVICE_MAP outputs;
    const int code = device.GetExternDevList(cameras, inputs, outputs);
    devices.cameras = ListOf(cameras);
    devices.alarmInputs = ListOf(inputs);
    devices.alarmOutputs = ListOf(outputs);
    return code;
}

int SetExternDevices(CAdapterDevBase& device, ExternDevices& devices) {
    EXT_DEVICE_P_MAP cameras = MapOf(devices.cameras);
    EXT_DEVICE_P_MAP inputs = MapOf(devices.alarmInputs);
    EXT_DEVICE_P_MAP outputs = MapOf(devices.alarmOutputs);
    return device.SetExternDevList(cameras, inputs, outputs);
}

int AddExternDevices(CAdapterDevBase& device, ExternDevices& devices) {
    EXT_DEVICE_P_MAP cameras = MapOf(devices.cameras);
    EXT_DEVICE_P_MAP inputs = MapOf(devices.alarmInputs);
    EXT_DEVICE_P_MAP outputs = MapOf(devices.alarmOutputs);
    return device.AddExternDevList(cameras, inputs, outputs);
}

int SetGuard(CAdapterDevBase& device, CAdapterLensBase* lens, const GuardArguments& guard) {
    const bool ofDevice = guard.strLensCode.empty() || lens == nullptr;
    if (guard.eKind == GUARD_ALARMS) {
        return ofDevice ? device.SetAlarmGuard(guard.bEnable) : lens->SetAlarmGuard(guard.bEnable);
    }
    return lens == nullptr ? ZVS_GVX_LENS_NOT_EXIST : lens->SetPuGuardState(guard.bEnable ? PU_GUARD_ON : PU_GUARD_OFF);
}

int Locate(CAdapterDevBase& device, const LocateArguments& place, LocateAnswer& answer) {
    if (place.eKind == LOCATE_AREA) {
        PU_NET_IN_MSGROUP_RECTLOCATE_INFO in{place.uiChannel, place.strSlaveCode, place.stArea};
        PU_NET_OUT_MSGROUP_RECTLOCATE_INFO out;
        const int code = device.SetSubrackLinkageParam(in, out);
        answer = {out.dPan, out.dTilt, out.dZoom};
        return code;
    }
    PU_NET_IN_MSGROUP_LOCATE_INFO in{place.uiChannel, place.strSlaveCode, place.stPoint};
    PU_NET_OUT_MSGROUP_LOCATE_INTO out;
    const int code = device.SetClickLinkageParam(in, out);
    answer = {out.dPan, out.dTilt, out.dZoom};
    return code;
}

int RunFunction(CAdapterLensBase& lens, FunctionArguments& function, MASTER_SLAVE_CALIBRATION_STATUS_PARA& status) {
    switch (function.eFunction) {
        case FUNCTION_START_CALIBRATION:
            return lens.HandleStartCalibration(true);
        case FUNCTION_STOP_CALIBRATION:
            return lens.HandleStartCalibration(false);
        case FUNCTION_CALIBRATION_STATUS:
            return lens.HandleGetMasterSlaveCalibrationStatus(status);
        case FUNCTION_LOCATE:
            break;
    }
    return lens.HandleStartMasterSlaveLocate(function.locate);
}

int ControlPtz(CAdapterLensBase& lens, const MSG_PTZ_CTRL_REQ& control) {
    switch (control.eCommand) {
        case PTZ_ABSOLUTE_MOVE:
            return lens.HandleAbsoluteMove(control);
        case PTZ_DIRECTION_MOVE:
            return lens.HandleDiectionMove(control);
        default:
            return lens.PtzControlReq(control);
    }
}

int SetAutoscanBoundary(CAdapterLensBase& lens, const AutoscanBoundary& boundary) {
    MSG_PTZ_CTRL_REQ control;
    control.eCommand = boundary.eSide == AUTOSCAN_LEFT ? PTZ_SET_AUTOSCAN_LEFT : PTZ_SET_AUTOSCAN_RIGHT;
    return lens.PtzControlReq(control);
}

int SetRecordPlan(CAdapterLensBase& lens, const RecordPlan& plan) {
    PU_RECORD_PLAN_MAP map;
    for (const _PU_Guard_Time& span : plan.spans) {
        map.spans[span.uiWeekDay].push_back(span);
    }
    return lens.SetRecordPlan(plan.plan, map);
}

int GetRecordPlan(CAdapterLensBase& lens, RecordPlan& plan) {
    PU_RECORD_PLAN_MAP map;
    const int code = lens.GetRecordPlan(plan.plan, map);
    for (const auto& day : map.spans) {
        for (_PU_Guard_Time span : day.second) {
            span.uiWeekDay = day.first;
            plan.spans.push_back(std::move(span));
        }
    }
    return code;
}

int SetRecordStream(CAdapterLensBase& lens, const RecordStream& stream) {
    PU_RECORD_STREAM_STRU record{};
    record.nStreamType = stream.nStreamType;
    if (!PutText(record.chSubDevId, lens.GetSubDevID())) {
        return ZVS_PARA_INVALID;
    }
    return lens.SetPuRecordStream(record);
}

}  // namespace gvx
