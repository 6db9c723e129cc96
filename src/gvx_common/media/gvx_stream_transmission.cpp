#include "gvx_common/media/gvx_stream_transmission.h"

#include "base/clock.h"
#include "base/log.h"
#include "gvx_common/config/gvx_config_mgr.h"
#include "gvx_common/media_memory/media_block_buffer.h"

#include <ace/Message_Block.h>
#include <ace/OS_NS_Thread.h>
#include <ace/OS_NS_sys_time.h>
#include <ace/OS_NS_unistd.h>
#include <ace/Thread.h>
#include <ace/Thread_Manager.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <new>

#include <pthread.h>
#include <sys/socket.h>

namespace {

constexpr std::size_t kFirstQueueMark = 16384;
constexpr std::size_t kQueueMark = 0x9600000;
constexpr std::size_t kThreadStackSize = 8388608;
constexpr const char* kThreadName = "StreamTrans";
constexpr suseconds_t kDequeueWaitUs = 50000;
constexpr suseconds_t kSendTimeoutUs = 2000;
constexpr unsigned int kMaxSendIntervalMs = 1000;  // the thread must notice that it is to end
constexpr std::int64_t kStallLimitMs = 2000;
constexpr std::int64_t kFlushIntervalMs = 5;
constexpr std::size_t kRestListRoom = 64;

unsigned int ConfNumber(const char* key, const char* defaultValue) {
    return static_cast<unsigned int>(std::atoi(GvxConfigMgr()->GetConfValue(key, defaultValue).c_str()));
}

// What a signal does is set for the whole process. SIGINT is ignored so that Ctrl-C in the terminal does not kill the
// process in the midst of a packet; but a program that handles SIGINT, by a handler or by waiting for it blocked, does
// so to stop in good order, and would never hear of it any more if it were ignored here too.
void IgnoreSignals() {
    std::signal(SIGPIPE, SIG_IGN);
    sigset_t blocked;
    struct sigaction action {};
    if (pthread_sigmask(SIG_BLOCK, nullptr, &blocked) == 0 && sigismember(&blocked, SIGINT) == 0 &&
        sigaction(SIGINT, nullptr, &action) == 0 && action.sa_handler == SIG_DFL) {
        std::signal(SIGINT, SIG_IGN);
    }
}

// The record of a queued block; null when the block does not hold one.
SOCKET_INFO* RecordOf(const ACE_Message_Block& block) {
    SOCKET_INFO* record = nullptr;
    if (block.length() >= sizeof(record)) {
        std::memcpy(&record, block.rd_ptr(), sizeof(record));
    }
    return record;
}

void LogSendFailure(const SOCKET_INFO& info, int error) {
    GVX_DEBUG("Send media over socket failed send error.Sservice id:[%s], errno: %d.", info.chServiceID, error);
}

}  // namespace

CMediaBlockBuffer* CStreamTransmission::s_pMediaBlockBuff = nullptr;

CStreamTransmission::CStreamTransmission()
    : m_StreamQueue(kFirstQueueMark, kFirstQueueMark), m_SendTimeout(0, kSendTimeoutUs) {
    Init();
}

CStreamTransmission::~CStreamTransmission() {
    UnInit();
}

int CStreamTransmission::Init() {
    m_StreamQueue.close();
    if (m_StreamQueue.open(kQueueMark, kQueueMark) == -1) {
        return ZVS_FAIL;
    }
    msg_queue(&m_StreamQueue);
    s_pMediaBlockBuff = CMediaBlockBuffer::instance();
    m_ulBalanceCoeff = ConfNumber("STREAM_SMOOTH_COEFF", "0");
    m_ulSendFixedNum = ConfNumber("MEDIA_SEND_FIXED_NUM", "10");
    m_ulMediaSendInterval = std::min(ConfNumber("MEDIA_SEND_INTERVAL", "5"), kMaxSendIntervalMs);
    m_RestStreams.reserve(kRestListRoom);
    // Made before the thread starts, so that whoever ends the thread always finds it.
    m_pStreamTransSmp.reset(new (std::nothrow) ACE_Thread_Semaphore(0));
    GVX_CHECK_NULL_RETURN(m_pStreamTransSmp, ZVS_FAIL);
    m_bRunning = true;
    std::size_t stackSize = kThreadStackSize;
    const char* name = kThreadName;
    if (activate(THR_NEW_LWP | THR_DETACHED | THR_INHERIT_SCHED, 1, 0, ACE_DEFAULT_THREAD_PRIORITY, -1, nullptr,
                 nullptr, nullptr, &stackSize, nullptr, &name) == -1) {
        m_bRunning = false;
        m_pStreamTransSmp.reset();
        return ZVS_FAIL;
    }
    return ZVS_SUCCEED;
}

int CStreamTransmission::UnInit() {
    m_bRunning = false;
    if (m_pStreamTransSmp != nullptr) {
        GVX_LOG_INFO("Stream transfer thread ", "Begin to uninit...");
        m_pStreamTransSmp->acquire();
    }
    WaitForThreadEnd();
    m_pStreamTransSmp.reset();
    DropRests();
    m_StreamQueue.high_water_mark(0);  // a stream that is still open gets nothing in any more
    DrainQueue();
    m_StreamQueue.close();
    return ZVS_SUCCEED;
}

// The semaphore tells that the loop has ended; the thread then still leaves through the base class, which counts it off
// and calls close() on this object. The thread manager lets go of it only after that.
void CStreamTransmission::WaitForThreadEnd() {
    while (thr_mgr() != nullptr && thr_mgr()->num_threads_in_task(this) > 0) {
        ACE_Thread::yield();
    }
}

int CStreamTransmission::svc() {
    pthread_setname_np(pthread_self(), kThreadName);
    IgnoreSignals();
    while (m_bRunning) {
        SendRound();
    }
    m_pStreamTransSmp->release();
    GVX_LOG_INFO("Stream transfer thread ", "End...");
    return ZVS_SUCCEED;
}

unsigned int CStreamTransmission::GetBatch(std::size_t count) const {
    if (m_ulBalanceCoeff == 0) {
        return 0;
    }
    return static_cast<unsigned int>(std::min(count / m_ulBalanceCoeff + m_ulSendFixedNum, count));
}

void CStreamTransmission::SendRound() {
    const unsigned int batch = m_ulBalanceCoeff == 0 ? 0 : GetBatch(m_StreamQueue.message_count());
    unsigned int served = 0;
    do {
        ACE_Time_Value deadline = ACE_OS::gettimeofday() + ACE_Time_Value(0, kDequeueWaitUs);
        ACE_Message_Block* message = nullptr;
        if (m_StreamQueue.dequeue_head(message, &deadline) == -1) {
            const int error = errno;
            if (error != EAGAIN) {
                GVX_LOG_ERR("Onvif stream info trans stream thread.", "stream queue dequeue error: %d", error);
                ACE_OS::sleep(ACE_Time_Value(0, kDequeueWaitUs));  // a broken queue must not take the processor
            }
            break;
        }
        ServeMessage(message);
        ++served;
    } while (batch > served);
    if (!m_RestStreams.empty()) {
        FlushRests();
    }
    if (batch != 0) {
        ACE_OS::sleep(ACE_Time_Value(0, static_cast<suseconds_t>(m_ulMediaSendInterval) * 1000));
    }
}

void CStreamTransmission::ServeMessage(ACE_Message_Block* message) {
    for (const ACE_Message_Block* block = message; block != nullptr; block = block->cont()) {
        ServeBlock(*block);
    }
    s_pMediaBlockBuff->freeMediaBlock(message);
}

void CStreamTransmission::ServeBlock(const ACE_Message_Block& block) {
    SOCKET_INFO* record = RecordOf(block);
    if (record == nullptr) {
        DoSendVideoFrame(nullptr, nullptr, 0);
        return;
    }
    if (!record->bStopped.load(std::memory_order_relaxed)) {
        DoSendVideoFrame(&record, block.rd_ptr() + sizeof(record),
                         static_cast<unsigned int>(block.length() - sizeof(record)));
    }
    record->Drop();
}

int CStreamTransmission::DoSendVideoFrame(SOCKET_INFO** ppSock, const char* buf, unsigned int len) {
    if (ppSock == nullptr || *ppSock == nullptr || buf == nullptr) {
        GVX_LOG_ERR("Do send video frame", "Socket info is null");
        return ZVS_FAIL;
    }
    SOCKET_INFO& info = **ppSock;
    if (info.protocol == RTP_OVER_TCP && info.videoSockStream.get_handle() != ACE_INVALID_HANDLE) {
        SendOverTcp(info, buf, len);
        return ZVS_SUCCEED;
    }
    if (info.protocol != RTP_OVER_UDP || info.videoSockDgram.get_handle() == ACE_INVALID_HANDLE ||
        info.audioSockDgram.get_handle() == ACE_INVALID_HANDLE) {
        return ZVS_SUCCEED;
    }
    unsigned int left = len;
    while (true) {
        const ssize_t sent = SendDatagram(info, buf, left);
        if (sent == -1) {
            info.ulDropped.fetch_add(1, std::memory_order_relaxed);
            LogSendFailure(info, errno);
            return ZVS_SUCCEED;
        }
        left -= static_cast<unsigned int>(sent);
        if (left < 1) {
            return ZVS_SUCCEED;
        }
        buf += sent;
    }
}

ssize_t CStreamTransmission::SendDatagram(SOCKET_INFO& info, const char* buf, unsigned int len) const {
    return info.bVideoStream ? info.videoSockDgram.send(buf, len, info.videoDstAddr, MSG_NOSIGNAL)
                             : info.audioSockDgram.send(buf, len, info.audioDstAddr, MSG_NOSIGNAL);
}

bool CStreamTransmission::IsSockErrorOk(int error) {
    return error == EAGAIN || error == EINTR || error == ETIME || error == ENOBUFS || error == ENOMEM;
}

// One try without waiting, which nearly always suffices. Only when it finds no room, and the packet before did, is
// the stated time waited: a stream that stands still costs the others of this thread nothing.
void CStreamTransmission::SendOverTcp(SOCKET_INFO& info, const char* buf, unsigned int len) {
    if (info.bGone.load(std::memory_order_relaxed) || !SendRest(info)) {
        info.ulDropped.fetch_add(1, std::memory_order_relaxed);
        return;
    }
    ssize_t result = ::send(info.videoSockStream.get_handle(), buf, len, MSG_DONTWAIT | MSG_NOSIGNAL);
    int error = result < 0 ? errno : 0;
    std::size_t done = result > 0 ? static_cast<std::size_t>(result) : 0;
    if (done < len && !info.bStalled && (result >= 0 || IsSockErrorOk(error))) {
        std::size_t more = 0;
        result = info.videoSockStream.send_n(buf + done, len - done, MSG_NOSIGNAL, &m_SendTimeout, &more);
        error = result < 0 ? errno : 0;
        done += more;
    }
    const bool stalledBefore = info.bStalled;
    info.bStalled = done < len;
    if (done == len) {
        return;
    }
    LogSendFailure(info, error);
    if (error != 0 && !IsSockErrorOk(error)) {
        info.bGone = true;
    }
    if (done != 0) {
        KeepRest(info, buf + done, len - done);
        return;
    }
    info.ulDropped.fetch_add(1, std::memory_order_relaxed);
    if (stalledBefore) {
        CheckStall(info);
    } else {
        info.llStalledSince = gvx::MonotonicMilliseconds();
    }
}

void CStreamTransmission::CheckStall(SOCKET_INFO& info) {
    if (!info.bGone && gvx::MonotonicMilliseconds() - info.llStalledSince >= kStallLimitMs) {
        GVX_LOG_WARN("Stream transfer thread ", "Stream[%s] takes no data any more and counts as gone.",
                     info.chServiceID);
        info.bGone = true;
    }
}

void CStreamTransmission::KeepRest(SOCKET_INFO& info, const char* buf, std::size_t len) {
    if (len > info.szRest.size()) {  // no block is that long; without its rest the framing would be lost
        info.bGone = true;
        return;
    }
    std::memcpy(info.szRest.data(), buf, len);
    info.unRestBegin = 0;
    info.unRestEnd = len;
    info.llStalledSince = gvx::MonotonicMilliseconds();
    if (!info.bRestListed && info.Hold()) {
        info.bRestListed = true;
        m_RestStreams.push_back(&info);
    }
}

// True when the stream has no rest, or has none any more.
bool CStreamTransmission::SendRest(SOCKET_INFO& info) {
    if (info.unRestBegin == info.unRestEnd) {
        return true;
    }
    const ssize_t sent = ::send(info.videoSockStream.get_handle(), info.szRest.data() + info.unRestBegin,
                                info.unRestEnd - info.unRestBegin, MSG_DONTWAIT | MSG_NOSIGNAL);
    if (sent < 0 && !IsSockErrorOk(errno)) {
        LogSendFailure(info, errno);
        info.bGone = true;
        return false;
    }
    info.unRestBegin += sent > 0 ? static_cast<std::size_t>(sent) : 0;
    if (info.unRestBegin == info.unRestEnd) {
        info.bStalled = false;
        return true;
    }
    CheckStall(info);
    return false;
}

// Rests also leave, and streams also count as gone, while no further packet comes.
void CStreamTransmission::FlushRests() {
    const std::int64_t now = gvx::MonotonicMilliseconds();
    if (now < m_llNextFlush) {
        return;
    }
    m_llNextFlush = now + kFlushIntervalMs;
    const auto finished = [this](SOCKET_INFO* info) {
        if (!info->bStopped && !info->bGone && !SendRest(*info) && !info->bGone) {
            return false;
        }
        info->bRestListed = false;
        info->Drop();
        return true;
    };
    m_RestStreams.erase(std::remove_if(m_RestStreams.begin(), m_RestStreams.end(), finished), m_RestStreams.end());
}

void CStreamTransmission::DropRests() {
    for (SOCKET_INFO* info : m_RestStreams) {
        info->bRestListed = false;
        info->Drop();
    }
    m_RestStreams.clear();
}

void CStreamTransmission::DrainQueue() {
    ACE_Message_Block* message = nullptr;
    ACE_Time_Value now = ACE_Time_Value::zero;
    while (m_StreamQueue.dequeue_head(message, &now) != -1) {
        for (const ACE_Message_Block* block = message; block != nullptr; block = block->cont()) {
            SOCKET_INFO* record = RecordOf(*block);
            if (record != nullptr) {
                record->Drop();
            }
        }
        s_pMediaBlockBuff->freeMediaBlock(message);
    }
}
