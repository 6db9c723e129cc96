#pragma once

#include "gvx_common/event/GvxMessage.h"

#include <list>
#include <memory>
#include <mutex>

class GvxObserver {
public:
    // Runs on the thread that notifies, under the notifier's lock: it must not call that notifier. The message may
    // be kept.
    virtual void OnGvxMessage(std::shared_ptr<GvxMessage> message) = 0;
    virtual ~GvxObserver() = default;
};

// Tells observers, which it does not own, in the order of their attachment. Any thread.
class GvxNotifier {
public:
    GvxNotifier() = default;
    virtual ~GvxNotifier() = default;
    GvxNotifier(const GvxNotifier&) = delete;
    GvxNotifier& operator=(const GvxNotifier&) = delete;

    // An observer attached twice is told twice. Null, and an observer that is the notifier itself, are
    // ignored.
    void Attach(GvxObserver* observer);
    // Takes away every attachment of that observer. It is not being told any more when this returns.
    void Detach(GvxObserver* observer);
    // Returns when every observer has been told.
    void Notify(std::shared_ptr<GvxMessage> message);

private:
    std::list<GvxObserver*> m_ObserverList;  // Guarded by m_mutex.
    std::mutex m_mutex;                      // Held during the callbacks; not recursive.
};
