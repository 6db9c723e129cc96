#pragma once

#include "base/zvs_error.h"
#include "base/zvs_types.h"
#include "gvx_common/records/gvx_adapter_records.h"
#include "gvx_common/records/gvx_discovery_records.h"

#include <ace/Recursive_Thread_Mutex.h>
#include <ace/Task.h>
#include <ace/Thread_Semaphore.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>

class CAdapterDevBase;
namespace gvx {
class DiscoveryTask;
}

// A device protocol as a whole; one object for each plug-in, made by GvxCreateAdapter (gvx_plugin.h). It derives from
// ACE_Task so that the object can own threads. The gateway calls CreateDevice on the threads of devices, the others one
// at a time; a plug-in may report through the callbacks from its own threads. No exception may leave an operation.
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
    // Starts a search, a task of two threads: one probes by SendLocalProbeMessage or SendRemoteProbeMessage, the other
    // reports to the callback, at first after 500 ms and then each second, what was found since and how far the search
    // is, until that is 100 percent. pInfo is copied. A task ends after DISCOVERY_MAX_SECONDS at the latest.
    // 0; ZVS_NULL_POINTER; ZVS_GVX_DEV_DISCOVERY_RUNNING while a task runs, or when the probes of the one before have
    // not returned within 2 s; 1 when there is no thread.
    virtual int StartSearchDevice(CDiscoveryDeviceInfo* pInfo);
    // Ends the task with a last report of 100 percent, and does not wait for it. A plug-in that overrides this calls
    // it, and sees to it that its probes return.
    virtual void StopSearchDevice();
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
    // The search: a hook for its end, and the probes of the local segment (no ranges were named) and of named ranges,
    // one text for each address. The probes run on a thread of 128 KiB stack, and the search takes as long as they do;
    // they return soon when IsSearchOver says so. They report by the operations below.
    virtual void OnDiscoveryDeviceFinish() {}
    virtual void SendLocalProbeMessage(std::list<std::string>&) {}
    virtual void SendRemoteProbeMessage(std::list<std::string>&) {}

    // A device was found; any thread. A device that the platform knows, or that was reported in this search, is not
    // reported again; without a search it is dropped.
    void UpdateDiscoveryDeviceList(DeviceDiscoveryInfo& info);
    // How far a search in passive mode is, in percent; above 100 counts as 100, which ends the search. A value below an
    // earlier one is kept, and not reported. Any thread.
    void UpdateDiscoveryPrecent(unsigned int value);
    UPDATE_PRECENT_MODE GetUpdatePrecentMode() const { return m_enUpdatePrecentMode; }
    SEND_PEOBE_STATUS GetSendProbeStatus() const { return m_enSendProbeStatus; }
    void SetSendProbeStatus(SEND_PEOBE_STATUS status) { m_enSendProbeStatus = status; }
    // The segment of GVX_MESSAGE_IP from .1 to .255. 0, 1 or ZVS_IP_INVALID.
    int GetLocalIpRange(DISCOVERY_IP_INFO& range);
    // The bodies of the two threads, whose argument is the plug-in object: 0, or ZVS_NULL_POINTER for null.
    static int ProcessSendProbeMessage(void* pArg);
    static int ProcessSendDiscoveryDevice(void* pArg);
    // Waits until no thread of a search runs any more, for limitMs at most; false when one still does, and the object
    // must then not be destroyed. Any thread but theirs.
    bool WaitSearchEnd(unsigned int limitMs);

protected:
    // True when there is no search, or when it was stopped or has taken its time: probes are then of no use. Any
    // thread.
    bool IsSearchOver() const;
    // Reports until the search is over.
    void SendDiscoveryDevice();
    // One tick of the percent clock.
    void UpdateDiscoveryPrecentSelf();

    ADAPTER_DISCOVERY_DEVICE_CALLBACK* m_pDiscCallback = nullptr;  // set by SetDiscoveryDeviceCallback
    std::string m_strServerIP;                                     // the gateway's own address
    CDiscoveryDeviceInfo* m_pDiscDevInfo = nullptr;                // the reporting thread's during a search; owned
    std::uint32_t m_uiPrecent = 0;                                 // search progress; guarded by m_UpdatePrecentMutex
    // Devices found since the last report; guarded by m_DevceDiscoveryInfoMutex.
    std::list<DeviceDiscoveryInfo> m_DevceDiscoveryInfo;
    ACE_Recursive_Thread_Mutex m_DevceDiscoveryInfoMutex;
    std::atomic<bool> m_bIsDiscoveryRunning{false};
    ACE_Recursive_Thread_Mutex m_UpdatePrecentMutex;
    std::uint32_t m_uiProcessRateIndex = 0;  // ticks of the percent clock; guarded by m_UpdatePrecentMutex
    std::atomic<SEND_PEOBE_STATUS> m_enSendProbeStatus{Send_Probe_Status_Idel};
    UPDATE_PRECENT_MODE m_enUpdatePrecentMode = Update_Precent_Mode_Initiative;
    std::unordered_map<std::string, std::string> m_DiscoveryDeviceMap;  // devices known or already reported
    std::atomic<std::size_t> m_uiDevNumNeedProbe{0};
    std::atomic<std::size_t> m_uiDevNumHasMatched{0};
    // Signalled once by each of a task's threads; lives until the next start has taken both signals. Owned.
    ACE_Thread_Semaphore* m_pDiscoveryTaskSemaphore = nullptr;
    // IP ranges of the plug-in's whitelist: first and last address, in host byte order.
    std::list<std::pair<unsigned int, unsigned int>> m_listIpWhitelistPair;

private:
    int StartDiscoveryTask(const CDiscoveryDeviceInfo& request);
    int TakeDiscoveryRequest(const CDiscoveryDeviceInfo& request);
    int SpawnDiscoveryThreads(int& threads);
    std::uint32_t DiscoveryPercent();
    void CleanUpDiscovery();

    const std::unique_ptr<gvx::DiscoveryTask> m_discoveryTask;
};
