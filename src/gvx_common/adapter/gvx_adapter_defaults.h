#pragma once

#include "gvx_common/adapter/gvx_adapter_interface.h"

#include <list>
#include <string>

// Bases for a plug-in that supplies only what its device can: every operation that the contract leaves to the plug-in
// answers ZVS_GVX_DEV_UN_SUPPORT here. Derive from these, override what there is. Called on the threads
// of the classes behind them.

class CAdapterDevDefaults : public CAdapterDevBase {
public:
    int Init() override { return ZVS_GVX_DEV_UN_SUPPORT; }
    int GetDeviceAbility(GVX_DEVICE_ABILITY_INFO&) override { return ZVS_GVX_DEV_UN_SUPPORT; }
    int ResetLogin() override { return ZVS_GVX_DEV_UN_SUPPORT; }
    int CreateLens(const char*, const short&, CAdapterDevBase*&, CAdapterLensBase*&) override {
        return ZVS_GVX_DEV_UN_SUPPORT;
    }
    int ReBoot(int) override { return ZVS_GVX_DEV_UN_SUPPORT; }
    int SetTimePara(const PU_TIME_CONF_STRU&) override { return ZVS_GVX_DEV_UN_SUPPORT; }
    int GetTimePara(PU_TIME_CONF_STRU&) override { return ZVS_GVX_DEV_UN_SUPPORT; }
    int SetNetPara(const PU_NET_CONF_STRU&) override { return ZVS_GVX_DEV_UN_SUPPORT; }
    int GetNetPara(PU_NET_CONF_STRU&) override { return ZVS_GVX_DEV_UN_SUPPORT; }
    int Upgrade(UPGRADE_PARAM&) override { return ZVS_GVX_DEV_UN_SUPPORT; }
    int GetSerialInfo(PU_SERIAL_CONF_STRU&) override { return ZVS_GVX_DEV_UN_SUPPORT; }
    int SetSerialInfo(const PU_SERIAL_CONF_STRU&) override { return ZVS_GVX_DEV_UN_SUPPORT; }
    int SetAlarmOutParam(const PU_ALARM_SWITCH_INFO&) override { return ZVS_GVX_DEV_UN_SUPPORT; }
    int GetAlarmOutParam(PU_ALARM_SWITCH_INFO&) override { return ZVS_GVX_DEV_UN_SUPPORT; }
    int SetAlarmInParam(const PU_ALARM_SWITCH_INFO&) override { return ZVS_GVX_DEV_UN_SUPPORT; }
    int GetAlarmInParam(PU_ALARM_SWITCH_INFO&) override { return ZVS_GVX_DEV_UN_SUPPORT; }
    int SetAlarmOutState(const PU_ALARM_SWITCH_INFO&) override { return ZVS_GVX_DEV_UN_SUPPORT; }
    int GetPuLogInfo(PU_GVX_LOG_INFO&, std::list<std::string>&) override { return ZVS_GVX_DEV_UN_SUPPORT; }
    int VcuGetUploadImgRsp(PU_UPLOAD_IMAGE_RSP&) override { return ZVS_GVX_DEV_UN_SUPPORT; }
    int SetAlarmGuard(bool) override { return ZVS_GVX_DEV_UN_SUPPORT; }
    int SetAlarmLinkagePara(const char*, const std::list<PU_ALARM_LINKAGE_INFO_STRU>&) override {
        return ZVS_GVX_DEV_UN_SUPPORT;
    }
};

class CAdapterLensDefaults : public CAdapterLensBase {
public:
    using CAdapterLensBase::CAdapterLensBase;

    // A new record with the service identifier set.
    CStreamParam* CreateStreamParam(const std::string& serviceID) override;
    // Releases the block: there is nothing to talk to.
    void EnqueueAudioData(ACE_Message_Block* block) override;
    int NegotiateStreamParam(CStreamParam*) override { return ZVS_GVX_DEV_UN_SUPPORT; }
    int StartVoiceStream(void*, SEND_VOICE_STREAM_FUNC*, CStreamParam*) override { return ZVS_GVX_DEV_UN_SUPPORT; }
    int StartStream(void*, SEND_STREAM_FUNC*, CStreamParam*, bool) override { return ZVS_GVX_DEV_UN_SUPPORT; }
    int StopStream(CStreamParam*, bool) override { return ZVS_GVX_DEV_UN_SUPPORT; }
    int RequestKeyframe(CStreamParam*) override { return ZVS_GVX_DEV_UN_SUPPORT; }
    int StopVoiceStream(CStreamParam*) override { return ZVS_GVX_DEV_UN_SUPPORT; }
    int PlayBackStreamControl(const STREAM_CONTROL_PARAM_S&, CStreamParam*) override { return ZVS_GVX_DEV_UN_SUPPORT; }
    int GetAudioParam(GVX_PU_AUDIO_INFO&) override { return ZVS_GVX_DEV_UN_SUPPORT; }
    int SetAudioParam(const GVX_PU_AUDIO_INFO&) override { return ZVS_GVX_DEV_UN_SUPPORT; }
    int SetVideoMaskParam(const PU_SET_VIDEO_MASK_STRU&, std::list<_AREA_INFO>&) override {
        return ZVS_GVX_DEV_UN_SUPPORT;
    }
    int GetVideoMaskParam(PU_GET_VIDEO_MASK_STRU&, std::list<_AREA_INFO>&) override { return ZVS_GVX_DEV_UN_SUPPORT; }
    int SetMotionDetectionAlarmParam(const MSG_SET_MOTION_DETECTION_ALARM_REQ&, std::list<_AREA_INFO>&,
                                     std::list<_MOTION_DETECTION_ALARM_GUARD_TIME>&) override {
        return ZVS_GVX_DEV_UN_SUPPORT;
    }
    int GetMotionDetectionAlarmParam(MSG_GET_MOTION_DETECTION_ALARM_REQ&, std::list<_AREA_INFO>&,
                                     std::list<_MOTION_DETECTION_ALARM_GUARD_TIME>&) override {
        return ZVS_GVX_DEV_UN_SUPPORT;
    }
    int SetPuGuardState(PU_Guard_State) override { return ZVS_GVX_DEV_UN_SUPPORT; }
    int GetPuGuardState(PU_Guard_State&) override { return ZVS_GVX_DEV_UN_SUPPORT; }
    int GetOSDParam(PU_OSD_CONF_STRU&) override { return ZVS_GVX_DEV_UN_SUPPORT; }
    int SetOSDParam(const PU_OSD_CONF_STRU&) override { return ZVS_GVX_DEV_UN_SUPPORT; }
    int VcuSnapShotReqInfo(const PU_SNAP_CONF_REQ&) override { return ZVS_GVX_DEV_UN_SUPPORT; }
    int VcuUploadImgCompReq(PU_UPLOAD_IMAGE_COMP_REQ&) override { return ZVS_GVX_DEV_UN_SUPPORT; }
    int SetPresetParam(MSG_PTZ_SET_PRESET_REQ&) override { return ZVS_GVX_DEV_UN_SUPPORT; }
    int GetPresetParam(std::list<_MSG_PTZ_GET_PRESET_RSP>&) override { return ZVS_GVX_DEV_UN_SUPPORT; }
    int DelPresetParam(const MSG_PTZ_DEL_PRESET_REQ&) override { return ZVS_GVX_DEV_UN_SUPPORT; }
    int SetGuardPositionParam(const MSG_PTZ_SET_HOME_POSITION_REQ&) override { return ZVS_GVX_DEV_UN_SUPPORT; }
    int GetGuardPositionParam(MSG_PTZ_GET_HOME_POSITION_RSP&) override { return ZVS_GVX_DEV_UN_SUPPORT; }
    int SetWatermark(bool) override { return ZVS_GVX_DEV_UN_SUPPORT; }
    int SetLayerCode(const PU_RECORD_LAYER_STRU&) override { return ZVS_GVX_DEV_UN_SUPPORT; }
    int SetAlarmGuard(bool) override { return ZVS_GVX_DEV_UN_SUPPORT; }
    int SetCameraStreamParam(const PU_CAMERA_STREAM_CONFIG&) override { return ZVS_GVX_DEV_UN_SUPPORT; }
    int GetCameraStreamParam(PU_CAMERA_STREAM_CONFIG&) override { return ZVS_GVX_DEV_UN_SUPPORT; }
    int SetImagParam(const PU_IMAGE_PARAM_CONFIG&) override { return ZVS_GVX_DEV_UN_SUPPORT; }
    int GetImagParam(PU_IMAGE_PARAM_CONFIG&) override { return ZVS_GVX_DEV_UN_SUPPORT; }
    int SetExtImagParam(const PU_EXTENDED_IMAGE_PARAM_CONFIG&) override { return ZVS_GVX_DEV_UN_SUPPORT; }
    int GetExtImagParam(PU_EXTENDED_IMAGE_PARAM_CONFIG&) override { return ZVS_GVX_DEV_UN_SUPPORT; }
    int SetRecordPlan(const PU_RECORD_PLAN_INFO&, PU_RECORD_PLAN_MAP&) override { return ZVS_GVX_DEV_UN_SUPPORT; }
    int GetRecordPlan(PU_RECORD_PLAN_INFO&, PU_RECORD_PLAN_MAP&) override { return ZVS_GVX_DEV_UN_SUPPORT; }
    int SetSnapShotPlan(std::list<_PU_SNAP_SHOT_PLAN>&) override { return ZVS_GVX_DEV_UN_SUPPORT; }
    int GetSnapShotPlan(PU_GET_SNAP_SHOT_PLAN&, std::list<_PU_SNAP_SHOT_PLAN>&) override {
        return ZVS_GVX_DEV_UN_SUPPORT;
    }
    int StartPuRecord(const PU_RECORD_START_STRU&) override { return ZVS_GVX_DEV_UN_SUPPORT; }
    int StopPuRecord() override { return ZVS_GVX_DEV_UN_SUPPORT; }
    int GetPuRecordState(PU_RECORD_STATE&) override { return ZVS_GVX_DEV_UN_SUPPORT; }
    int GetPuRecordList(GET_PU_RECORD_INFO&, std::list<_GET_PU_RECORD_DATA_LIST>&) override {
        return ZVS_GVX_DEV_UN_SUPPORT;
    }
    int SetIntelligentParam(RULE_COMMON_PARAM_S&, std::list<RULE_ALARM_PARAM>&, RULE_ALARM_PARAM_S&) override {
        return ZVS_GVX_DEV_UN_SUPPORT;
    }
    int GetIntelligentParam(RULE_COMMON_PARAM_S&, std::list<RULE_ALARM_PARAM>&) override {
        return ZVS_GVX_DEV_UN_SUPPORT;
    }
    int SetPtzParamReq(const MSG_PTZ_PARAM&) override { return ZVS_GVX_DEV_UN_SUPPORT; }
    int GetPtzParamReq(MSG_PTZ_PARAM&) override { return ZVS_GVX_DEV_UN_SUPPORT; }
    int PtzControlReq(const MSG_PTZ_CTRL_REQ&) override { return ZVS_GVX_DEV_UN_SUPPORT; }
    int SetCruiseTrackReq(const MSG_PTZ_SET_CRUISE_TRACK_REQ&, MSG_PTZ_SET_CRUISE_TRACK_RSP&) override {
        return ZVS_GVX_DEV_UN_SUPPORT;
    }
    int GetCruiseTrackReq(MSG_PTZ_GET_CRUISE_TRACK_RSP&) override { return ZVS_GVX_DEV_UN_SUPPORT; }
    int DelCruiseTrackReq(const MSG_PTZ_DEL_CRUISE_TRACK_REQ&) override { return ZVS_GVX_DEV_UN_SUPPORT; }
    int SetCameraTamperParam(const PU_HIDE_ALARM_CONF_STRU&, const std::list<_AREA_INFO>&,
                             const std::list<_PU_Guard_Time>&) override {
        return ZVS_GVX_DEV_UN_SUPPORT;
    }
    int GetCameraTamperParam(PU_HIDE_ALARM_CONF_STRU&, std::list<_AREA_INFO>&, std::list<_PU_Guard_Time>&) override {
        return ZVS_GVX_DEV_UN_SUPPORT;
    }
    int PopFrontRecordIndex(CStreamParam*&) override { return ZVS_GVX_DEV_UN_SUPPORT; }
    void PushBackRecordIndex(const CStreamParam*) override {}
};
