#pragma once

#include "base/zvs_error.h"
#include "base/zvs_types.h"
#include "gvx_common/records/gvx_adapter_records.h"
#include "gvx_common/records/gvx_discovery_records.h"

#include <ace/Recursive_Thread_Mutex.h>
#include <ace/Task.h>
#include <ace/Thread_Semaphore.h>

#include <cstddef>
#include <cstdint>
#include <list>
#include <string>
#include <unordered_map>
#include <utility>

class CAdapterDevBase;

// A device protocol as a whole; one object for each plug-in, made by GvxCreateAdapter (gvx_plugin.h). It derives from
// ACE_Task so that the object can own threads. The operations are called by the gateway, one at a time; a plug-in may
// report through the callbacks from its own threads. No exception may leave an operation.
class CAdapterSdkBase : public ACE_Task<ACE_MT_SYNCH> {
public:
    CAdapterSdkBase();
    CAdapterSdkBase(const CAdapterSdkBase&) = delete;
    CAdapterSdkBase& operator=(const CAdapterSdkBase&) = delete;
    ~CAdapterSdkBase() override;

    // The virtual operations, in slot order: an operation is found by its place, so that order, number and signatures
    // are part of what a plug-in was built against (GVX_PLUGIN_ABI_VERSION). Pure ones must be supplied; the others
    // stand with the answer that a plug-in gives when it supplies nothing.

    // The gateway's own address has changed.
    virtual int ModifyListenIp(const std::string&) { return 0; }
    // Called once, before anything else, with the path of the plug-in's own configuration file, which may not
    // exist. False refuses the plug-in; GvxPluginLastError (gvx_plugin.h) then tells why.
    virtual bool Init(const char* configFile) = 0;
    // Makes the device that the record describes; device is the caller's from then on and is deleted by it.
    // 0, or an enZvsError with device left null.
    virtual int CreateDevice(const MainDeviceInfo& info, CAdapterDevBase*& device) = 0;
    // A plug-in without a search of its own answers that there is none.
    virtual int StartSearchDevice(CDiscoveryDeviceInfo*) { return ZVS_GVX_DEV_UN_SUPPORT; }
    virtual void StopSearchDevice() {}
    // Checks address and credentials of a device that is not added yet.
    virtual int ValidateDevice(VALIDATE_DEVICE_INFO&) { return ZVS_GVX_DEV_UN_SUPPORT; }
    // The callbacks by which a plug-in reports. They are set before the first device is made, and stay valid for
    // the life of the plug-in; a plug-in may call them from any of its threads.
    virtual void SetCommonMessageCallback(ADAPTER_COMMON_MESSAGE_CALLBACK*) {}
    virtual void SetAlarmMessageCallback(ADAPTER_ALARM_CALLBACK*) {}
    virtual void SetSipMessageCallback(ADAPTER_SIP_MESSAGE_CALLBACK*) {}
    virtual void SetMedisStatusMessageCallback(ADAPTER_MEDISSTATUS_MESSAGE_CALLBACK*) {}
    virtual void SetExtSysMessageCallback(ADAPTER_REGISTER_MESSAGE_CALLBACK*) {}
    virtual void SetDiscoveryDeviceCallback(ADAPTER_DISCOVERY_DEVICE_CALLBACK* callback);
    // Batch work on devices, and switches of the device SDK behind the plug-in.
    virtual int NotifyDevBatch(const char*, unsigned long) { return 1; }
    virtual int EnableSDKSecurityCfg(bool) { return 1; }
    // Replaces the whitelist. Pairs of first and last address, both included, in host byte order.
    virtual void LoadIpWhitelist(std::list<std::pair<unsigned int, unsigned int>>& whitelist);
    // True when the dotted IPv4 address lies in a pair of the whitelist, both ends included. An empty list holds no
    // address. Not to be called while LoadIpWhitelist runs.
    virtual bool CheckIpInWhitelist(const std::string& address);
    virtual ZVS_INT32 setSipStackLogSwitch(ZVS_UINT32) { return 1; }
    virtual ZVS_INT32 SetSDKLogSwitch(ZVS_UINT32) { return 1; }
    // The search: a hook for its end, and the probes of the local segment and of named ranges, one text for each
    // address.
    virtual void OnDiscoveryDeviceFinish() {}
    virtual void SendLocalProbeMessage(std::list<std::string>&) {}
    virtual void SendRemoteProbeMessage(std::list<std::string>&) {}

protected:
    ADAPTER_DISCOVERY_DEVICE_CALLBACK* m_pDiscCallback = nullptr;  // set by SetDiscoveryDeviceCallback
    std::string m_strServerIP;                                     // the gateway's own address
    CDiscoveryDeviceInfo* m_pDiscDevInfo = nullptr;                // the running search; owned
    std::uint32_t m_uiPrecent = 0;                                 // search progress; guarded by m_UpdatePrecentMutex
    // Devices found since the last report; guarded by m_DevceDiscoveryInfoMutex.
    std::list<DeviceDiscoveryInfo> m_DevceDiscoveryInfo;
    ACE_Recursive_Thread_Mutex m_DevceDiscoveryInfoMutex;
    bool m_bIsDiscoveryRunning = false;
    ACE_Recursive_Thread_Mutex m_UpdatePrecentMutex;
    std::uint32_t m_uiProcessRateIndex = 0;  // ticks of the percent clock; guarded by m_UpdatePrecentMutex
    SEND_PEOBE_STATUS m_enSendProbeStatus = Send_Probe_Status_Idel;
    UPDATE_PRECENT_MODE m_enUpdatePrecentMode = Update_Precent_Mode_Initiative;
    std::unordered_map<std::string, std::string> m_DiscoveryDeviceMap;  // devices known or already reported
    std::size_t m_uiDevNumNeedProbe = 0;
    std::size_t m_uiDevNumHasMatched = 0;
    ACE_Thread_Semaphore* m_pDiscoveryTaskSemaphore = nullptr;  // discovery task hand-over; owned
    // IP ranges of the plug-in's whitelist: first and last address, in host byte order.
    std::list<std::pair<unsigned int, unsigned int>> m_listIpWhitelistPair;
};
