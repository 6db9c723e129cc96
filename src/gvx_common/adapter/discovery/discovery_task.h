#pragma once

#include "gvx_common/records/gvx_discovery_records.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <list>
#include <memory>
#include <mutex>
#include <string>

class ACE_Thread_Semaphore;

namespace gvx {

// The single addresses of ranges, in order. A range spans the last number of its first address up to that of its last
// one, whose other numbers are not looked at; a last number above 255 counts as 255. A range with a number that is none
// is left out with a log line. Any thread.
std::list<std::string> ListProbeAddresses(const std::list<DISCOVERY_IP_INFO>& ranges);

// The threads of a plug-in's search: their making, their waits, and how one sees that they have ended. A task has two,
// each of which signals the task's semaphore once. Any thread, except where said.
class DiscoveryTask {
public:
    using Body = int (*)(void* argument);

    DiscoveryTask() : m_state(std::make_shared<State>()) {}

    // Waits until the last task has given all its signals, for limit at most. False when it has not. Of the thread
    // that starts tasks, as are Begin, LimitTo and Spawn.
    bool TakeSignals(ACE_Thread_Semaphore& semaphore, std::chrono::milliseconds limit);
    // A task begins: two signals are owed from now on. local: it searches the local segment.
    void Begin(bool local);
    // How long it may take from now on; to be called ahead of its threads.
    void LimitTo(int seconds);
    // Runs body(argument) on a detached thread of 128 KiB stack with that name, at most 15 characters. False when there
    // is no thread to be had. An exception of the body is logged. Throws std::bad_alloc.
    bool Spawn(const char* name, Body body, void* argument);

    // Ends waits of the task that runs, and lets IsOver answer true.
    void Stop();
    // The task comes to nothing, since a thread of it could not be made: the other one ends without a report.
    void Abandon();
    bool IsAbandoned() const;
    // Whether the last task that began searches the local segment.
    bool IsLocal() const;
    // True when the task was stopped or has taken its time.
    bool IsOver() const;
    bool IsStopped() const;
    // Waits by the monotonic clock, no longer than until the task is over.
    void Wait(std::chrono::milliseconds span);
    // Waits until no thread of a task runs any more, for limit at most.
    bool WaitEnd(std::chrono::milliseconds limit);

private:
    // Outlives the object as long as a thread runs.
    struct State {
        mutable std::mutex mutex;
        std::condition_variable changed;
        bool stopped = false;  // Guarded by mutex, as is all below.
        bool abandoned = false;
        bool local = false;
        std::int64_t endMs = 0;  // monotonic
        int threads = 0;
    };
    struct Launch;

    static void* Run(void* launch);

    const std::shared_ptr<State> m_state;
    int m_owed = 0;  // signals that the last task has yet to give
};

}  // namespace gvx
