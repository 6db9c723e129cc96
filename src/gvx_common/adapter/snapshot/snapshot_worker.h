#pragma once

#include <ace/OS_NS_Thread.h>

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>

namespace gvx {

// The thread that serves a lens's snapshot requests: its making, its pauses, its end.
class SnapshotWorker {
public:
    using Body = int (*)(void* argument);

    // What thread and lens share; it outlives the lens when the thread is left behind. Any thread.
    class Run {
    public:
        // A capture begins: false when the worker is to end instead.
        bool BeginCapture();
        // It has come back. False when the worker was left behind meanwhile: the lens may be gone.
        bool EndCapture();
        // Waits for that time or until EndPauses; not at all after it. A time of 0 and less is none.
        void Pause(std::chrono::milliseconds time);

    private:
        friend class SnapshotWorker;

        std::mutex m_mutex;
        std::condition_variable m_changed;
        bool m_noPauses = false;  // Guarded by m_mutex, as is all below.
        bool m_captures = false;
        bool m_ended = false;
        bool m_leftBehind = false;
    };

    // Held by whoever makes, fills or deletes the queue, so that nobody fills one that goes.
    std::mutex& QueueLife() { return m_queueLife; }

    // Runs body(argument) on a thread of 128 KiB stack. False when there is no thread or no memory to be had.
    bool Spawn(Body body, void* argument, ACE_thread_t& thread);
    // Of the thread that was made last. Of that thread, and of whoever holds QueueLife.
    std::shared_ptr<Run> CurrentRun() const { return m_run; }
    // Ends pauses, and lets no capture begin.
    void EndPauses();
    // Waits for the thread's end. A capture that takes longer than limit is left behind with its thread: false.
    bool Join(ACE_thread_t thread, std::chrono::milliseconds limit);

private:
    std::mutex m_queueLife;
    std::shared_ptr<Run> m_run;  // Written under m_queueLife while no thread runs.
};

}  // namespace gvx
