#include "gvx_common/media/socket_info.h"

#include "base/bounded_string.h"
#include "base/clock.h"
#include "base/log.h"
#include "gvx_common/config/setting_table.h"

#include <ace/Guard_T.h>

#include <new>
#include <thread>

namespace {

constexpr const char* kInitTitle = "[LOADING]CSocketInfoMgr::Init";

}  // namespace

void SOCKET_INFO::ResetSocketInfo() {
    protocol = TRANS_PROTOCOL_BUTS;
    enStreamType = STREAM_TYPE_BUTT;
    memset_s(chServiceID, sizeof(chServiceID), 0, sizeof(chServiceID));
    bVideoStream = false;
    audioSockDgram.set_handle(ACE_INVALID_HANDLE);
    videoSockDgram.set_handle(ACE_INVALID_HANDLE);
    audioSockStream.set_handle(ACE_INVALID_HANDLE);
    videoSockStream.set_handle(ACE_INVALID_HANDLE);
    bStopped = false;
    bGone = false;
    losses.Reset();
    unRestBegin = 0;
    unRestEnd = 0;
    parked.Clear();
    bStalled = false;
    llStalledSince = 0;
    bWaitedFor = false;
    bListed = false;
    pNextListed = nullptr;
    bNoSegments = false;
    unBatchPlace = 0;
    m_nHolders = 0;
    m_bCounted = false;
    m_pHandleOwner = nullptr;
}

void SOCKET_INFO::BeginHolding(SOCKET_INFO* handleOwner) {
    m_bCounted = true;
    m_nHolders = 1;
    m_pHandleOwner = handleOwner;
    if (handleOwner != nullptr) {
        handleOwner->Hold();
    }
}

bool SOCKET_INFO::Hold(int times) {
    if (m_bCounted) {
        m_nHolders.fetch_add(times, std::memory_order_relaxed);
    }
    return m_bCounted;
}

void SOCKET_INFO::Drop(int times) {
    if (!m_bCounted || m_nHolders.fetch_sub(times, std::memory_order_acq_rel) != times) {
        return;
    }
    SOCKET_INFO* const handleOwner = m_pHandleOwner;
    if (handleOwner == nullptr) {
        CloseSockets();
        if (bStopped) {
            CSocketInfoMgr::Instance()->EndClosing();
        }
    }
    ResetSocketInfo();
    CSocketInfoMgr::Instance()->PushSocketQueue(this);
    if (handleOwner != nullptr) {
        handleOwner->Drop();
    }
}

void SOCKET_INFO::CloseSockets() {
    // Over TCP audio and video share one socket, which stands in videoSockStream.
    if (audioSockStream.get_handle() == videoSockStream.get_handle()) {
        audioSockStream.set_handle(ACE_INVALID_HANDLE);
    }
    videoSockStream.close();
    audioSockStream.close();
    videoSockDgram.close();
    audioSockDgram.close();
}

CSocketInfoMgr* CSocketInfoMgr::Instance() {
    static CSocketInfoMgr m_instance;
    return &m_instance;
}

CSocketInfoMgr::~CSocketInfoMgr() {
    UnInit();
}

int CSocketInfoMgr::Init() {
    const auto count = static_cast<int>(gvx::SettingNumber(gvx::Setting::MAX_SOCKET_SIZE));
    ACE_GUARD_RETURN(ACE_Recursive_Thread_Mutex, guard, m_MutexSocketInfo, ZVS_FAIL);
    while (m_nBuilt < count) {
        SOCKET_INFO* info = new (std::nothrow) SOCKET_INFO;
        if (info == nullptr) {
            GVX_LOG_ERR(kInitTitle, "fail to alloc memory for SOCKET_INFO ");
            return ZVS_FAIL;
        }
        ++g_bp_memstat;
        ++m_nBuilt;
        PushSocketQueue(info);
    }
    return ZVS_SUCCEED;
}

int CSocketInfoMgr::UnInit() {
    ACE_GUARD_RETURN(ACE_Recursive_Thread_Mutex, guard, m_MutexSocketInfo, ZVS_FAIL);
    while (!m_SocketQueue.empty()) {
        delete m_SocketQueue.front();
        m_SocketQueue.pop();
        --m_nBuilt;
        --g_bp_memstat;
    }
    return ZVS_SUCCEED;
}

int CSocketInfoMgr::PopSocketQueue(SOCKET_INFO*& out) {
    out = nullptr;
    ACE_GUARD_RETURN(ACE_Recursive_Thread_Mutex, guard, m_MutexSocketInfo, ZVS_FAIL);
    if (m_SocketQueue.empty()) {
        GVX_LOG_ERR("Pop socket info", "Queue size is 0. All records that MAX_SOCKET_SIZE allows are in use.");
        return ZVS_FAIL;
    }
    if (m_SocketQueue.front() == nullptr) {
        GVX_LOG_ERR("Pop socket info", "SOCKET_INFO is NULL");
        return ZVS_FAIL;
    }
    out = m_SocketQueue.front();
    m_SocketQueue.pop();
    return ZVS_SUCCEED;
}

int CSocketInfoMgr::PushSocketQueue(SOCKET_INFO* info) {
    if (info == nullptr) {
        GVX_LOG_ERR("Push socket info", "Socket Info is NULL");
        return ZVS_FAIL;
    }
    ACE_GUARD_RETURN(ACE_Recursive_Thread_Mutex, guard, m_MutexSocketInfo, ZVS_FAIL);
    m_SocketQueue.push(info);
    return ZVS_SUCCEED;
}

std::size_t CSocketInfoMgr::GetFreeNum() {
    ACE_GUARD_RETURN(ACE_Recursive_Thread_Mutex, guard, m_MutexSocketInfo, 0);
    return m_SocketQueue.size();
}

bool CSocketInfoMgr::WaitForClosing(std::chrono::milliseconds limit) const {
    const auto areClosing = [this] { return m_nClosing.load(std::memory_order_acquire) != 0; };
    if (!areClosing()) {
        return false;
    }
    const std::int64_t end = gvx::MonotonicMilliseconds() + limit.count();
    while (areClosing() && gvx::MonotonicMilliseconds() < end) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

void gvx::LogSendFault(const SOCKET_INFO& info, int error) {
    GVX_DEBUG("Send media over socket failed send error.Sservice id:[%s], errno: %d.", info.chServiceID, error);
}
