#pragma once

#include <ace/OS_NS_Thread.h>

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace gvx {

// The thread that serves a lens's snapshot requests: its making, its pauses, its end.
class SnapshotWorker {
public:
    using Body = int (*)(void* argument);

    // Held by whoever makes, fills or deletes the queue, so that nobody fills one that goes.
    std::mutex& QueueLife() { return m_queueLife; }

    // Runs body(argument) on a thread of 128 KiB stack named "AdapterSnapShotThread", as far as names go. False when
    // there is no thread to be had.
    bool Spawn(Body body, void* argument, ACE_thread_t& thread);
    // Waits for the thread's end.
    static void Join(ACE_thread_t thread);

    // Waits for that time or until EndPauses; not at all after it. A time of 0 and less is none.
    void Pause(std::chrono::milliseconds time);
    void EndPauses();

private:
    std::mutex m_queueLife;
    std::mutex m_mutex;
    std::condition_variable m_ended;
    bool m_noPauses = false;  // Guarded by m_mutex.
};

}  // namespace gvx
