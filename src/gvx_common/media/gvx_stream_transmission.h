#pragma once

#include "gvx_common/media/packet_batch.h"
#include "gvx_common/media/socket_info.h"
#include "gvx_common/media/socket_write.h"
#include "gvx_common/media/stream_sender.h"
#include "gvx_common/media_memory/block_queue.h"

#include <ace/Recursive_Thread_Mutex.h>
#include <ace/Task.h>
#include <ace/Thread_Semaphore.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <memory>
#include <vector>

class CMediaBlockBuffer;

// One thread with one queue that writes ready packets to sockets, so that no device-facing thread waits for one.
//
// A queue message is a block of CMediaBlockBuffer, perhaps with more behind it through cont(). The readable bytes of
// each are a SOCKET_INFO* in native form and then the bytes to send. Any thread may enqueue; the queue takes the
// block over and the thread gives it back to the pool. A record that counts its holders is held once for each block.
// The thread takes what is queued, up to a bound, and lets the packets of one stream leave together.
class CStreamTransmission : public ACE_Task<ACE_MT_SYNCH> {
public:
    using Queue = gvx::BlockQueue;

    // Makes the queue and starts the thread; IsRunning tells whether that worked.
    CStreamTransmission();
    ~CStreamTransmission() override;
    CStreamTransmission(const CStreamTransmission&) = delete;
    CStreamTransmission& operator=(const CStreamTransmission&) = delete;

    // Called by the constructor. 0, or 1 when the queue, the semaphore or the thread could not be made.
    int Init();

    // Tells the thread to end and does not wait, so that many threads can end at the same time.
    void RequestStop() { m_bRunning = false; }

    // Ends the thread, waits for it, gives what is still queued back to the pool and closes the queue. May be called
    // again; not from the thread itself.
    int UnInit();

    int svc() override;

    // Sends one packet by the record's protocol. 1 when an argument is null; else 0, also when the packet was lost.
    // What finds no room waits in the record and goes first next time; see gvx::StreamSender. Called by the thread of
    // this object, or by any one thread with records that count no holders while it serves no packet of the same one.
    int DoSendVideoFrame(SOCKET_INFO** ppSock, const char* buf, unsigned int len);

    bool IsRunning() const { return m_bRunning; }
    Queue* GetQueue() { return &m_StreamQueue; }

    // Packets of one round when count are queued: 0 turns pacing off.
    unsigned int GetBatch(std::size_t count) const;

    // True when a send that failed with this errno leaves the stream usable.
    static bool IsSockErrorOk(int error) { return gvx::IsRoomError(error); }

private:
    void WaitForThreadEnd();
    void SendRound();
    void Pause();
    std::size_t TakeMessages(std::size_t wanted);
    void ServeMessages(std::size_t count);
    void SendBatch();
    void SendPackets(SOCKET_INFO& info, const iovec* packets, std::size_t count);
    void DrainQueue();

    std::atomic<bool> m_bRunning{false};
    unsigned int m_ulBalanceCoeff = 0;       // STREAM_SMOOTH_COEFF
    unsigned int m_ulSendFixedNum = 0;       // MEDIA_SEND_FIXED_NUM
    unsigned int m_ulMediaSendInterval = 0;  // MEDIA_SEND_INTERVAL, milliseconds
    static CMediaBlockBuffer* s_pMediaBlockBuff;
    const ACE_Time_Value m_SendTimeout{0, 2000};  // how long a stream without room may hold up the others
    Queue m_StreamQueue;
    std::unique_ptr<ACE_Thread_Semaphore> m_pStreamTransSmp;  // released by the thread as it ends

    // Only the thread of this object uses these, and whoever calls DoSendVideoFrame in its place.
    std::array<ACE_Message_Block*, gvx::PacketBatch::kRoom> m_taken{};
    gvx::PacketBatch m_batch;
    gvx::StreamSender m_sender;
};

// Makes the transmission threads and shares them out. A stream takes a queue once and keeps it, so that its packets
// stay in order, and gives it back when it ends. Any thread; Init and UnInit from the one that starts and stops.
class CStreamTransMgr {
public:
    static CStreamTransMgr* Instance();

    // Starts TRANSMISSION_THREAD_NUM threads (default 5, at most 64; 0: as many as there are processors, at most 5). 0;
    // 1 when one could not be made, with those made before left running: a further call makes those that are missing.
    // Does nothing when all are there.
    int Init();

    // Ends and deletes all threads. Streams must be closed before; those in the midst of a send are waited for, 1 s at
    // most. The thread of a stream that is still open then ends all the same, but its object stays behind for good:
    // the stream goes on to use its queue, which refuses its packets.
    int UnInit();

    // The queue of the least loaded thread, which from now on counts one stream more; null without threads.
    CStreamTransmission::Queue* GetMediaQueue();

    // A stream that took this queue has ended.
    void ReleaseMediaQueue(const CStreamTransmission::Queue* queue);

    unsigned int GetThreadNum();

    // Streams on each thread, in the order of the threads.
    std::vector<unsigned int> GetStreamNums();
    // The threads' queues in the same order; theirs, until UnInit.
    std::vector<CStreamTransmission::Queue*> GetQueues();

private:
    CStreamTransMgr() = default;
    ~CStreamTransMgr();

    void WaitForStreams();

    // All guarded by m_MutexQueueNum.
    std::vector<CStreamTransmission*> m_StreamTransVct;  // owned
    std::vector<unsigned int> m_StreamNums;              // streams on each thread
    unsigned int m_index = 0;                            // where the search for the least loaded begins
    unsigned int m_unTransThreadNum = 0;
    ACE_Recursive_Thread_Mutex m_MutexQueueNum;
};
