#pragma once

#include "gvx_common/event/gvx_reactor.h"
#include "gvx_common/utility/counted_ptr.h"

#include <ace/Event_Handler.h>
#include <ace/Time_Value.h>

#include <array>
#include <cstddef>

// The fixed reactors: one for timers and handlers of the gateway itself, twenty for snapshots. They are made, and
// their threads run, as soon as the library is loaded. Any thread.
class CGvxReactorManager {
public:
    static constexpr int kSnapshotReactors = 20;

    static CGvxReactorManager* Instance();

    CGvxReactorManager();
    ~CGvxReactorManager();
    CGvxReactorManager(const CGvxReactorManager&) = delete;
    CGvxReactorManager& operator=(const CGvxReactorManager&) = delete;

    // The same operations of CGvxReactor, on the general reactor.
    int RegistHandle(ACE_Event_Handler* handler, unsigned long mask);
    int UnRegistHandle(const ACE_Event_Handler* handler, unsigned long mask);
    long RegistTimer(ACE_Event_Handler* handler, const void* arg, const ACE_Time_Value& delay,
                     const ACE_Time_Value& interval);
    int UnRegistTimer(long timerId, int dontCall);
    int notify(ACE_Event_Handler* handler, unsigned long mask);

    // The caller gives an index from 0 to 19; nothing checks it.
    long RegistSnapshotTimer(ACE_Event_Handler* handler, const void* arg, const ACE_Time_Value& delay,
                             const ACE_Time_Value& interval, int reactorIndex);
    // -1 for an index that is none.
    int UnRegistSnapshotTimer(int reactorIndex, long timerId, int dontCall);

private:
    static CGvxReactorManager m_instance;

    gvx::CountedPtr<CGvxReactor> m_GvxReactor;
    std::array<gvx::CountedPtr<CGvxReactor>, kSnapshotReactors> m_GvxSnapshotReactor;
};

CGvxReactorManager* GvxReactorManager();
