#pragma once

#include <ace/Event_Handler.h>

#include <mutex>

namespace gvx {

class DevReactorBinder;

// Forgets what has become old, on the general reactor and once a period for as long as it is started: the history of
// devices (DevReactorBinder::Sweep) and transactions that nobody answered. The object is never
// destroyed: the reactor may be about to call it when its timer is cancelled.
class HistorySweep : public ACE_Event_Handler {
public:
    static HistorySweep& Instance();

    // False when there is no timer.
    bool Start(DevReactorBinder& binder, int periodSeconds);
    // When it returns, the binder is not used any more.
    void Stop();

    int handle_timeout(const ACE_Time_Value& now, const void* arg) override;

private:
    HistorySweep() = default;

    std::mutex m_mutex;  // Held during a sweep; ahead of the binder's.
    DevReactorBinder* m_binder = nullptr;  // Guarded by m_mutex; not owned.
    long m_timerId = -1;  // Of the thread that starts and stops.
};

}  // namespace gvx
