#pragma once

#include <memory>
#include <mutex>
#include <shared_mutex>
#include <utility>

namespace BP {

// A value that many threads read and that is replaced as a whole now and then. A reader holds what it got for as
// long as it needs it; reading allocates nothing. Any thread.
template <typename T>
class Published {
public:
    std::shared_ptr<T> Get() const {
        std::shared_lock<std::shared_mutex> guard(m_mutex);
        return m_value;
    }

    // Gives back what stood there, so that it is destroyed outside the lock.
    std::shared_ptr<T> Exchange(std::shared_ptr<T> value) {
        std::unique_lock<std::shared_mutex> guard(m_mutex);
        m_value.swap(value);
        return value;
    }

private:
    mutable std::shared_mutex m_mutex;
    std::shared_ptr<T> m_value;  // Guarded by m_mutex.
};

}  // namespace BP
