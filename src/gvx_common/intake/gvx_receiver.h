#pragma once

#include <ace/Message_Queue_T.h>
#include <ace/Reactor.h>
#include <ace/SOCK_Stream.h>
#include <ace/Svc_Handler.h>
#include <ace/Time_Value.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <new>

// What stands ahead of the bytes in every block that a receiver posts. Number in host order.
struct GVX_RECEIVED_HEAD {
    char peerAddr[16];    // peer's address as text, zero-padded
    char recvTime[20];    // time of reception, UTC, "YYYYMMDDhhmmss", zero-padded
    std::int32_t length;  // bytes that follow, 1 to 1024
};
static_assert(sizeof(GVX_RECEIVED_HEAD) == 40 && offsetof(GVX_RECEIVED_HEAD, recvTime) == 16 &&
                  offsetof(GVX_RECEIVED_HEAD, length) == 36,
              "consumers read the head by its offsets");

using GvxReceiverQueue = ACE_Message_Queue<ACE_MT_SYNCH, ACE_System_Time_Policy>;

// One connection of a device that pushes bytes. Each read becomes one ACE_Message_Block, a GVX_RECEIVED_HEAD and the
// bytes, on the owner's queue; what reads cut or join is the consumer's business. The peer's port, by which the
// consumer may tell two connections of one address apart, is the block's msg_priority. Who takes a block from the queue
// releases it.
//
// A connection that is silent for more than 30 seconds is closed by a check that runs every 30 seconds; one that has
// never sent goes at the first check. A queue that stays full for 3 seconds loses the block and keeps the connection.
//
// Everything runs on the reactor's thread, which posting to a full queue holds up. An object of its own deletes itself
// when it closes.
class CGVXReceiver : public ACE_Svc_Handler<ACE_SOCK_Stream, ACE_MT_SYNCH> {
public:
    static constexpr std::size_t kMaxRead = 1024;

    // Without a queue, for whoever makes receivers by ACE's own strategies: the first data closes the connection.
    explicit CGVXReceiver(ACE_Thread_Manager* threadManager = nullptr, ACE_Reactor* reactor = ACE_Reactor::instance());
    // The queue is not owned and outlives every receiver.
    CGVXReceiver(GvxReceiverQueue* queue, ACE_Reactor* reactor);
    CGVXReceiver(const CGVXReceiver&) = delete;
    CGVXReceiver& operator=(const CGVXReceiver&) = delete;
    ~CGVXReceiver() override;

    // They call those of the base, which note that the object is on the heap; the base's destroy asks for that. They
    // are not inline, because the compiler would then take new and delete for a pair that does not match.
    static void* operator new(std::size_t size);
    static void* operator new(std::size_t size, const std::nothrow_t&) noexcept;
    static void operator delete(void* memory);
    static void operator delete(void* memory, const std::nothrow_t&) noexcept;

    // 0, or -1 when the reactor does not take the handler.
    int open(void* arg = nullptr) override;
    // 0, or -1 to have the reactor close the connection.
    int handle_input(ACE_HANDLE handle = ACE_INVALID_HANDLE) override;
    int handle_timeout(const ACE_Time_Value& now, const void* arg = nullptr) override;
    int handle_close(ACE_HANDLE handle = ACE_INVALID_HANDLE,
                     ACE_Reactor_Mask mask = ACE_Event_Handler::ALL_EVENTS_MASK) override;

    // Takes the handler and its timers out of the reactor.
    void CleanUpReactor();

    // Receivers that there are in the process. Any thread.
    static std::size_t Count() { return s_count.load(std::memory_order_relaxed); }

private:
    using Base = ACE_Svc_Handler<ACE_SOCK_Stream, ACE_MT_SYNCH>;

    void ReadPeerAddress();
    int PostData(const char* data, std::size_t length);
    bool FillBlock(ACE_Message_Block& block, const char* data, std::size_t length) const;

    static std::atomic<std::size_t> s_count;

    int m_peerPort = 0;
    char m_peerAddr[16] = {};
    GvxReceiverQueue* m_queue = nullptr;  // not owned
    ACE_Time_Value m_lastRecvTime;        // time of day; zero until the first data
};
