#pragma once

#include "gvx_common/event/gvx_reactor.h"
#include "gvx_common/utility/counted_ptr.h"

#include <cstddef>
#include <ctime>
#include <deque>
#include <map>
#include <string>
#include <utility>
#include <vector>

// What is remembered of a device.
struct ReactorTrack {
    CGvxReactor* m_reactor;      // not owned
    std::time_t m_scheduleTime;  // wall seconds; of the last use of the track or the unbinding
};

// The growing pool of reactors that serve devices, and the binding of each device to one of them. A device keeps
// its reactor while it is bound, and for a time after it has gone, so that what is still queued for it and what
// follows after its return run in one order on one thread.
//
// There is no lock: the caller serialises all operations.
class CGvxDevReactorMgr {
public:
    static CGvxDevReactorMgr* Instance();

    CGvxDevReactorMgr();
    // Stops and deletes the pool.
    ~CGvxDevReactorMgr();
    CGvxDevReactorMgr(const CGvxDevReactorMgr&) = delete;
    CGvxDevReactorMgr& operator=(const CGvxDevReactorMgr&) = delete;

    // The reactor of that device, which is bound when it was not; null for an empty pool. The reactor stays the
    // pool's and lives as long as it.
    CGvxReactor* ScheduleReactor(const std::string& key);
    // The reactor to which the device is bound, or null.
    CGvxReactor* FindReactor(const std::string& key);
    // Unbinds the device and gives its reactor; for a device that was not bound, the reactor of its track or null.
    CGvxReactor* FindAndReleaseReactor(const std::string& key);
    // Adds reactors to the pool; to be called once before the first device is bound. 0, or 1 when a reactor cannot
    // be made; those made before stay.
    int ReactorPoolInit(unsigned int count);
    // A caller that serialises by a lock makes reactors outside it, since a new one waits for its thread: how many the
    // next binding would make otherwise.
    unsigned int ReactorsNeeded() const;
    // How many are worth making ahead of that, while the pool is about to grow.
    unsigned int SparesWanted() const;
    // The number of one that is about to be made, which its thread is named by and which counts against the most that
    // there may be; the making itself, which needs no lock; and the handing over, also of none (false), which gives the
    // number back. The pool takes what was handed over before it makes any itself.
    std::size_t BeginMaking();
    static gvx::CountedPtr<CGvxReactor> MakeReactor(
        std::size_t number);  // null, with a log line, when it cannot be made
    bool EndMaking(std::size_t number, gvx::CountedPtr<CGvxReactor> reactor);

    // All of the pool, in the order of their making.
    std::vector<CGvxReactor*> Reactors() const;

    // Forgets devices that are not bound and have not been seen for HISTORY_TRACK_EXPIRED_TIME seconds (1800
    // unless configured). To be called from time to time.
    void DelExpiredHistoryTrack();

private:
    CGvxReactor* FindReactorFromHistory(const std::string& key);
    CGvxReactor* AllocReactorFromPool(const std::string& key);
    CGvxReactor* LeastLoadedReactor() const;
    void UpdateReactorUnbindTime(const std::string& key);
    bool IsNeedExpandReactorPool();
    long BoundDevices() const;
    void ExpandReactorPool(unsigned int count);

    static CGvxDevReactorMgr m_instance;

    std::vector<gvx::CountedPtr<CGvxReactor>> m_devReactorVector;  // only grows
    std::deque<gvx::CountedPtr<CGvxReactor>> m_spareReactors;      // made ahead of their place in the pool
    std::size_t m_inMaking = 0;
    std::size_t m_nextNumber = 0;                                  // as many as were made or are in making
    std::map<std::string, CGvxReactor*> m_devIDReactorMap;         // the devices bound now
    std::map<std::string, ReactorTrack> m_devReactorHistoryTrack;  // every device placed and not yet expired
};

CGvxDevReactorMgr* GvxDevReactorMgr();
