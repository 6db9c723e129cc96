#include "plugin_check/operations.h"

#include "gvx_common/adapter/gvx_adapter_interface.h"
#include "gvx_common/adapter/gvx_adapter_sdk.h"
#include "gvx_common/records/device_config_records.h"
#include "gvx_common/records/guard_records.h"
#include "gvx_common/records/intelligent_records.h"
#include "gvx_common/records/picture_records.h"
#include "gvx_common/records/ptz_records.h"
#include "gvx_common/records/recording_records.h"

#include <tuple>
#include <type_traits>

namespace plugin_check {

namespace {

// The argument of an operation: a record as it is made. The gateway passes no null pointers, so texts are empty ones.
template <typename T>
struct Argument {
    T value{};
};
template <>
struct Argument<const char*> {
    const char* value = "";
};
template <>
struct Argument<char*> {
    char text[1] = {};
    char* value = text;
};
template <>
struct Argument<CExtDevInfo*> {
    CExtDevInfo device;
    CExtDevInfo* value = &device;
};

template <typename Object, typename Result, typename... Arguments>
int CallPlain(Object& object, Result (Object::*operation)(Arguments...)) {
    std::tuple<Argument<std::decay_t<Arguments>>...> arguments;
    return std::apply(
        [&](auto&... argument) {
            if constexpr (std::is_same_v<Result, int>) {
                return (object.*operation)(argument.value...);
            } else {
                (object.*operation)(argument.value...);
                return 0;
            }
        },
        arguments);
}

#define GVX_READS(Class, name)                                                       \
    {                                                                                \
#name, false, [](Class & object) { return CallPlain(object, &Class::name); } \
    }
#define GVX_CHANGES(Class, name)                                                    \
    {                                                                               \
#name, true, [](Class & object) { return CallPlain(object, &Class::name); } \
    }

}  // namespace

const std::vector<PlainOperation<CAdapterSdkBase>>& SdkOperations() {
    static const std::vector<PlainOperation<CAdapterSdkBase>> operations = {
        GVX_CHANGES(CAdapterSdkBase, ModifyListenIp),          GVX_READS(CAdapterSdkBase, ValidateDevice),
        GVX_CHANGES(CAdapterSdkBase, NotifyDevBatch),          GVX_CHANGES(CAdapterSdkBase, EnableSDKSecurityCfg),
        GVX_CHANGES(CAdapterSdkBase, LoadIpWhitelist),         GVX_READS(CAdapterSdkBase, CheckIpInWhitelist),
        GVX_CHANGES(CAdapterSdkBase, setSipStackLogSwitch),    GVX_CHANGES(CAdapterSdkBase, SetSDKLogSwitch),
        GVX_CHANGES(CAdapterSdkBase, OnDiscoveryDeviceFinish), GVX_CHANGES(CAdapterSdkBase, SendLocalProbeMessage),
        GVX_CHANGES(CAdapterSdkBase, SendRemoteProbeMessage),
    };
    return operations;
}

const std::vector<PlainOperation<CAdapterDevBase>>& DeviceOperations() {
    static const std::vector<PlainOperation<CAdapterDevBase>> operations = {
        GVX_READS(CAdapterDevBase, GetSubDeviceAbility),
        GVX_READS(CAdapterDevBase, GetMasterSlaveChannelInfo),
        GVX_CHANGES(CAdapterDevBase, ResetLogin),
        GVX_CHANGES(CAdapterDevBase, ReBoot),
        GVX_CHANGES(CAdapterDevBase, SetTimePara),
        GVX_READS(CAdapterDevBase, GetTimePara),
        GVX_CHANGES(CAdapterDevBase, SetNetPara),
        GVX_READS(CAdapterDevBase, GetNetPara),
        GVX_CHANGES(CAdapterDevBase, Upgrade),
        GVX_READS(CAdapterDevBase, GetSerialInfo),
        GVX_CHANGES(CAdapterDevBase, SetSerialInfo),
        GVX_READS(CAdapterDevBase, SendHeartbeat),
        GVX_CHANGES(CAdapterDevBase, SetAlarmOutParam),
        GVX_READS(CAdapterDevBase, GetAlarmOutParam),
        GVX_CHANGES(CAdapterDevBase, SetManualTraceParam),
        GVX_CHANGES(CAdapterDevBase, SetSubrackLinkageParam),
        GVX_CHANGES(CAdapterDevBase, SetClickLinkageParam),
        GVX_CHANGES(CAdapterDevBase, SetLinkageTrackSwitchParam),
        GVX_CHANGES(CAdapterDevBase, SetManualPosSwitchParam),
        GVX_CHANGES(CAdapterDevBase, DealManualTraceInfo),
        GVX_CHANGES(CAdapterDevBase, DealManualPosInfo),
        GVX_CHANGES(CAdapterDevBase, SetAlarmInParam),
        GVX_READS(CAdapterDevBase, GetAlarmInParam),
        GVX_CHANGES(CAdapterDevBase, SetAlarmOutState),
        GVX_READS(CAdapterDevBase, GetPuLogInfo),
        GVX_CHANGES(CAdapterDevBase, VcuGetUploadImgRsp),
        GVX_CHANGES(CAdapterDevBase, SetAlarmGuard),
        GVX_READS(CAdapterDevBase, getCamGeogPostion),
        GVX_READS(CAdapterDevBase, SendGpsPositionSubscribe),
        GVX_READS(CAdapterDevBase, SendSensorInfoSubscribe),
        GVX_CHANGES(CAdapterDevBase, UnRegistRenewTimer),
        GVX_CHANGES(CAdapterDevBase, SetAlarmLinkagePara),
        GVX_READS(CAdapterDevBase, GetExternDevList),
        GVX_CHANGES(CAdapterDevBase, SetExternDevList),
        GVX_CHANGES(CAdapterDevBase, AddExternDevList),
        GVX_CHANGES(CAdapterDevBase, ModExternDevNotify),
        GVX_CHANGES(CAdapterDevBase, ClearSubDevMap),
        GVX_CHANGES(CAdapterDevBase, DelSubDev),
        GVX_READS(CAdapterDevBase, GetLensIDThroughChannoId),
        GVX_CHANGES(CAdapterDevBase, AddSubDev),
        GVX_CHANGES(CAdapterDevBase, ModPassWord),
        GVX_CHANGES(CAdapterDevBase, ModWebPassWord),
        GVX_CHANGES(CAdapterDevBase, SetDev8021XConf),
        GVX_READS(CAdapterDevBase, GetDev8021XConf),
        GVX_CHANGES(CAdapterDevBase, SetVideoFormat),
        GVX_CHANGES(CAdapterDevBase, SetDevPasswd),
        GVX_CHANGES(CAdapterDevBase, SetDevRegPasswd),
        GVX_CHANGES(CAdapterDevBase, SetRcvPort),
        GVX_CHANGES(CAdapterDevBase, SetUniqueCode),
        GVX_READS(CAdapterDevBase, GetDevCfg),
        GVX_CHANGES(CAdapterDevBase, SetDevCfg),
        GVX_CHANGES(CAdapterDevBase, DevBatchResultNotify),
        GVX_READS(CAdapterDevBase, GetTotalDevCount),
        GVX_CHANGES(CAdapterDevBase, SetLoginStatus),
        GVX_READS(CAdapterDevBase, GetNeedSendDeviceInfo),
        GVX_READS(CAdapterDevBase, IsGetDevServiceAddr),
        GVX_CHANGES(CAdapterDevBase, UpdateLastAlarmTime),
        GVX_CHANGES(CAdapterDevBase, ClearLastAlarmTime),
        GVX_CHANGES(CAdapterDevBase, SetIPCA),
        GVX_CHANGES(CAdapterDevBase, SetLoginHandle),
        GVX_CHANGES(CAdapterDevBase, SetCacheRecord),
        GVX_CHANGES(CAdapterDevBase, DelMultimachineAssistanceIpc),
        GVX_CHANGES(CAdapterDevBase, AddMultimachineAssistanceIpc),
        GVX_CHANGES(CAdapterDevBase, SetVideoChannelRelation),
        GVX_CHANGES(CAdapterDevBase, handleDevStatusChangedNotify),
        GVX_CHANGES(CAdapterDevBase, SynDeviceTime),
        GVX_CHANGES(CAdapterDevBase, InitEnableH265),
        GVX_READS(CAdapterDevBase, FindT28181LensIDFromCatalog),
        GVX_READS(CAdapterDevBase, GetCatalogFromPu),
        GVX_CHANGES(CAdapterDevBase, SendJsonMessage2IPC),
        GVX_READS(CAdapterDevBase, FindDevException),
        GVX_READS(CAdapterDevBase, GetJsonDeivceAbility),
    };
    return operations;
}

const std::vector<PlainOperation<CAdapterLensBase>>& LensOperations() {
    static const std::vector<PlainOperation<CAdapterLensBase>> operations = {
        GVX_READS(CAdapterLensBase, GetAudioParam),
        GVX_CHANGES(CAdapterLensBase, SetAudioParam),
        GVX_CHANGES(CAdapterLensBase, SetVideoMaskParam),
        GVX_CHANGES(CAdapterLensBase, SetVideoMaskParamEx),
        GVX_READS(CAdapterLensBase, GetVideoMaskParam),
        GVX_READS(CAdapterLensBase, GetVideoMaskParamEx),
        GVX_CHANGES(CAdapterLensBase, SetMotionDetectionAlarmParam),
        GVX_READS(CAdapterLensBase, GetMotionDetectionAlarmParam),
        GVX_CHANGES(CAdapterLensBase, SetAudioAlarmParam),
        GVX_READS(CAdapterLensBase, GetAudioAlarmParam),
        GVX_CHANGES(CAdapterLensBase, SetPuGuardState),
        GVX_READS(CAdapterLensBase, GetPuGuardState),
        GVX_READS(CAdapterLensBase, GetOSDParam),
        GVX_CHANGES(CAdapterLensBase, SetOSDParam),
        GVX_CHANGES(CAdapterLensBase, VcuUploadImgCompReq),
        GVX_CHANGES(CAdapterLensBase, VcuUploadImgCompReq),
        GVX_CHANGES(CAdapterLensBase, SetPresetParam),
        GVX_READS(CAdapterLensBase, GetPresetParam),
        GVX_CHANGES(CAdapterLensBase, DelPresetParam),
        GVX_CHANGES(CAdapterLensBase, setDeviceConfigParam),
        GVX_READS(CAdapterLensBase, getDeviceConfigParam),
        GVX_CHANGES(CAdapterLensBase, SetGuardPositionParam),
        GVX_READS(CAdapterLensBase, GetGuardPositionParam),
        GVX_READS(CAdapterLensBase, GetGuardInfoParam),
        GVX_CHANGES(CAdapterLensBase, SetWatermark),
        GVX_CHANGES(CAdapterLensBase, SetPuRecordStream),
        GVX_CHANGES(CAdapterLensBase, SetLayerCode),
        GVX_CHANGES(CAdapterLensBase, setAutoTraceParam),
        GVX_CHANGES(CAdapterLensBase, SetAlarmGuard),
        GVX_CHANGES(CAdapterLensBase, SetCameraStreamParam),
        GVX_READS(CAdapterLensBase, GetCameraStreamParam),
        GVX_CHANGES(CAdapterLensBase, SetImagParam),
        GVX_READS(CAdapterLensBase, GetImagParam),
        GVX_CHANGES(CAdapterLensBase, SetExtImagParam),
        GVX_READS(CAdapterLensBase, GetExtImagParam),
        GVX_CHANGES(CAdapterLensBase, SetRecordPlan),
        GVX_READS(CAdapterLensBase, GetRecordPlan),
        GVX_CHANGES(CAdapterLensBase, SetSnapShotPlan),
        GVX_READS(CAdapterLensBase, GetSnapShotPlan),
        GVX_CHANGES(CAdapterLensBase, StartPuRecord),
        GVX_CHANGES(CAdapterLensBase, StopPuRecord),
        GVX_READS(CAdapterLensBase, GetPuRecordState),
        GVX_CHANGES(CAdapterLensBase, SetIntelligentParam),
        GVX_READS(CAdapterLensBase, GetIntelligentParam),
        GVX_CHANGES(CAdapterLensBase, SetPtzParamReq),
        GVX_READS(CAdapterLensBase, GetPtzParamReq),
        GVX_CHANGES(CAdapterLensBase, PtzControlReq),
        GVX_CHANGES(CAdapterLensBase, SetCruiseTrackReq),
        GVX_READS(CAdapterLensBase, GetCruiseTrackReq),
        GVX_CHANGES(CAdapterLensBase, DelCruiseTrackReq),
        GVX_CHANGES(CAdapterLensBase, HandleAbsoluteMove),
        GVX_CHANGES(CAdapterLensBase, HandleDiectionMove),
        GVX_CHANGES(CAdapterLensBase, SetCameraTamperParam),
        GVX_READS(CAdapterLensBase, GetCameraTamperParam),
        GVX_CHANGES(CAdapterLensBase, SetPuFecParam),
        GVX_READS(CAdapterLensBase, GetPuFecParam),
        GVX_READS(CAdapterLensBase, GetVideoEncodeOptions),
        GVX_READS(CAdapterLensBase, GetPtzAbsPosition),
        GVX_CHANGES(CAdapterLensBase, SetVisualAreaInfoReq),
        GVX_CHANGES(CAdapterLensBase, SetPresetInfo),
        GVX_CHANGES(CAdapterLensBase, SetHomePostionInfo),
        GVX_CHANGES(CAdapterLensBase, setConnectId),
        GVX_CHANGES(CAdapterLensBase, HandleSendJsonMessage),
        GVX_CHANGES(CAdapterLensBase, HandleStartCalibration),
        GVX_READS(CAdapterLensBase, HandleGetMasterSlaveCalibrationStatus),
        GVX_CHANGES(CAdapterLensBase, HandleStartMasterSlaveLocate),
        GVX_READS(CAdapterLensBase, GetVisualAreaBufferInfo),
        GVX_CHANGES(CAdapterLensBase, SetLensChannelId),
        GVX_READS(CAdapterLensBase, GetChannelAbnormalFlag),
    };
    return operations;
}

}  // namespace plugin_check
