#include "gvx_common/adapter/gvx_adapter_lens.h"

#include "base/clock.h"
#include "base/log.h"
#include "gvx_common/adapter/gvx_reason.h"
#include "gvx_common/adapter/snapshot/snapshot_worker.h"
#include "gvx_common/config/setting_table.h"
#include "gvx_common/utility/gvx_utility.h"

#include <ace/Guard_T.h>

#include <chrono>
#include <climits>
#include <cstdint>
#include <exception>
#include <mutex>
#include <new>

#include <pthread.h>

namespace {

constexpr const char* kTitle = "Snapshot queue";
constexpr std::size_t kMaxWaiting = 5;

// In force when there is no memory to read the settings.
constexpr long long kCallLimitSeconds = 10;
constexpr long long kPauseMs = 300;

long long SettingOr(gvx::Setting setting, long long other) noexcept {
    try {
        return gvx::SettingNumber(setting);
    } catch (const std::bad_alloc&) {
        return other;
    }
}

using QueueGuard = ACE_Guard<ACE_Recursive_Thread_Mutex>;

template <typename Object>
void DeleteCounted(Object*& object) {
    if (object != nullptr) {
        delete object;
        object = nullptr;
        --g_bp_memstat;
    }
}

}  // namespace

int CAdapterLensBase::EnqueueSnapRequest(const PU_SNAP_CONF_REQ& snapReq) {
    const std::lock_guard<std::mutex> life(m_snapWorker->QueueLife());
    if (m_snapQueueThreadHandle == 0 && StartSnapQueueLocked() != ZVS_SUCCEED) {
        GVX_LOG_ERR_CODE(kTitle, ZVS_GVX_GET_SNAP_SHOT_ERROR, "StartSnapQueueThread failed");
        return ZVS_GVX_GET_SNAP_SHOT_ERROR;
    }
    const QueueGuard guard(*m_snapQueueMutex);
    if (!guard.locked()) {
        return ZVS_FAIL;
    }
    if (m_snapQueue->size() >= kMaxWaiting) {
        GVX_LOG_ERR_CODE(kTitle, ZVS_GVX_GET_SNAP_SHOT_ERROR, "snapshot queue is full, size:[%zu]",
                         m_snapQueue->size());
        return ZVS_GVX_GET_SNAP_SHOT_ERROR;
    }
    try {
        m_snapQueue->push_back(snapReq);
    } catch (const std::bad_alloc&) {
        return ZVS_GVX_GET_SNAP_SHOT_ERROR;
    }
    m_snapQueueSema->release();
    return ZVS_SUCCEED;
}

int CAdapterLensBase::MakeSnapQueue() {
    m_snapQueueMutex = new (std::nothrow) ACE_Recursive_Thread_Mutex;
    if (m_snapQueueMutex == nullptr) {
        GVX_LOG_ERR_CODE(kTitle, ZVS_ALLOC_MEMORY_ERROR, "alloc ACE_Recursive_Thread_Mutex failed");
        return ZVS_FAIL;
    }
    ++g_bp_memstat;
    m_snapQueueSema = new (std::nothrow) ACE_Thread_Semaphore(0, nullptr, nullptr, INT_MAX);
    // One for whose inside there was no memory is no semaphore.
    if (m_snapQueueSema != nullptr && m_snapQueueSema->lock().sema_ == nullptr) {
        delete m_snapQueueSema;
        m_snapQueueSema = nullptr;
    }
    if (m_snapQueueSema == nullptr) {
        GVX_LOG_ERR_CODE(kTitle, ZVS_ALLOC_MEMORY_ERROR, "alloc ACE_Thread_Semaphore failed");
        return ZVS_FAIL;
    }
    ++g_bp_memstat;
    try {
        m_snapQueue = new (std::nothrow) std::deque<PU_SNAP_CONF_REQ>;
    } catch (const std::bad_alloc&) {
        m_snapQueue = nullptr;  // it takes memory of its own when it is made
    }
    if (m_snapQueue == nullptr) {
        GVX_LOG_ERR_CODE(kTitle, ZVS_ALLOC_MEMORY_ERROR, "alloc SnapShotQueue failed");
        return ZVS_FAIL;
    }
    ++g_bp_memstat;
    return ZVS_SUCCEED;
}

void CAdapterLensBase::DeleteSnapQueue() {
    DeleteCounted(m_snapQueue);
    DeleteCounted(m_snapQueueSema);
    DeleteCounted(m_snapQueueMutex);
    m_snapQueueThreadHandle = 0;
}

int CAdapterLensBase::StartSnapQueueThread() {
    const std::lock_guard<std::mutex> life(m_snapWorker->QueueLife());
    return StartSnapQueueLocked();
}

int CAdapterLensBase::StartSnapQueueLocked() {
    if (m_snapQueueThreadHandle != 0) {
        return ZVS_SUCCEED;
    }
    if (m_snapQueueMutex != nullptr) {
        return ZVS_GVX_GET_SNAP_SHOT_ERROR;  // that of a worker which was left behind
    }
    if (MakeSnapQueue() != ZVS_SUCCEED) {
        DeleteSnapQueue();
        return ZVS_GVX_GET_SNAP_SHOT_ERROR;
    }
    if (!m_snapWorker->Spawn(&CAdapterLensBase::ProcessSnapShotQueue, this, m_snapQueueThreadHandle)) {
        GVX_LOG_ERR_CODE(kTitle, ZVS_GVX_GET_SNAP_SHOT_ERROR, "fail to start snapshot handling thread");
        DeleteSnapQueue();
        return ZVS_GVX_GET_SNAP_SHOT_ERROR;
    }
    return ZVS_SUCCEED;
}

int CAdapterLensBase::StopSnapQueueThread() {
    {
        const std::lock_guard<std::mutex> life(m_snapWorker->QueueLife());
        if (m_snapQueueThreadHandle == 0) {
            return ZVS_SUCCEED;
        }
        const QueueGuard guard(*m_snapQueueMutex);
        if (!guard.locked()) {
            return ZVS_FAIL;
        }
        m_snapQueueExit = true;
        m_snapQueueSema->release();
    }
    m_snapWorker->EndPauses();
    // Requests that come meanwhile are dropped with the queue.
    const std::chrono::milliseconds limit(SettingOr(gvx::Setting::GVX_PLUGIN_CALL_LIMIT, kCallLimitSeconds) * 1000);
    const bool ended = m_snapWorker->Join(m_snapQueueThreadHandle, limit);
    const std::lock_guard<std::mutex> life(m_snapWorker->QueueLife());
    if (ended) {
        DeleteSnapQueue();
        return ZVS_SUCCEED;
    }
    // The queue stays with its lens: the capture may still look under the mutex whether it is to end.
    m_snapQueueThreadHandle = 0;
    return GvxFail(ZVS_GVX_GET_SNAP_SHOT_ERROR,
                   "A capture of lens %s has not returned for %lld s; its worker is left behind.", m_chSubDevID,
                   static_cast<long long>(limit.count() / 1000));
}

int CAdapterLensBase::GetOneSnapRequest(PU_SNAP_CONF_REQ& snapReq, bool& queueExit) {
    GVX_CHECK_NULL_RETURN(m_snapQueueSema, ZVS_FAIL);
    m_snapQueueSema->acquire();
    const QueueGuard guard(*m_snapQueueMutex);
    if (m_snapQueueExit) {
        GVX_LOG_INFO(kTitle, "snap queue is exiting");
        queueExit = true;
        return ZVS_FAIL;
    }
    if (m_snapQueue->empty()) {
        return ZVS_FAIL;
    }
    snapReq = m_snapQueue->front();
    m_snapQueue->pop_front();
    GVX_DEBUG("get snapshot request from queue success");
    return ZVS_SUCCEED;
}

bool CAdapterLensBase::OnCheckSnapShotRequest(const PU_SNAP_CONF_REQ& snapReq) {
    constexpr std::uint64_t kMaxAgeMs = 1000;
    const std::uint64_t nowMs = static_cast<std::uint64_t>(gvx::CurrentClock().WallMicroseconds()) / 1000;
    if (nowMs - snapReq.timeStamp <= kMaxAgeMs) {  // unsigned: a time in the future is far too old
        return true;
    }
    GVX_LOG_ERR("OnCheckSnapShotRequest", "snapshot request has delayed more than 1 second, drop it");
    return false;
}

int CAdapterLensBase::ProcessSnapShotQueue(void* arg) {
    GVX_CHECK_NULL_RETURN(arg, ZVS_NULL_POINTER);
    CGvxUtility::pthreadSetThreadname(pthread_self(), "AdapterSnapShotThread");
    static_cast<CAdapterLensBase*>(arg)->ServeSnapQueue();
    GVX_LOG_INFO(kTitle, "snap queue thread will exit");
    return ZVS_SUCCEED;
}

void CAdapterLensBase::ServeSnapQueue() {
    const std::shared_ptr<gvx::SnapshotWorker::Run> run = m_snapWorker->CurrentRun();
    bool queueExit = false;
    while (!queueExit) {
        PU_SNAP_CONF_REQ request{};
        if (GetOneSnapRequest(request, queueExit) != ZVS_SUCCEED || !run->BeginCapture()) {
            continue;
        }
        const bool captured = Capture(request);
        if (!run->EndCapture()) {
            return;  // the lens may be gone
        }
        if (captured) {
            run->Pause(std::chrono::milliseconds(SettingOr(gvx::Setting::EveryIPC_CapInterval, kPauseMs)));
        }
    }
}

bool CAdapterLensBase::Capture(const PU_SNAP_CONF_REQ& request) {
    try {
        if (!OnCheckSnapShotRequest(request)) {
            return false;
        }
        const int result = VcuSnapShotReqInfo(request);
        if (result == ZVS_SUCCEED) {
            GVX_LOG_INFO(kTitle, "VcuSnapShotReqInfo success");
        } else {
            GVX_LOG_ERR_CODE(kTitle, result, "VcuSnapShotReqInfo failed");
        }
        return result == ZVS_SUCCEED;
    } catch (const std::exception& fault) {
        GVX_LOG_ERR_CODE(kTitle, ZVS_GVX_PLUGIN_EXCEPTION, "VcuSnapShotReqInfo failed: %s", fault.what());
    } catch (...) {
        GVX_LOG_ERR_CODE(kTitle, ZVS_GVX_PLUGIN_EXCEPTION, "VcuSnapShotReqInfo failed");
    }
    return false;
}
