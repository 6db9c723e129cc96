#include "gvx_common/media/gvx_stream_transmission.h"

#include "base/log.h"
#include "gvx_common/config/setting_table.h"
#include "gvx_common/media_memory/media_block_buffer.h"

#include <ace/Guard_T.h>

#include <algorithm>
#include <chrono>
#include <new>
#include <thread>

namespace {

constexpr auto kStreamWait = std::chrono::milliseconds(1000);

// A thread that finds more to send at each turn is woken less often, so there are no more than can run at a time.
unsigned int ThreadsForProcessors() {
    constexpr unsigned int kMost = 5;
    return std::clamp(std::thread::hardware_concurrency(), 1u, kMost);
}

// Keeps for good what streams that were not closed in time still use. Not even the end of the process deletes it, since
// the order in which they end then is not known.
void LeaveBehind(CStreamTransmission* transmission) {
    static auto* const leftBehind = new std::vector<CStreamTransmission*>;
    leftBehind->push_back(transmission);
}

}  // namespace

CStreamTransMgr* CStreamTransMgr::Instance() {
    // What the threads use as they end must be made before this object, so that it is destroyed behind it.
    CMediaBlockBuffer::instance();
    CSocketInfoMgr::Instance();
    static CStreamTransMgr m_instance;
    return &m_instance;
}

CStreamTransMgr::~CStreamTransMgr() {
    UnInit();
}

int CStreamTransMgr::Init() {
    ACE_GUARD_RETURN(ACE_Recursive_Thread_Mutex, guard, m_MutexQueueNum, ZVS_FAIL);
    if (m_StreamTransVct.empty()) {
        const auto number = static_cast<unsigned int>(gvx::SettingNumber(gvx::Setting::TRANSMISSION_THREAD_NUM));
        m_unTransThreadNum = number != 0 ? number : ThreadsForProcessors();
    }
    while (m_StreamTransVct.size() < m_unTransThreadNum) {
        std::unique_ptr<CStreamTransmission> transmission(new (std::nothrow) CStreamTransmission);
        if (transmission == nullptr || !transmission->IsRunning()) {
            GVX_LOG_ERR("Init stream transmission manage", " fail to alloc stream transmission thread");
            return ZVS_FAIL;
        }
        m_StreamTransVct.push_back(transmission.release());
        m_StreamNums.push_back(0);
        ++g_bp_memstat;
    }
    return ZVS_SUCCEED;
}

int CStreamTransMgr::UnInit() {
    WaitForStreams();
    std::vector<CStreamTransmission*> ending;
    std::vector<unsigned int> streams;
    {
        ACE_GUARD_RETURN(ACE_Recursive_Thread_Mutex, guard, m_MutexQueueNum, ZVS_FAIL);
        ending.swap(m_StreamTransVct);
        streams.swap(m_StreamNums);
        m_unTransThreadNum = 0;
        m_index = 0;
    }
    for (CStreamTransmission* transmission : ending) {
        transmission->RequestStop();
    }
    for (std::size_t i = 0; i < ending.size(); ++i) {
        if (streams[i] != 0) {
            ending[i]->UnInit();
            LeaveBehind(ending[i]);
            continue;
        }
        delete ending[i];
        --g_bp_memstat;
    }
    return ZVS_SUCCEED;
}

// A stream that was closed in the midst of a send lets go of its queue when that send returns.
void CStreamTransMgr::WaitForStreams() {
    const auto streams = [this] {
        const std::vector<unsigned int> nums = GetStreamNums();
        return std::count_if(nums.begin(), nums.end(), [](unsigned int num) { return num != 0; });
    };
    const auto limit = std::chrono::steady_clock::now() + kStreamWait;
    while (streams() != 0) {
        if (std::chrono::steady_clock::now() >= limit) {
            GVX_LOG_WARN("Uninit stream transmission manage", "Streams are still open.");
            return;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
}

CStreamTransmission::Queue* CStreamTransMgr::GetMediaQueue() {
    ACE_GUARD_RETURN(ACE_Recursive_Thread_Mutex, guard, m_MutexQueueNum, nullptr);
    const std::size_t threads = m_StreamTransVct.size();
    if (threads == 0) {
        GVX_LOG_ERR("Get media queue", "There is no stream transmission thread.");
        return nullptr;
    }
    std::size_t best = m_index % threads;
    for (std::size_t step = 1; step < threads; ++step) {
        const std::size_t candidate = (m_index + step) % threads;
        if (m_StreamNums[candidate] < m_StreamNums[best]) {
            best = candidate;
        }
    }
    ++m_StreamNums[best];
    m_index = static_cast<unsigned int>((best + 1) % threads);
    return m_StreamTransVct[best]->GetQueue();
}

void CStreamTransMgr::ReleaseMediaQueue(const CStreamTransmission::Queue* queue) {
    ACE_GUARD(ACE_Recursive_Thread_Mutex, guard, m_MutexQueueNum);
    for (std::size_t i = 0; i < m_StreamTransVct.size(); ++i) {
        if (m_StreamTransVct[i]->GetQueue() == queue && m_StreamNums[i] != 0) {
            --m_StreamNums[i];
            return;
        }
    }
}

unsigned int CStreamTransMgr::GetThreadNum() {
    ACE_GUARD_RETURN(ACE_Recursive_Thread_Mutex, guard, m_MutexQueueNum, 0);
    return static_cast<unsigned int>(m_StreamTransVct.size());
}

std::vector<unsigned int> CStreamTransMgr::GetStreamNums() {
    ACE_GUARD_RETURN(ACE_Recursive_Thread_Mutex, guard, m_MutexQueueNum, {});
    return m_StreamNums;
}

std::vector<CStreamTransmission::Queue*> CStreamTransMgr::GetQueues() {
    std::vector<CStreamTransmission::Queue*> queues;
    ACE_Guard<ACE_Recursive_Thread_Mutex> guard(m_MutexQueueNum);
    for (CStreamTransmission* const thread : m_StreamTransVct) {
        queues.push_back(thread->GetQueue());
    }
    return queues;
}
