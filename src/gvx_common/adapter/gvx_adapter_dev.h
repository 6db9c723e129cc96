#pragma once

#include "base/zvs_error.h"
#include "base/zvs_types.h"
#include "gvx_common/event/GvxNotifier.h"
#include "gvx_common/records/gvx_adapter_records.h"

#include <ace/Recursive_Thread_Mutex.h>
#include <json/value.h>

#include <cstdint>
#include <ctime>
#include <list>
#include <string>
#include <vector>

class CAdapterLensBase;
class CGvxReactor;

// One device. The operations are called on the device's command reactor thread, one at a time; the accessors of login
// and identity are used there too, and GetLoginStatus by any thread. No exception may leave an operation.
class CAdapterDevBase : public GvxNotifier {
public:
    CAdapterDevBase();
    CAdapterDevBase(const CAdapterDevBase&) = delete;
    CAdapterDevBase& operator=(const CAdapterDevBase&) = delete;
    ~CAdapterDevBase() override;

    // The virtual operations, in slot order: an operation is found by its place, so that order, number and signatures
    // are part of what a plug-in was built against (GVX_PLUGIN_ABI_VERSION). Pure ones must be supplied; the others
    // stand with the answer that a plug-in gives when it supplies nothing.

    // Logs in to the device, or prepares to. 0, or an enZvsError, after which the device is deleted.
    virtual int Init() = 0;
    // What the device can do: its channels and their formats.
    virtual int GetDeviceAbility(GVX_DEVICE_ABILITY_INFO& ability) = 0;
    virtual int GetSubDeviceAbility(LENS_ABILITY_INFO&) { return ZVS_GVX_DEV_UN_SUPPORT; }
    virtual int GetMasterSlaveChannelInfo(GVX_DEVICE_ABILITY_INFO&) { return ZVS_GVX_DEV_UN_SUPPORT; }
    // Logs in anew after a change of address or credentials.
    virtual int ResetLogin() = 0;
    // Makes the lens of a channel. lensId is its identifier (at most 32 characters), parent this device. lens is the
    // caller's from then on, and is deleted by it before the device. 0, or an enZvsError with lens left null.
    virtual int CreateLens(const char* lensId, const short& channel, CAdapterDevBase*& parent,
                           CAdapterLensBase*& lens) = 0;
    // The device is about to be deleted: release what the device SDK holds for it.
    virtual int ClearAdapterInfo() { return 0; }
    virtual int ReBoot(int) = 0;
    virtual int SetTimePara(const PU_TIME_CONF_STRU&) = 0;
    virtual int GetTimePara(PU_TIME_CONF_STRU&) = 0;
    virtual int SetNetPara(const PU_NET_CONF_STRU&) = 0;
    virtual int GetNetPara(PU_NET_CONF_STRU&) = 0;
    virtual int Upgrade(UPGRADE_PARAM&) = 0;
    virtual int GetSerialInfo(PU_SERIAL_CONF_STRU&) = 0;
    virtual int SetSerialInfo(const PU_SERIAL_CONF_STRU&) = 0;
    // Asked for at intervals; 0 while the device can be reached.
    virtual int SendHeartbeat() { return 0; }
    virtual int SetAlarmOutParam(const PU_ALARM_SWITCH_INFO&) = 0;
    virtual int GetAlarmOutParam(PU_ALARM_SWITCH_INFO&) = 0;
    virtual int SetManualTraceParam(PU_NET_IN_CONTROL_INTELLITRACKER&, PU_NET_OUT_CONTROL_INTELLITRACKER&) {
        return ZVS_GVX_DEV_UN_SUPPORT;
    }
    virtual int SetSubrackLinkageParam(PU_NET_IN_MSGROUP_RECTLOCATE_INFO&, PU_NET_OUT_MSGROUP_RECTLOCATE_INFO&) {
        return ZVS_GVX_DEV_UN_SUPPORT;
    }
    virtual int SetClickLinkageParam(PU_NET_IN_MSGROUP_LOCATE_INFO&, PU_NET_OUT_MSGROUP_LOCATE_INTO&) {
        return ZVS_GVX_DEV_UN_SUPPORT;
    }
    virtual int SetLinkageTrackSwitchParam(const MASTER_SLAVE_TRACK_PARA&) { return 0; }
    virtual int SetManualPosSwitchParam(const MASTER_SLAVE_LOCATE_CONFIG&) { return 0; }
    virtual int DealManualTraceInfo(const MASTER_SLAVE_MANUAL_TRACK_PARA&) { return 0; }
    virtual int DealManualPosInfo(const MASTER_SLAVE_LOCATE_PARA&) { return 0; }
    virtual int SetAlarmInParam(const PU_ALARM_SWITCH_INFO&) = 0;
    virtual int GetAlarmInParam(PU_ALARM_SWITCH_INFO&) = 0;
    virtual int SetAlarmOutState(const PU_ALARM_SWITCH_INFO&) = 0;
    virtual int GetPuLogInfo(PU_GVX_LOG_INFO&, std::list<std::string>&) = 0;
    virtual int VcuGetUploadImgRsp(PU_UPLOAD_IMAGE_RSP&) = 0;
    virtual int SetAlarmGuard(bool) = 0;
    // Position: two texts with the size of each buffer, for the camera of that number.
    virtual ZVS_INT32 getCamGeogPostion(ZVS_CHAR*, ZVS_UINT32, ZVS_CHAR*, ZVS_UINT32, ZVS_ULONG) {
        return ZVS_GVX_DEV_UN_SUPPORT;
    }
    // Subscriptions: reports of where a moving device is, every interval seconds from start to end (UTC,
    // "YYYYMMDDhhmmss", empty for no bound), and of a sensor's values, for expires seconds. What a plug-in does not
    // supply is logged with the device and answered with ZVS_GVX_DEV_UN_SUPPORT; the same holds for the lists of
    // devices below and for AddMultimachineAssistanceIpc.
    virtual int SendGpsPositionSubscribe(unsigned int sequence, const std::string& deviceID,
                                         const std::string& subscriber, ZVS_UINT32 interval, const std::string& start,
                                         const std::string& end);
    virtual int SendSensorInfoSubscribe(const std::string& deviceID, const std::string& subscriber,
                                        unsigned int interval, unsigned int expires);
    virtual void UnRegistRenewTimer() {}
    virtual int SetAlarmLinkagePara(const char*, const std::list<PU_ALARM_LINKAGE_INFO_STRU>&) = 0;
    // The devices behind an external system: those that it has, all that the platform knows, and further ones.
    virtual int GetExternDevList(EXT_DEVICE_MAP& cameras, EXT_DEVICE_MAP& alarmInputs, EXT_DEVICE_MAP& alarmOutputs);
    virtual int SetExternDevList(EXT_DEVICE_P_MAP& cameras, EXT_DEVICE_P_MAP& alarmInputs,
                                 EXT_DEVICE_P_MAP& alarmOutputs);
    virtual int AddExternDevList(EXT_DEVICE_P_MAP& cameras, EXT_DEVICE_P_MAP& alarmInputs,
                                 EXT_DEVICE_P_MAP& alarmOutputs);
    virtual int ModExternDevNotify(CExtDevInfo*) { return 0; }
    virtual int ClearSubDevMap() { return 0; }
    virtual int DelSubDev(const std::string&) { return 0; }
    // Identifier of the lens of a channel; an empty text when there is none.
    virtual const std::string GetLensIDThroughChannoId(unsigned int) { return std::string(); }
    virtual int AddSubDev(CExtDevInfo*) { return 0; }
    virtual int ModPassWord(const PU_MOD_PASSWORD_STRU&) { return 0; }
    virtual int ModWebPassWord(const MOD_WEB_PASSWORD_STRU&) { return ZVS_GVX_DEV_UN_SUPPORT; }
    virtual int SetDev8021XConf(const DEV_8021X_CONF_STRU&) { return ZVS_GVX_DEV_UN_SUPPORT; }
    virtual int GetDev8021XConf(DEV_8021X_CONF_STRU&) { return ZVS_GVX_DEV_UN_SUPPORT; }
    virtual int SetVideoFormat(const std::string&) { return 0; }
    virtual void SetDevPasswd(const std::string&) {}
    virtual void SetDevRegPasswd(const std::string&) {}
    virtual void SetRcvPort(uint16_t&) {}
    virtual void SetUniqueCode(const std::string&) {}
    virtual int GetDevCfg(std::string&) { return 0; }
    virtual int SetDevCfg(std::string&) { return 0; }
    virtual void DevBatchResultNotify() {}
    virtual int GetTotalDevCount() { return 0; }
    // Sets m_bLogin under m_mutexDevLogin, and the state of the device as far as it tells (gvx_device_state.h).
    virtual void SetLoginStatus(bool login);
    virtual bool GetNeedSendDeviceInfo() { return false; }
    virtual bool IsGetDevServiceAddr() { return true; }
    // Stores the current time in seconds as that of the last alarm; ClearLastAlarmTime forgets it.
    virtual void UpdateLastAlarmTime();
    virtual void ClearLastAlarmTime();
    virtual bool IsAllowSendAlarm() { return true; }
    virtual int SetIPCA(const IPCA_RULE&) { return 0; }
    // Keeps the login handle of the device SDK.
    virtual void SetLoginHandle(long handle);
    virtual int SetCacheRecord(bool) { return 0; }
    virtual int DelMultimachineAssistanceIpc(const std::string&) { return ZVS_GVX_DEV_UN_SUPPORT; }
    virtual int AddMultimachineAssistanceIpc(const std::string& communityID, const std::string& ipcCode);
    virtual void SetVideoChannelRelation(std::vector<_VIDEO_CHANNEL_CODE_RELATION>&) {}
    virtual void handleDevStatusChangedNotify(MainDevStatus) {}
    virtual void SynDeviceTime() {}
    virtual void InitEnableH265() {}
    virtual int FindT28181LensIDFromCatalog(const std::string&) { return 2; }
    virtual int GetCatalogFromPu() { return 1; }
    virtual int SendJsonMessage2IPC(char*, const std::string&) { return ZVS_GVX_DEV_UN_SUPPORT; }
    virtual ZVS_INT32 FindDevException() { return 0; }
    virtual int GetJsonDeivceAbility(Json::Value&) { return ZVS_GVX_DEV_UN_SUPPORT; }

    // Identity and address. They change with the device, on its command thread: another thread works with copies.
    void SetMainDevID(const std::string& devID) { m_strMainDevID = devID; }
    const std::string& GetMainDevID() const { return m_strMainDevID; }
    void SetParentCode(const std::string& code) { m_strParentCode = code; }
    const std::string& GetParentCode() const { return m_strParentCode; }
    void SetDevFormType(enPuDevFormType type) { m_eDevFormType = type; }
    enPuDevFormType GetDevFromType() const { return m_eDevFormType; }
    void SetIP(const std::string& ip) { m_strIP = ip; }
    const std::string& GetIP() const { return m_strIP; }
    void SetPort(std::uint16_t port) { m_nPort = port; }
    std::uint16_t GetPort() const { return m_nPort; }
    void SetUserName(const std::string& name) { m_strUserName = name; }
    const std::string& GetUserName() const { return m_strUserName; }
    void SetPassword(const std::string& password) { m_strPassword = password; }
    const std::string& GetPassword() const { return m_strPassword; }
    void SetModelType(const std::string& model) { m_strModelType = model; }
    const std::string& GetModelType() const { return m_strModelType; }

    // Where the device hangs in the gateway: the link of the SCU that owns it, and its command reactor (not owned).
    void SetSCULinkID(const std::string& linkID) { m_strSCULinkID = linkID; }
    const std::string& GetSCULinkID() const { return m_strSCULinkID; }
    void SetDevReactor(CGvxReactor* reactor) { m_pReactor = reactor; }
    CGvxReactor* GetDevReactor() const { return m_pReactor; }

    // Reads m_bLogin under the login lock. Any thread.
    bool GetLoginStatus();
    // The lock of login work; recursive. The only lock that this class holds for a device.
    ACE_Recursive_Thread_Mutex& GetMutexLogin() { return m_mutexDevLogin; }

    // The platform has answered the status report.
    void SetRecvMainDevStatusResp(bool received) { m_bHaveRecvMainDevStautsResp = received; }
    bool GetRecvMainDevStatusResp() const { return m_bHaveRecvMainDevStautsResp; }
    // Non-zero: the device sits behind NAT.
    int GetNatStatus() const { return m_isNat; }
    void SetNatStatus(int isNat) { m_isNat = isNat; }
    void SetDevTransPara(std::uint32_t para) { m_uiTransPara = para; }
    std::uint32_t GetDevTransPara() const { return m_uiTransPara; }

    // The member "videoChannelInfo" of the cached ability; a null value when the plug-in has cached none.
    Json::Value GetVideoChannelInfo() const;
    Json::Value& GetCacheDeviceAbility() { return m_cacheDeviceAbility; }
    const Json::Value& GetCacheDeviceAbility() const { return m_cacheDeviceAbility; }

protected:
    std::string m_strSCULinkID;
    CGvxReactor* m_pReactor = nullptr;  // not owned
    std::string m_strMainDevID;
    std::string m_strParentCode;
    enPuDevFormType m_eDevFormType = PU_IPC;
    std::uint16_t m_nPort = 0;
    bool m_bLogin = false;  // guarded by m_mutexDevLogin
    ACE_Recursive_Thread_Mutex m_mutexDevLogin;
    std::string m_strIP;
    std::string m_strUserName;
    std::string m_strPassword;
    bool m_bHaveRecvMainDevStautsResp = false;
    int m_isNat = 0;
    std::time_t m_uiLastAlarmTime = 0;  // seconds since 1970; 0 for none
    long m_Handle = 0;                  // login handle of the device SDK
    std::string m_strModelType;
    std::uint32_t m_uiTransPara = 0;
    Json::Value m_cacheDeviceAbility;
    bool m_flagOnvifProfileEmpty = false;  // the device's profile list came back empty
};
