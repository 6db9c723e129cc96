#pragma once

#include <ace/Condition_Thread_Mutex.h>
#include <ace/Guard_T.h>
#include <ace/Message_Queue.h>
#include <ace/Time_Value.h>

#include <cerrno>
#include <cstddef>

// The queue of one transmission thread, its only reader, which takes what is there under one lock: with a lock for each
// packet, senders and reader would pass the lock back and forth all the time. It waits only while the queue is empty,
// so only the sender that ends this signals: a signal to a reader that is awake, or waking, is time lost.
class CStreamQueue : public ACE_Message_Queue<ACE_MT_SYNCH> {
public:
    using ACE_Message_Queue<ACE_MT_SYNCH>::ACE_Message_Queue;

    // Puts a message at the end, as enqueue_tail without a wait. 0; -1 with errno EWOULDBLOCK when the queue is full, or
    // ESHUTDOWN: the message then stays the caller's. Signals when the lock is free again, so that the reader does not
    // wake only to wait for it.
    int Append(ACE_Message_Block* message) {
        bool wasEmpty = false;
        {
            ACE_GUARD_RETURN(ACE_Thread_Mutex, guard, lock_, -1);
            if (state_ == ACE_Message_Queue_Base::DEACTIVATED || is_full_i()) {
                errno = state_ == ACE_Message_Queue_Base::DEACTIVATED ? ESHUTDOWN : EWOULDBLOCK;
                return -1;
            }
            wasEmpty = is_empty_i();
            m_signal = false;
            ACE_Message_Queue<ACE_MT_SYNCH>::enqueue_tail_i(message);
            m_signal = true;
        }
        if (wasEmpty) {
            not_empty_cond_.signal();
        }
        return 0;
    }

    // Takes the messages at the front, room at most, which become the caller's. Waits for the first until deadline
    // (time of day) and for no further one. How many; 0 with errno as dequeue_head sets it.
    std::size_t DequeueSome(ACE_Message_Block** messages, std::size_t room, ACE_Time_Value deadline) {
        ACE_GUARD_RETURN(ACE_Thread_Mutex, guard, lock_, 0);
        if (state_ == ACE_Message_Queue_Base::DEACTIVATED) {
            errno = ESHUTDOWN;
            return 0;
        }
        if (wait_not_empty_cond(&deadline) == -1) {
            return 0;
        }
        std::size_t taken = 0;
        while (taken < room && !is_empty_i() && dequeue_head_i(messages[taken]) != -1) {
            ++taken;
        }
        return taken;
    }

protected:
    // Both are called with lock_ held.
    int enqueue_tail_i(ACE_Message_Block* message) override {
        m_signal = is_empty_i();
        const int result = ACE_Message_Queue<ACE_MT_SYNCH>::enqueue_tail_i(message);
        m_signal = true;
        return result;
    }
    int signal_dequeue_waiters() override {
        return m_signal ? ACE_Message_Queue<ACE_MT_SYNCH>::signal_dequeue_waiters() : 0;
    }

private:
    bool m_signal = true;  // Guarded by lock_.
};
