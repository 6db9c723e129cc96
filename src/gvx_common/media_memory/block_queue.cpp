#include "gvx_common/media_memory/block_queue.h"

#include <ace/Guard_T.h>
#include <ace/Message_Block.h>

#include <algorithm>
#include <cerrno>
#include <new>

namespace gvx {

BlockQueue::~BlockQueue() {
    BlockQueue::flush_i();
}

void BlockQueue::Reserve(std::size_t messages) {
    m_entries.reset(new (std::nothrow) Entry[messages]);
    m_capacity = m_entries == nullptr ? 0 : messages;
    m_first = 0;
    m_useArray = true;
}

void BlockQueue::PutInArray(ACE_Message_Block* message) {
    Entry& entry = At(m_count);
    entry = {message, 0, 0};
    message->total_size_and_length(entry.bytes, entry.length);
    message->next(nullptr);
    message->prev(nullptr);
    ++m_count;
    ++cur_count_;
    cur_bytes_ += entry.bytes;
    cur_length_ += entry.length;
}

ACE_Message_Block* BlockQueue::TakeFromArray(bool first) {
    const Entry& entry = At(first ? 0 : m_count - 1);
    m_first = first ? (m_first + 1) % m_capacity : m_first;
    --m_count;
    --cur_count_;
    cur_bytes_ -= entry.bytes;
    cur_length_ -= entry.length;
    return entry.message;
}

// The array stands in front of the list, so its last message goes to the list's front first.
void BlockQueue::LeaveArray() {
    m_useArray = false;
    while (m_count != 0) {
        Base::enqueue_head_i(TakeFromArray(false));
    }
}

std::size_t BlockQueue::AppendSome(ACE_Message_Block* const* messages, std::size_t count, bool* wake) {
    std::size_t put = 0;
    bool isWaitedFor = false;
    {
        ACE_GUARD_RETURN(ACE_Thread_Mutex, guard, lock_, 0);
        const bool closed = state_ == ACE_Message_Queue_Base::DEACTIVATED;
        for (; put < count && !closed && !is_full_i(); ++put) {
            if (HasArrayRoom()) {
                PutInArray(messages[put]);
            } else {
                messages[put]->next(nullptr);
                Base::enqueue_tail_i(messages[put]);
            }
        }
        if (put < count) {
            errno = closed ? ESHUTDOWN : EWOULDBLOCK;
        }
        isWaitedFor = put != 0 && m_waiters != 0;
    }
    // When the lock is free again, so that nobody wakes only to wait for it.
    if (wake != nullptr) {
        *wake = isWaitedFor;
    } else if (isWaitedFor) {
        put == 1 ? not_empty_cond_.signal() : not_empty_cond_.broadcast();
    }
    return put;
}

template <typename Take>
std::size_t BlockQueue::TakeSome(ACE_Message_Block** messages, std::size_t room, ACE_Time_Value& deadline, Take take) {
    ACE_GUARD_RETURN(ACE_Thread_Mutex, guard, lock_, 0);
    if (state_ == ACE_Message_Queue_Base::DEACTIVATED) {
        errno = ESHUTDOWN;
        return 0;
    }
    if (wait_not_empty_cond(&deadline) == -1) {
        return 0;
    }
    std::size_t taken = 0;
    while (taken < room && !is_empty_i()) {
        take(messages[taken++]);
    }
    if (cur_bytes_ <= low_water_mark_) {
        not_full_cond_.broadcast();
    }
    return taken;
}

std::size_t BlockQueue::TakeFirst(ACE_Message_Block** messages, std::size_t room, ACE_Time_Value deadline) {
    return TakeSome(messages, room, deadline, [this](ACE_Message_Block*& message) {
        if (m_count != 0) {
            message = TakeFromArray(true);
        } else {
            Base::dequeue_head_i(message);
        }
    });
}

std::size_t BlockQueue::TakeLast(ACE_Message_Block** messages, std::size_t room, ACE_Time_Value deadline) {
    return TakeSome(messages, room, deadline, [this](ACE_Message_Block*& message) {
        if (head_ == nullptr) {
            message = TakeFromArray(false);
        } else {
            Base::dequeue_tail_i(message);
        }
    });
}

int BlockQueue::open(std::size_t highWaterMark, std::size_t lowWaterMark, ACE_Notification_Strategy* strategy) {
    m_count = 0;  // as the base class forgets what is queued
    m_first = 0;
    m_useArray = true;
    return Base::open(highWaterMark, lowWaterMark, strategy);
}

int BlockQueue::flush_i() {
    int flushed = 0;
    for (; m_count != 0; ++flushed) {
        TakeFromArray(true)->release();
    }
    return flushed + Base::flush_i();
}

int BlockQueue::peek_dequeue_head(ACE_Message_Block*& first, ACE_Time_Value* timeout) {
    {
        ACE_GUARD_RETURN(ACE_Thread_Mutex, guard, lock_, -1);
        LeaveArray();
    }
    return Base::peek_dequeue_head(first, timeout);
}

int BlockQueue::enqueue_i(ACE_Message_Block* message) {
    LeaveArray();
    return Base::enqueue_i(message);
}

int BlockQueue::enqueue_deadline_i(ACE_Message_Block* message) {
    LeaveArray();
    return Base::enqueue_deadline_i(message);
}

// The base class queues what is linked by next() as messages of their own.
int BlockQueue::enqueue_tail_i(ACE_Message_Block* message) {
    if (message == nullptr) {
        return -1;
    }
    for (; message != nullptr && HasArrayRoom();) {
        ACE_Message_Block* const behind = message->next();
        PutInArray(message);
        message = behind;
    }
    if (message != nullptr) {
        return Base::enqueue_tail_i(message);
    }
    return signal_dequeue_waiters() == -1 ? -1 : static_cast<int>(cur_count_);
}

int BlockQueue::enqueue_head_i(ACE_Message_Block* message) {
    LeaveArray();
    return Base::enqueue_head_i(message);
}

int BlockQueue::dequeue_head_i(ACE_Message_Block*& message) {
    if (m_count == 0) {
        return Base::dequeue_head_i(message);
    }
    message = TakeFromArray(true);
    return cur_bytes_ <= low_water_mark_ && signal_enqueue_waiters() == -1 ? -1 : static_cast<int>(cur_count_);
}

int BlockQueue::dequeue_tail_i(ACE_Message_Block*& message) {
    if (head_ != nullptr || m_count == 0) {
        return Base::dequeue_tail_i(message);
    }
    message = TakeFromArray(false);
    return cur_bytes_ <= low_water_mark_ && signal_enqueue_waiters() == -1 ? -1 : static_cast<int>(cur_count_);
}

int BlockQueue::dequeue_prio_i(ACE_Message_Block*& message) {
    LeaveArray();
    return Base::dequeue_prio_i(message);
}

int BlockQueue::dequeue_deadline_i(ACE_Message_Block*& message) {
    LeaveArray();
    return Base::dequeue_deadline_i(message);
}

int BlockQueue::wait_not_empty_cond(ACE_Time_Value* timeout) {
    ++m_waiters;
    const int result = Base::wait_not_empty_cond(timeout);
    --m_waiters;
    return result;
}

// Several messages may have come with one call, so all that wait are woken.
int BlockQueue::signal_dequeue_waiters() {
    return m_waiters != 0 ? not_empty_cond_.broadcast() : 0;
}

}  // namespace gvx
