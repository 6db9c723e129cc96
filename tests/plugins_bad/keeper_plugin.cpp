#include "keeper_plugin.h"

#include "base/json_io.h"
#include "gvx_common/adapter/gvx_adapter_defaults.h"
#include "gvx_common/adapter/gvx_plugin.h"
#include "gvx_common/forms/record_forms.h"
#include "support/sample_record.h"

#include <new>

// A device that does nothing: each operation keeps what it is given and gives what SampleOf makes.

KeeperState g_keeper;

namespace {

// What one operation is given.
class Taken {
public:
    template <typename Record>
    Taken& Add(const Record& record) {
        const gvx::RecordForm& form = gvx::FormOf<Record>();
        Record copy = record;
        gvx::WriteRecord(form, &copy, m_object);
        for (const gvx::FieldForm& field : form) {
            if (field.secret) {
                m_object[field.name] = *static_cast<std::string*>(field.at(&copy));
            }
        }
        if (form.mask != nullptr) {
            m_mask.assign(form.mask(&copy)->Mask, sizeof(CONF_ITEM_MASK_STRU::Mask));
        }
        return *this;
    }
    template <typename List>
    Taken& Add(const char* name, const List& list) {
        Json::Value& array = m_object[name] = Json::Value(Json::arrayValue);
        for (const auto& value : list) {
            Json::Value element(Json::objectValue);
            gvx::WriteRecord(gvx::FormOf<typename List::value_type>(), &value, element);
            array.append(element);
        }
        return *this;
    }
    Taken& Value(const char* name, const Json::Value& value) {
        m_object[name] = value;
        return *this;
    }
    int Done() {
        const std::lock_guard<std::mutex> lock(g_keeper.mutex);
        g_keeper.taken = m_object;
        g_keeper.mask = m_mask;
        return 0;
    }

private:
    Json::Value m_object{Json::objectValue};
    std::string m_mask;
};

template <typename Record>
int Take(const Record& record) {
    return Taken().Add(record).Done();
}

template <typename Record>
int Fill(Record& record, unsigned index = 0) {
    std::string fault;
    const gvx::RecordForm& form = gvx::FormOf<Record>();
    record = Record{};
    return gvx::ReadRecord(form, SampleOf(form, index), &record, fault) ? 0 : ZVS_FAIL;
}

template <typename Record>
int Give(Record& record) {
    Take(record);
    return Fill(record);
}

template <typename List>
int Two(List& list) {
    list.resize(2);
    return Fill(list.front(), 0) + Fill(list.back(), 1);
}

#define TAKES(Operation, Record)                   \
    int Operation(const Record& record) override { \
        return Take(record);                       \
    }
#define TAKES_OWN(Operation, Record)         \
    int Operation(Record& record) override { \
        return Take(record);                 \
    }
#define GIVES(Operation, Record)             \
    int Operation(Record& record) override { \
        return Give(record);                 \
    }
#define SWITCHES(Operation)                        \
    int Operation(bool on) override {              \
        return Taken().Value("Enable", on).Done(); \
    }

class KeeperLens : public CAdapterLensDefaults {
public:
    using CAdapterLensDefaults::CAdapterLensDefaults;
    GIVES(GetAudioParam, GVX_PU_AUDIO_INFO)
    TAKES(SetAudioParam, GVX_PU_AUDIO_INFO)
    int SetVideoMaskParam(const PU_SET_VIDEO_MASK_STRU& mask, std::list<_AREA_INFO>& areas) override {
        return Taken().Add(mask).Add("Areas", areas).Done();
    }
    int SetVideoMaskParamEx(const PU_SET_VIDEO_MASK_STRU& mask, std::list<_AREA_INFO_EX>& areas) override {
        return Taken().Add(mask).Add("Areas", areas).Done();
    }
    int GetVideoMaskParam(PU_GET_VIDEO_MASK_STRU& mask, std::list<_AREA_INFO>& areas) override {
        return Fill(mask) + Two(areas);
    }
    int GetVideoMaskParamEx(PU_GET_VIDEO_MASK_STRU& mask, std::list<_AREA_INFO_EX>& areas) override {
        return Fill(mask) + Two(areas);
    }
    int SetMotionDetectionAlarmParam(const MSG_SET_MOTION_DETECTION_ALARM_REQ& alarm, std::list<_AREA_INFO>& areas,
                                     std::list<_MOTION_DETECTION_ALARM_GUARD_TIME>& times) override {
        return Taken().Add(alarm).Add("Areas", areas).Add("GuardTimes", times).Done();
    }
    int GetMotionDetectionAlarmParam(MSG_GET_MOTION_DETECTION_ALARM_REQ& alarm, std::list<_AREA_INFO>& areas,
                                     std::list<_MOTION_DETECTION_ALARM_GUARD_TIME>& times) override {
        return Fill(alarm) + Two(areas) + Two(times);
    }
    int SetCameraTamperParam(const PU_HIDE_ALARM_CONF_STRU& alarm, const std::list<_AREA_INFO>& areas,
                             const std::list<_PU_Guard_Time>& times) override {
        return Taken().Add(alarm).Add("Areas", areas).Add("GuardTimes", times).Done();
    }
    int GetCameraTamperParam(PU_HIDE_ALARM_CONF_STRU& alarm, std::list<_AREA_INFO>& areas,
                             std::list<_PU_Guard_Time>& times) override {
        return Fill(alarm) + Two(areas) + Two(times);
    }
    TAKES(SetAudioAlarmParam, MSG_SET_AUDIO_ALARM_INFO)
    GIVES(GetAudioAlarmParam, MSG_GET_AUDIO_ALARM_INFO)
    int SetPuGuardState(PU_Guard_State state) override { return Taken().Value("Enable", state == PU_GUARD_ON).Done(); }
    GIVES(GetOSDParam, PU_OSD_CONF_STRU)
    TAKES(SetOSDParam, PU_OSD_CONF_STRU)
    GIVES(SetPresetParam, MSG_PTZ_SET_PRESET_REQ)
    int GetPresetParam(std::list<_MSG_PTZ_GET_PRESET_RSP>& presets) override { return Two(presets); }
    TAKES(DelPresetParam, MSG_PTZ_DEL_PRESET_REQ)
    TAKES_OWN(setDeviceConfigParam, MSG_DEVICE_CONFIG_REQ)
    GIVES(getDeviceConfigParam, MSG_DEVICE_CONFIG_GET_RSP)
    TAKES(SetGuardPositionParam, MSG_PTZ_SET_HOME_POSITION_REQ)
    GIVES(GetGuardPositionParam, MSG_PTZ_GET_HOME_POSITION_RSP)
    SWITCHES(SetWatermark)
    int SetPuRecordStream(PU_RECORD_STREAM_STRU stream) override {
        return Taken().Value("StreamType", stream.nStreamType).Value("LensCode", stream.chSubDevId).Done();
    }
    TAKES(SetLayerCode, PU_RECORD_LAYER_STRU)
    TAKES_OWN(setAutoTraceParam, AUTO_TRACE_PARAM_S)
    SWITCHES(SetAlarmGuard)
    TAKES(SetCameraStreamParam, PU_CAMERA_STREAM_CONFIG)
    GIVES(GetCameraStreamParam, PU_CAMERA_STREAM_CONFIG)
    TAKES(SetImagParam, PU_IMAGE_PARAM_CONFIG)
    GIVES(GetImagParam, PU_IMAGE_PARAM_CONFIG)
    TAKES(SetExtImagParam, PU_EXTENDED_IMAGE_PARAM_CONFIG)
    GIVES(GetExtImagParam, PU_EXTENDED_IMAGE_PARAM_CONFIG)
    int SetRecordPlan(const PU_RECORD_PLAN_INFO& plan, PU_RECORD_PLAN_MAP& map) override {
        std::list<_PU_Guard_Time> spans;
        for (const auto& day : map.spans) {
            spans.insert(spans.end(), day.second.begin(), day.second.end());
        }
        return Taken().Add(plan).Add("Spans", spans).Done();
    }
    int GetRecordPlan(PU_RECORD_PLAN_INFO& plan, PU_RECORD_PLAN_MAP& map) override {
        std::list<_PU_Guard_Time> spans;
        const int code = Fill(plan) + Two(spans);
        for (const _PU_Guard_Time& span : spans) {
            map.spans[span.uiWeekDay].push_back(span);
        }
        return code;
    }
    int SetSnapShotPlan(std::list<_PU_SNAP_SHOT_PLAN>& spans) override { return Taken().Add("Spans", spans).Done(); }
    int GetSnapShotPlan(PU_GET_SNAP_SHOT_PLAN& plan, std::list<_PU_SNAP_SHOT_PLAN>& spans) override {
        return Fill(plan) + Two(spans);
    }
    TAKES(StartPuRecord, PU_RECORD_START_STRU)
    int StopPuRecord() override { return 0; }
    GIVES(GetPuRecordState, PU_RECORD_STATE)
    int GetPuRecordList(GET_PU_RECORD_INFO& search, std::list<_GET_PU_RECORD_DATA_LIST>& records) override {
        return Give(search) + Two(records);
    }
    int SetIntelligentParam(RULE_COMMON_PARAM_S& common, std::list<RULE_ALARM_PARAM>& rules,
                            RULE_ALARM_PARAM_S& alarm) override {
        return Taken().Add(common).Add("Rules", rules).Add(alarm).Done();
    }
    int GetIntelligentParam(RULE_COMMON_PARAM_S& common, std::list<RULE_ALARM_PARAM>& rules) override {
        return Fill(common) + Two(rules);
    }
    TAKES(SetPtzParamReq, MSG_PTZ_PARAM)
    GIVES(GetPtzParamReq, MSG_PTZ_PARAM)
    TAKES(PtzControlReq, MSG_PTZ_CTRL_REQ)
    int SetCruiseTrackReq(const MSG_PTZ_SET_CRUISE_TRACK_REQ& track, MSG_PTZ_SET_CRUISE_TRACK_RSP& answer) override {
        return Take(track) + Fill(answer);
    }
    GIVES(GetCruiseTrackReq, MSG_PTZ_GET_CRUISE_TRACK_RSP)
    TAKES(DelCruiseTrackReq, MSG_PTZ_DEL_CRUISE_TRACK_REQ)
    TAKES(HandleDiectionMove, MSG_PTZ_CTRL_REQ)
    TAKES(SetPuFecParam, PU_Fec_CONF_INFO)
    GIVES(GetPuFecParam, PU_Fec_CONF_INFO)
    GIVES(GetVideoEncodeOptions, VIDEO_ENCODE_OPTIONS)
    GIVES(GetPtzAbsPosition, MSG_PTZ_ABS_POSITION_RSP)
    TAKES(SetVisualAreaInfoReq, VisualAreaInfo)
    ZVS_INT32 HandleSendJsonMessage(const std::string& method, const std::string& body, std::string& answer) override {
        answer = R"({"Body":)" + std::to_string(std::hash<std::string>()("Body") % 1000) + "}";
        Json::Value json;
        gvx::ParseJson(body.data(), body.size(), json, nullptr);
        return Taken().Value("Method", method).Value("Body", json).Done();
    }
    ZVS_INT32 HandleStartCalibration(bool) override { return 0; }
    ZVS_INT32 HandleGetMasterSlaveCalibrationStatus(MASTER_SLAVE_CALIBRATION_STATUS_PARA& status) override {
        return Fill(status);
    }
    TAKES_OWN(HandleStartMasterSlaveLocate, MASTER_SLAVE_LOCATE_PARA)
    void GetVisualAreaBufferInfo(VisualAreaInfo& area) override { Fill(area); }
};

class KeeperDevice : public CAdapterDevDefaults {
public:
    int Init() override { return 0; }
    int ResetLogin() override {
        return Taken()
            .Value("IP", GetIP())
            .Value("Port", GetPort())
            .Value("UserName", GetUserName())
            .Value("Password", GetPassword())
            .Done();
    }
    GIVES(GetDeviceAbility, GVX_DEVICE_ABILITY_INFO)
    GIVES(GetMasterSlaveChannelInfo, GVX_DEVICE_ABILITY_INFO)
    int CreateLens(const char* id, const short& channel, CAdapterDevBase*& parent, CAdapterLensBase*& lens) override {
        lens = new (std::nothrow) KeeperLens(id, channel, *parent);
        return 0;
    }
    int ReBoot(int kind) override { return Taken().Value("Kind", kind).Done(); }
    TAKES(SetTimePara, PU_TIME_CONF_STRU)
    GIVES(GetTimePara, PU_TIME_CONF_STRU)
    TAKES(SetNetPara, PU_NET_CONF_STRU)
    GIVES(GetNetPara, PU_NET_CONF_STRU)
    TAKES_OWN(Upgrade, UPGRADE_PARAM)
    GIVES(GetSerialInfo, PU_SERIAL_CONF_STRU)
    TAKES(SetSerialInfo, PU_SERIAL_CONF_STRU)
    TAKES(SetAlarmOutParam, PU_ALARM_SWITCH_INFO)
    GIVES(GetAlarmOutParam, PU_ALARM_SWITCH_INFO)
    int SetManualTraceParam(PU_NET_IN_CONTROL_INTELLITRACKER& in, PU_NET_OUT_CONTROL_INTELLITRACKER& out) override {
        return Take(in) + Fill(out);
    }
    int SetSubrackLinkageParam(PU_NET_IN_MSGROUP_RECTLOCATE_INFO& in,
                               PU_NET_OUT_MSGROUP_RECTLOCATE_INFO& out) override {
        gvx::LocateAnswer answer;
        Fill(answer);
        out = {answer.dPan, answer.dTilt, answer.dZoom};
        Json::Value area(Json::objectValue);
        gvx::WriteRecord(gvx::FormOf<_AREA_INFO>(), &in.stArea, area);
        return Taken().Value("Channel", in.uiChannel).Value("SlaveCode", in.strSlaveCode).Value("Area", area).Done();
    }
    TAKES(SetLinkageTrackSwitchParam, MASTER_SLAVE_TRACK_PARA)
    TAKES(DealManualTraceInfo, MASTER_SLAVE_MANUAL_TRACK_PARA)
    TAKES(DealManualPosInfo, MASTER_SLAVE_LOCATE_PARA)
    TAKES(SetAlarmInParam, PU_ALARM_SWITCH_INFO)
    GIVES(GetAlarmInParam, PU_ALARM_SWITCH_INFO)
    TAKES(SetAlarmOutState, PU_ALARM_SWITCH_INFO)
    int GetPuLogInfo(PU_GVX_LOG_INFO& info, std::list<std::string>& lines) override {
        gvx::DeviceLog log;
        const int code = Take(info) + Fill(log);
        lines = log.lines;
        if (info.uiMaxCount == 10000) {
            lines.assign(10000, std::string(200, 'x'));
        }
        return code;
    }
    SWITCHES(SetAlarmGuard)
    int SendGpsPositionSubscribe(unsigned int sequence, const std::string& device, const std::string& subscriber,
                                 ZVS_UINT32 interval, const std::string& start, const std::string& end) override {
        return Take(gvx::PositionSubscription{sequence, device, subscriber, interval, start, end});
    }
    int SetAlarmLinkagePara(const char* input, const std::list<PU_ALARM_LINKAGE_INFO_STRU>& actions) override {
        return Taken().Value("AlarmInCode", input).Add("Actions", actions).Done();
    }
    int GetExternDevList(EXT_DEVICE_MAP& cameras, EXT_DEVICE_MAP& inputs, EXT_DEVICE_MAP& outputs) override {
        for (EXT_DEVICE_MAP* map : {&cameras, &inputs, &outputs}) {
            std::list<CExtDevInfo> devices;
            Two(devices);
            for (const CExtDevInfo& device : devices) {
                (*map)[device.strCode] = device;
            }
        }
        return 0;
    }
    int SetExternDevList(EXT_DEVICE_P_MAP& cameras, EXT_DEVICE_P_MAP& inputs, EXT_DEVICE_P_MAP& outputs) override {
        return Taken()
            .Add("Cameras", ListOf(cameras))
            .Add("AlarmInputs", ListOf(inputs))
            .Add("AlarmOutputs", ListOf(outputs))
            .Done();
    }
    int AddExternDevList(EXT_DEVICE_P_MAP& cameras, EXT_DEVICE_P_MAP& inputs, EXT_DEVICE_P_MAP& outputs) override {
        return SetExternDevList(cameras, inputs, outputs);
    }
    int ModExternDevNotify(CExtDevInfo* device) override { return Take(*device); }
    int DelSubDev(const std::string& code) override { return Taken().Value("Code", code).Done(); }
    int AddSubDev(CExtDevInfo* device) override { return Take(*device); }
    TAKES(ModPassWord, PU_MOD_PASSWORD_STRU)
    TAKES(ModWebPassWord, MOD_WEB_PASSWORD_STRU)
    TAKES(SetDev8021XConf, DEV_8021X_CONF_STRU)
    GIVES(GetDev8021XConf, DEV_8021X_CONF_STRU)
    int GetDevCfg(std::string& text) override {
        gvx::ConfigText config;
        const int code = Fill(config);
        text = config.strConfig;
        return code;
    }
    int SetDevCfg(std::string& text) override { return Taken().Value("Config", text).Done(); }
    TAKES(SetIPCA, IPCA_RULE)
    SWITCHES(SetCacheRecord)
    int DelMultimachineAssistanceIpc(const std::string& id) override { return Taken().Value("CommunityID", id).Done(); }
    int AddMultimachineAssistanceIpc(const std::string& id, const std::string& code) override {
        return Taken().Value("CommunityID", id).Value("IpcCode", code).Done();
    }
    void SetVideoChannelRelation(std::vector<_VIDEO_CHANNEL_CODE_RELATION>& channels) override {
        Taken().Add("Channels", channels).Done();
    }
    int SendJsonMessage2IPC(char* body, const std::string& method) override {
        Json::Value json;
        gvx::ParseJson(body, std::char_traits<char>::length(body), json, nullptr);
        return Taken().Value("Method", method).Value("Body", json).Done();
    }

private:
    static std::list<CExtDevInfo> ListOf(const EXT_DEVICE_P_MAP& map) {
        std::list<CExtDevInfo> list;
        for (const auto& entry : map) {
            list.push_back(*entry.second);
        }
        return list;
    }
};

class KeeperSdk : public CAdapterSdkBase {
public:
    bool Init(const char*) override { return true; }
    int CreateDevice(const MainDeviceInfo&, CAdapterDevBase*& device) override {
        device = new (std::nothrow) KeeperDevice;
        return 0;
    }
    TAKES_OWN(ValidateDevice, VALIDATE_DEVICE_INFO)
    int ModifyListenIp(const std::string& ip) override { return Taken().Value("IP", ip).Done(); }
};

}  // namespace

const GvxPluginDescription* GvxDescribePlugin() {
    static const GvxPluginDescription description{GVX_PLUGIN_ABI_VERSION, "keeper", "1", "tests"};
    return &description;
}

CAdapterSdkBase* GvxCreateAdapter() {
    return new (std::nothrow) KeeperSdk;
}

void GvxDestroyAdapter(CAdapterSdkBase* adapter) {
    delete adapter;
}
