#include "gvx_common/media/gvx_stream_transmission.h"

#include "base/log.h"
#include "base/shortage.h"
#include "gvx_common/config/setting_table.h"
#include "gvx_common/media_memory/media_block_buffer.h"

#include <ace/Message_Block.h>
#include <ace/OS_NS_Thread.h>
#include <ace/OS_NS_sys_time.h>
#include <ace/OS_NS_unistd.h>
#include <ace/Thread.h>
#include <ace/Thread_Manager.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <new>
#include <thread>

#include <pthread.h>

namespace {

constexpr std::size_t kFirstQueueMark = 16384;
constexpr std::size_t kQueueMark = 0x9600000;
constexpr std::size_t kQueueArray = 4096;  // messages; as many as half of the usual blocks
constexpr std::size_t kThreadStackSize = 8388608;
constexpr const char* kThreadName = "StreamTrans";
constexpr suseconds_t kDequeueWaitUs = 50000;

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

// The blocks were written on another processor: head, data block and data are on their way before they are read.
inline void FetchAhead(ACE_Message_Block* const* messages, std::size_t at, std::size_t count) {
    constexpr std::size_t kStep = 4;
    if (at + 3 * kStep < count) {
        __builtin_prefetch(messages[at + 3 * kStep]);
    }
    if (at + 2 * kStep < count) {
        __builtin_prefetch(messages[at + 2 * kStep]->data_block());
    }
    if (at + kStep < count) {
        __builtin_prefetch(messages[at + kStep]->rd_ptr());
    }
}

}  // namespace

CMediaBlockBuffer* CStreamTransmission::s_pMediaBlockBuff = nullptr;

CStreamTransmission::CStreamTransmission() : m_StreamQueue(kFirstQueueMark, kFirstQueueMark) {
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
    m_StreamQueue.Reserve(kQueueArray);
    msg_queue(&m_StreamQueue);
    s_pMediaBlockBuff = CMediaBlockBuffer::instance();
    m_ulBalanceCoeff = static_cast<unsigned int>(gvx::SettingNumber(gvx::Setting::STREAM_SMOOTH_COEFF));
    m_ulSendFixedNum = static_cast<unsigned int>(gvx::SettingNumber(gvx::Setting::MEDIA_SEND_FIXED_NUM));
    // At most a second: the thread must notice that it is to end.
    m_ulMediaSendInterval = static_cast<unsigned int>(gvx::SettingNumber(gvx::Setting::MEDIA_SEND_INTERVAL));
    m_sender.SetParkBytes(static_cast<std::size_t>(gvx::SettingNumber(gvx::Setting::MEDIA_PARK_BYTES)));
    // Made before the thread starts, so that whoever ends the thread always finds it.
    m_pStreamTransSmp.reset(new (std::nothrow) ACE_Thread_Semaphore(0));
    GVX_CHECK_NULL_RETURN(m_pStreamTransSmp, ZVS_FAIL);
    m_bRunning = true;
    // Without a name: to give it to a thread that runs takes a descriptor, and activate would fail for want of one
    // although the thread is there. It names itself.
    std::size_t stackSize = kThreadStackSize;
    if (!gvx::FindsMemory(stackSize) ||
        activate(THR_NEW_LWP | THR_DETACHED | THR_INHERIT_SCHED, 1, 0, ACE_DEFAULT_THREAD_PRIORITY, -1, nullptr,
                 nullptr, nullptr, &stackSize) == -1) {
        gvx::NoteShortage(gvx::Resource::Thread, errno);
        m_bRunning = false;
        m_pStreamTransSmp.reset();
        return ZVS_FAIL;
    }
    return ZVS_SUCCEED;
}

int CStreamTransmission::UnInit() {
    m_bRunning = false;
    if (m_pStreamTransSmp != nullptr) {
        GVX_LOG(OM_LOG_DEBUG, "Stream transfer thread ", "Begin to uninit...");
        m_pStreamTransSmp->acquire();
    }
    WaitForThreadEnd();
    m_pStreamTransSmp.reset();
    m_sender.LoseWaiting();
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
    GVX_LOG(OM_LOG_DEBUG, "Stream transfer thread ", "End...");
    return ZVS_SUCCEED;
}

unsigned int CStreamTransmission::GetBatch(std::size_t count) const {
    if (m_ulBalanceCoeff == 0) {
        return 0;
    }
    return static_cast<unsigned int>(std::min(count / m_ulBalanceCoeff + m_ulSendFixedNum, count));
}

// Without pacing a round has no bound but the room for what is taken. With it, a round that begins with an empty queue
// serves one message, so that the next one sees how deep the queue has become.
void CStreamTransmission::SendRound() {
    const unsigned int batch = m_ulBalanceCoeff == 0 ? 0 : GetBatch(m_StreamQueue.message_count());
    const std::size_t wanted = m_ulBalanceCoeff == 0 ? m_taken.size() : std::max(batch, 1u);
    std::size_t served = 0;
    do {
        const std::size_t taken = TakeMessages(std::min(wanted - served, m_taken.size()));
        if (taken == 0) {
            break;
        }
        ServeMessages(taken);
        served += taken;
    } while (batch > served);
    m_sender.SendWaiting();
    if (batch != 0) {
        Pause();
    }
}

// Between two batches. What waits for room is none of the pacing's business and is tried all the while.
void CStreamTransmission::Pause() {
    using Clock = std::chrono::steady_clock;
    constexpr std::chrono::milliseconds kRetry(gvx::StreamSender::kRetryMs);
    const Clock::time_point end = Clock::now() + std::chrono::milliseconds(m_ulMediaSendInterval);
    while (m_sender.HasWaiting() && m_bRunning && Clock::now() + kRetry < end) {
        std::this_thread::sleep_for(kRetry);
        m_sender.SendWaiting();
    }
    std::this_thread::sleep_until(end);
}

std::size_t CStreamTransmission::TakeMessages(std::size_t wanted) {
    const suseconds_t wait = m_sender.HasWaiting() ? gvx::StreamSender::kRetryMs * 1000 : kDequeueWaitUs;
    const ACE_Time_Value deadline = ACE_OS::gettimeofday() + ACE_Time_Value(0, wait);
    const std::size_t taken = m_StreamQueue.TakeFirst(m_taken.data(), wanted, deadline);
    if (taken != 0) {
        return taken;
    }
    const int error = errno;
    if (error != EAGAIN) {
        GVX_LOG_ERR("Onvif stream info trans stream thread.", "stream queue dequeue error: %d", error);
        ACE_OS::sleep(ACE_Time_Value(0, kDequeueWaitUs));  // a broken queue must not take the processor
    }
    return 0;
}

void CStreamTransmission::ServeMessages(std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        FetchAhead(m_taken.data(), i, count);
        for (const ACE_Message_Block* block = m_taken[i]; block != nullptr; block = block->cont()) {
            SOCKET_INFO* record = RecordOf(*block);
            if (record == nullptr) {
                DoSendVideoFrame(nullptr, nullptr, 0);
                continue;
            }
            if (m_batch.IsFull()) {
                SendBatch();
            }
            m_batch.Add(*record, block->rd_ptr() + sizeof(record), block->length() - sizeof(record));
        }
    }
    SendBatch();
    s_pMediaBlockBuff->freeMediaBlocks(m_taken.data(), count);
}

void CStreamTransmission::SendBatch() {
    m_batch.Drain([this](SOCKET_INFO& record, const iovec* packets, std::size_t count) {
        if (!record.bStopped.load(std::memory_order_relaxed)) {
            SendPackets(record, packets, count);
        }
        record.Drop(static_cast<int>(count));
    });
}

// A record with another protocol, or without its sockets, sends nothing, and that is no fault.
void CStreamTransmission::SendPackets(SOCKET_INFO& info, const iovec* packets, std::size_t count) {
    const bool canSend = info.protocol == RTP_OVER_TCP   ? info.videoSockStream.get_handle() != ACE_INVALID_HANDLE
                         : info.protocol == RTP_OVER_UDP ? info.videoSockDgram.get_handle() != ACE_INVALID_HANDLE &&
                                                               info.audioSockDgram.get_handle() != ACE_INVALID_HANDLE
                                                         : false;
    if (canSend) {
        m_sender.Send(info, packets, count, m_SendTimeout);
    }
}

int CStreamTransmission::DoSendVideoFrame(SOCKET_INFO** ppSock, const char* buf, unsigned int len) {
    if (ppSock == nullptr || *ppSock == nullptr || buf == nullptr) {
        GVX_LOG_ERR("Do send video frame", "Socket info is null");
        return ZVS_FAIL;
    }
    const iovec packet{const_cast<char*>(buf), len};
    SendPackets(**ppSock, &packet, 1);
    return ZVS_SUCCEED;
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
