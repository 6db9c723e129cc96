#include "gvx_common/event/GvxNotifier.h"

void GvxNotifier::Attach(GvxObserver* observer) {
    // Both may be bases of one object at different addresses: compare the objects, not the subobjects.
    if (observer == nullptr || dynamic_cast<void*>(observer) == dynamic_cast<void*>(this)) {
        return;
    }
    const std::lock_guard<std::mutex> guard(m_mutex);
    m_ObserverList.push_back(observer);
}

void GvxNotifier::Detach(GvxObserver* observer) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    m_ObserverList.remove(observer);
}

void GvxNotifier::Notify(std::shared_ptr<GvxMessage> message) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    for (GvxObserver* observer : m_ObserverList) {
        observer->OnGvxMessage(message);
    }
}
