#pragma once

#include <ace/Condition_Thread_Mutex.h>
#include <ace/Message_Queue.h>
#include <ace/Time_Value.h>

#include <cstddef>
#include <memory>

namespace gvx {

// An ACE queue that takes and gives many messages under one lock, and keeps them in an array with their sizes: taking a
// message touches nothing of it, where a list costs a cache line for each. What does not fit the array goes to the list
// behind it. A thread is woken only when one waits.
//
// Messages of array and list are one queue for every operation of the base class: the array stands in front. Those that
// put or take a message in the order of a priority or a deadline, and peek_dequeue_head, first move the array into the
// list and do without it from then on, since only the list knows such an order. Counts, bytes and water marks cover
// both. ACE's iterators alone do not see the array.
class BlockQueue : public ACE_Message_Queue<ACE_MT_SYNCH> {
public:
    using Base = ACE_Message_Queue<ACE_MT_SYNCH>;
    using Base::Base;
    ~BlockQueue() override;

    // Makes room for so many messages in the array; only while the queue is empty and not in use. Without memory the
    // list serves alone.
    void Reserve(std::size_t messages);

    // Puts messages at the end in their order, without a wait and without following their next(). How many; fewer with
    // errno EWOULDBLOCK when the queue is full, or ESHUTDOWN, and the others stay the caller's. With wake nobody is
    // woken: it tells whether somebody waits, and Wake is the caller's to call soon.
    std::size_t AppendSome(ACE_Message_Block* const* messages, std::size_t count, bool* wake = nullptr);
    void Wake() { not_empty_cond_.broadcast(); }
    int Append(ACE_Message_Block* message) { return AppendSome(&message, 1) == 1 ? 0 : -1; }

    // Takes the messages at the front, room at most, or those at the end beginning with the last. They become the
    // caller's. Waits for the first until deadline (time of day) and for no further one. How many; 0 with errno as
    // dequeue_head sets it.
    std::size_t TakeFirst(ACE_Message_Block** messages, std::size_t room, ACE_Time_Value deadline);
    std::size_t TakeLast(ACE_Message_Block** messages, std::size_t room, ACE_Time_Value deadline);

    int open(std::size_t highWaterMark, std::size_t lowWaterMark,
             ACE_Notification_Strategy* strategy = nullptr) override;
    int flush_i() override;
    int peek_dequeue_head(ACE_Message_Block*& first, ACE_Time_Value* timeout = nullptr) override;

protected:
    // All are called with lock_ held.
    int enqueue_i(ACE_Message_Block* message) override;
    int enqueue_deadline_i(ACE_Message_Block* message) override;
    int enqueue_tail_i(ACE_Message_Block* message) override;
    int enqueue_head_i(ACE_Message_Block* message) override;
    int dequeue_head_i(ACE_Message_Block*& message) override;
    int dequeue_tail_i(ACE_Message_Block*& message) override;
    int dequeue_prio_i(ACE_Message_Block*& message) override;
    int dequeue_deadline_i(ACE_Message_Block*& message) override;
    bool is_empty_i() override { return m_count == 0 && Base::is_empty_i(); }
    int wait_not_empty_cond(ACE_Time_Value* timeout) override;
    int signal_dequeue_waiters() override;

private:
    struct Entry {
        ACE_Message_Block* message;
        std::size_t bytes;
        std::size_t length;
    };

    bool HasArrayRoom() const { return m_useArray && m_count < m_capacity && head_ == nullptr; }
    Entry& At(std::size_t place) { return m_entries[(m_first + place) % m_capacity]; }
    void PutInArray(ACE_Message_Block* message);
    ACE_Message_Block* TakeFromArray(bool first);
    void LeaveArray();
    template <typename Take>
    std::size_t TakeSome(ACE_Message_Block** messages, std::size_t room, ACE_Time_Value& deadline, Take take);

    // All guarded by lock_.
    std::unique_ptr<Entry[]> m_entries;
    std::size_t m_capacity = 0;
    std::size_t m_first = 0;
    std::size_t m_count = 0;
    bool m_useArray = true;
    std::size_t m_waiters = 0;  // threads that wait for a message
};

}  // namespace gvx
