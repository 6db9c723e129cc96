#include "gvx_common/adapter/gvx_adapter_sdk.h"

#include "base/bounded_string.h"
#include "base/log.h"
#include "gvx_common/adapter/discovery/discovery_task.h"
#include "gvx_common/config/setting_table.h"
#include "gvx_common/utility/gvx_utility.h"

#include <ace/Guard_T.h>

#include <algorithm>
#include <chrono>
#include <climits>
#include <iterator>
#include <new>

#include <arpa/inet.h>

// The search of a plug-in; DiscoveryTask has its threads.

namespace {

constexpr const char* kTitle = "Device discovery";
constexpr std::chrono::milliseconds kFirstReportAfter(500);
constexpr std::chrono::seconds kBetweenReports(1);
// How long a start waits for the threads of the task before, which have nothing left to do but what the plug-in does.
constexpr std::chrono::seconds kHandOverLimit(2);
constexpr std::uint32_t kDone = 100;
constexpr std::uint32_t kLastTick = 15;
constexpr std::uint32_t kPercentPerTick = 6;
constexpr std::uint32_t kWaitsForProbes = 99;

int MaxSeconds() {
    return static_cast<int>(gvx::SettingNumber(gvx::Setting::DISCOVERY_MAX_SECONDS));
}

using ListGuard = ACE_Guard<ACE_Recursive_Thread_Mutex>;

}  // namespace

CAdapterSdkBase::CAdapterSdkBase() : m_discoveryTask(new gvx::DiscoveryTask) {
    m_pDiscDevInfo = new (std::nothrow) CDiscoveryDeviceInfo;
    if (m_pDiscDevInfo != nullptr) {
        ++g_bp_memstat;
    }
}

CAdapterSdkBase::~CAdapterSdkBase() {
    if (m_pDiscoveryTaskSemaphore != nullptr) {
        delete m_pDiscoveryTaskSemaphore;
        m_pDiscoveryTaskSemaphore = nullptr;
        --g_bp_memstat;
    }
    if (m_pDiscDevInfo != nullptr) {
        delete m_pDiscDevInfo;
        m_pDiscDevInfo = nullptr;
        --g_bp_memstat;
    }
}

int CAdapterSdkBase::StartSearchDevice(CDiscoveryDeviceInfo* pInfo) {
    GVX_CHECK_NULL_RETURN(pInfo, ZVS_NULL_POINTER);
    bool running = false;
    if (!m_bIsDiscoveryRunning.compare_exchange_strong(running, true)) {
        GVX_LOG_ERR_CODE(kTitle, ZVS_GVX_DEV_DISCOVERY_RUNNING, "Discovery service is running.");
        return ZVS_GVX_DEV_DISCOVERY_RUNNING;
    }
    const int result = StartDiscoveryTask(*pInfo);
    if (result != ZVS_SUCCEED) {
        m_bIsDiscoveryRunning = false;
    }
    return result;
}

int CAdapterSdkBase::StartDiscoveryTask(const CDiscoveryDeviceInfo& request) {
    if (m_pDiscoveryTaskSemaphore != nullptr) {
        if (!m_discoveryTask->TakeSignals(*m_pDiscoveryTaskSemaphore, kHandOverLimit)) {
            GVX_LOG_ERR_CODE(kTitle, ZVS_GVX_DEV_DISCOVERY_RUNNING, "The plug-in still probes for the search before.");
            return ZVS_GVX_DEV_DISCOVERY_RUNNING;
        }
        delete m_pDiscoveryTaskSemaphore;
        m_pDiscoveryTaskSemaphore = nullptr;
        --g_bp_memstat;
    }
    m_pDiscoveryTaskSemaphore = new (std::nothrow) ACE_Thread_Semaphore(0, nullptr, nullptr, INT_MAX);
    // One for whose inside there was no memory is no semaphore.
    if (m_pDiscoveryTaskSemaphore != nullptr && m_pDiscoveryTaskSemaphore->lock().sema_ == nullptr) {
        delete m_pDiscoveryTaskSemaphore;
        m_pDiscoveryTaskSemaphore = nullptr;
    }
    GVX_CHECK_NULL_RETURN(m_pDiscoveryTaskSemaphore, ZVS_NULL_POINTER);
    ++g_bp_memstat;
    int threads = 0;
    int result = ZVS_FAIL;
    m_discoveryTask->Begin(request.DiscDevIpRangeList.empty());
    try {
        m_discoveryTask->LimitTo(MaxSeconds());
        result = TakeDiscoveryRequest(request);
        if (result == ZVS_SUCCEED) {
            result = SpawnDiscoveryThreads(threads);
        }
    } catch (const std::bad_alloc&) {
        GVX_LOG_ERR_CODE(kTitle, ZVS_ALLOC_MEMORY_ERROR, "There is no memory for a search.");
        result = ZVS_FAIL;
    }
    if (result != ZVS_SUCCEED) {
        m_discoveryTask->Abandon();
        m_pDiscoveryTaskSemaphore->release(2 - threads);  // a thread that is missing owes its signal all the same
    }
    return result;
}

int CAdapterSdkBase::TakeDiscoveryRequest(const CDiscoveryDeviceInfo& request) {
    GVX_CHECK_NULL_RETURN(m_pDiscDevInfo, ZVS_NULL_POINTER);
    m_DiscoveryDeviceMap.clear();
    for (const std::string& device : request.AddedDevList) {
        if (!m_DiscoveryDeviceMap.emplace(device, device).second) {
            GVX_DEBUG("Device[%s] has send to scu.", device.c_str());
        }
    }
    m_pDiscDevInfo->enProtocolType = request.enProtocolType;
    m_pDiscDevInfo->strSCULinkID = request.strSCULinkID;
    m_pDiscDevInfo->strTransID = request.strTransID;
    m_pDiscDevInfo->strServerCode = request.strServerCode;
    m_pDiscDevInfo->DiscDevIpRangeList = request.DiscDevIpRangeList;
    m_pDiscDevInfo->AddedDevList = request.AddedDevList;
    // Ahead of the threads, since the record is the reporting one's from then on.
    DISCOVERY_IP_INFO range{};
    if (request.DiscDevIpRangeList.empty() && GetLocalIpRange(range) == ZVS_SUCCEED) {
        m_pDiscDevInfo->DiscDevIpRangeList.push_back(range);
    }
    {
        const ListGuard guard(m_UpdatePrecentMutex);
        m_uiPrecent = 0;
        m_uiProcessRateIndex = 0;
    }
    const ListGuard guard(m_DevceDiscoveryInfoMutex);
    m_DevceDiscoveryInfo.clear();
    return ZVS_SUCCEED;
}

int CAdapterSdkBase::SpawnDiscoveryThreads(int& threads) {
    if (!m_discoveryTask->Spawn("DiscoveryDevice", &CAdapterSdkBase::ProcessSendDiscoveryDevice, this)) {
        GVX_LOG_ERR(kTitle, "Fail to create thread for sending disc device.");
        return ZVS_FAIL;
    }
    ++threads;
    if (!m_discoveryTask->Spawn("ProbeSending", &CAdapterSdkBase::ProcessSendProbeMessage, this)) {
        GVX_LOG_ERR(kTitle, "Fail to create thread for sending probe.");
        return ZVS_FAIL;
    }
    ++threads;
    return ZVS_SUCCEED;
}

void CAdapterSdkBase::StopSearchDevice() {
    if (m_bIsDiscoveryRunning) {
        m_discoveryTask->Stop();
    }
}

bool CAdapterSdkBase::WaitSearchEnd(unsigned int limitMs) {
    return m_discoveryTask->WaitEnd(std::chrono::milliseconds(limitMs));
}

bool CAdapterSdkBase::IsSearchOver() const {
    return !m_bIsDiscoveryRunning || m_discoveryTask->IsOver();
}

int CAdapterSdkBase::GetLocalIpRange(DISCOVERY_IP_INFO& range) {
    const std::string local = gvx::SettingText(gvx::Setting::GVX_MESSAGE_IP);
    if (!CGvxUtility::IsIPv4(local.c_str())) {
        GVX_LOG_ERR_CODE(kTitle, ZVS_IP_INVALID, "Local IP[%s] is invalid.", local.c_str());
        return ZVS_IP_INVALID;
    }
    const std::string segment = local.substr(0, local.find_last_of('.') + 1);
    if (snprintf_s(range.strStartIp, sizeof range.strStartIp, sizeof range.strStartIp - 1, "%s1", segment.c_str()) <
        0) {
        GVX_LOG_ERR(kTitle, "snprintf_s strStartIp failed");
        return ZVS_FAIL;
    }
    if (snprintf_s(range.strEndIp, sizeof range.strEndIp, sizeof range.strEndIp - 1, "%s255", segment.c_str()) < 0) {
        GVX_LOG_ERR(kTitle, "snprintf_s strEndIp failed");
        return ZVS_FAIL;
    }
    return ZVS_SUCCEED;
}

int CAdapterSdkBase::ProcessSendProbeMessage(void* pArg) {
    GVX_CHECK_NULL_RETURN(pArg, ZVS_NULL_POINTER);
    CAdapterSdkBase& sdk = *static_cast<CAdapterSdkBase*>(pArg);
    sdk.SetSendProbeStatus(Send_Probe_Status_Running);
    // The search's end waits for this, so it must come whatever the plug-in throws.
    struct Finish {
        CAdapterSdkBase& sdk;
        ~Finish() {
            sdk.SetSendProbeStatus(Send_Probe_Status_Finish);
            sdk.m_pDiscoveryTaskSemaphore->release();
            GVX_LOG_INFO(kTitle, "Send probe finished.");
        }
    };
    const Finish finish{sdk};
    std::list<std::string> addresses = gvx::ListProbeAddresses(sdk.m_pDiscDevInfo->DiscDevIpRangeList);
    sdk.m_uiDevNumHasMatched = 0;
    sdk.m_uiDevNumNeedProbe = addresses.size();
    GVX_LOG_INFO(kTitle, "There are[%zu] device need to probe.", addresses.size());
    if (sdk.IsSearchOver()) {
        return ZVS_SUCCEED;
    }
    if (sdk.m_discoveryTask->IsLocal()) {
        sdk.SendLocalProbeMessage(addresses);
    } else {
        sdk.SendRemoteProbeMessage(addresses);
    }
    return ZVS_SUCCEED;
}

int CAdapterSdkBase::ProcessSendDiscoveryDevice(void* pArg) {
    GVX_CHECK_NULL_RETURN(pArg, ZVS_NULL_POINTER);
    CAdapterSdkBase& sdk = *static_cast<CAdapterSdkBase*>(pArg);
    sdk.m_discoveryTask->Wait(kFirstReportAfter);
    const bool abandoned = sdk.m_discoveryTask->IsAbandoned();
    struct Finish {
        CAdapterSdkBase& sdk;
        ~Finish() { sdk.m_pDiscoveryTaskSemaphore->release(); }
    };
    {
        const Finish finish{sdk};
        if (!abandoned) {
            sdk.SendDiscoveryDevice();
        }
    }
    if (!abandoned) {
        sdk.OnDiscoveryDeviceFinish();
    }
    return ZVS_SUCCEED;
}

void CAdapterSdkBase::SendDiscoveryDevice() {
    struct CleanUp {
        CAdapterSdkBase& sdk;
        ~CleanUp() { sdk.CleanUpDiscovery(); }
    };
    const CleanUp cleanUp{*this};
    std::uint32_t told = 0;  // a plug-in may go back with its percentage; what is reported never falls
    for (;;) {
        if (GetUpdatePrecentMode() == Update_Precent_Mode_Initiative) {
            UpdateDiscoveryPrecentSelf();
        }
        // Read ahead of the list: what a plug-in reports before it says 100 is in the last report.
        told = std::max(told, DiscoveryPercent());
        std::list<DeviceDiscoveryInfo> found;
        {
            const ListGuard guard(m_DevceDiscoveryInfoMutex);
            if (!guard.locked() || m_pDiscDevInfo == nullptr || m_pDiscCallback == nullptr) {
                return;
            }
            found.swap(m_DevceDiscoveryInfo);
        }
        std::list<DeviceDiscoveryInfo>& report = m_pDiscDevInfo->DiscDevInfoList;
        report.clear();
        m_pDiscDevInfo->iPercent = static_cast<int>(told);
        try {
            for (auto device = found.begin(); device != found.end();) {
                const auto next = std::next(device);
                if (m_DiscoveryDeviceMap.emplace(device->szIp, device->szIp).second) {
                    ++m_uiDevNumHasMatched;
                    report.splice(report.end(), found, device);
                } else {
                    GVX_DEBUG("Device[%s] has send to scu.", device->szIp);
                }
                device = next;
            }
            m_pDiscCallback(m_pDiscDevInfo);
        } catch (const std::bad_alloc&) {
            GVX_LOG_ERR_CODE(kTitle, ZVS_ALLOC_MEMORY_ERROR, "There is no memory for a report, which is lost in part.");
        }
        if (told == kDone) {
            return;
        }
        m_discoveryTask->Wait(kBetweenReports);
    }
}

std::uint32_t CAdapterSdkBase::DiscoveryPercent() {
    const bool over = m_discoveryTask->IsOver();
    const bool stopped = m_discoveryTask->IsStopped();
    const ListGuard guard(m_UpdatePrecentMutex);
    if (m_uiPrecent != kDone && over) {
        GVX_LOG_WARN(kTitle, "The search ends at %u percent: %s.", m_uiPrecent,
                     stopped ? "it was stopped" : "it has taken DISCOVERY_MAX_SECONDS");
        m_uiPrecent = kDone;
    }
    return std::min(m_uiPrecent, kDone);
}

void CAdapterSdkBase::CleanUpDiscovery() {
    {
        const ListGuard guard(m_DevceDiscoveryInfoMutex);
        m_DevceDiscoveryInfo.clear();
    }
    {
        const ListGuard guard(m_UpdatePrecentMutex);
        m_uiPrecent = 0;
    }
    m_DiscoveryDeviceMap.clear();
    m_uiDevNumHasMatched = 0;
    m_uiDevNumNeedProbe = 0;
    m_discoveryTask
        ->Stop();  // a probe that goes on learns that it is of no use, also while the next start waits for it
    m_bIsDiscoveryRunning = false;
    GVX_LOG_INFO(kTitle, "Discovery task finish.");
}

void CAdapterSdkBase::UpdateDiscoveryPrecentSelf() {
    const ListGuard guard(m_UpdatePrecentMutex);
    if (m_uiPrecent == kDone || (m_uiDevNumNeedProbe != 0 && m_uiDevNumNeedProbe == m_uiDevNumHasMatched)) {
        m_uiPrecent = kDone;
        GVX_LOG_INFO(kTitle, "Discovery task is finished as all device[%zu] had found.", m_uiDevNumHasMatched.load());
    } else if (++m_uiProcessRateIndex < kLastTick) {
        m_uiPrecent = m_uiProcessRateIndex * kPercentPerTick;
    } else if (GetSendProbeStatus() == Send_Probe_Status_Running) {
        m_uiPrecent = kWaitsForProbes;
        GVX_LOG_INFO(kTitle, "Discovery task is running as probe task does not finish.");
    } else {
        m_uiPrecent = kDone;
        GVX_LOG_INFO(kTitle, "Discovery task is finished as time out.");
    }
    GVX_LOG_INFO(kTitle, "Send with [%u] times and precent[%u].", m_uiProcessRateIndex, m_uiPrecent);
}

void CAdapterSdkBase::UpdateDiscoveryDeviceList(DeviceDiscoveryInfo& info) {
    const ListGuard guard(m_DevceDiscoveryInfoMutex);
    if (!m_bIsDiscoveryRunning) {
        return;
    }
    try {
        m_DevceDiscoveryInfo.push_back(info);
    } catch (const std::bad_alloc&) {
        GVX_LOG_ERR_CODE(kTitle, ZVS_ALLOC_MEMORY_ERROR, "There is no memory for a device that was found.");
        return;
    }
    m_DevceDiscoveryInfo.back().szIp[sizeof info.szIp - 1] = '\0';
    GVX_DEBUG("Device[%s] has added to list.", m_DevceDiscoveryInfo.back().szIp);
}

void CAdapterSdkBase::UpdateDiscoveryPrecent(unsigned int value) {
    const ListGuard guard(m_UpdatePrecentMutex);
    m_uiPrecent = std::min(value, kDone);
    GVX_LOG_INFO(kTitle, "Precent update to [%u].", m_uiPrecent);
}

void CAdapterSdkBase::SetDiscoveryDeviceCallback(ADAPTER_DISCOVERY_DEVICE_CALLBACK* callback) {
    m_pDiscCallback = callback;
}

void CAdapterSdkBase::LoadIpWhitelist(std::list<std::pair<unsigned int, unsigned int>>& whitelist) {
    m_listIpWhitelistPair = whitelist;
}

bool CAdapterSdkBase::CheckIpInWhitelist(const std::string& address) {
    in_addr parsed{};
    if (inet_pton(AF_INET, address.c_str(), &parsed) != 1) {
        GVX_LOG_ERR_CODE("CheckIpInWhitelist", ZVS_IP_INVALID, "Address[%s] is invalid.", address.c_str());
        return false;
    }
    const unsigned int hostOrder = ntohl(parsed.s_addr);
    for (const auto& range : m_listIpWhitelistPair) {
        if (hostOrder >= range.first && hostOrder <= range.second) {
            return true;
        }
    }
    return false;
}
