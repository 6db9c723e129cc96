#pragma once

#include <atomic>
#include <mutex>
#include <set>
#include <string>

namespace gvx {

// A text that is read by reference on any thread and replaced now and then. A replaced text lives as long as the
// object, so that a reference taken before stays valid; equal texts are kept once, which bounds the memory by the
// number of different values ever set.
class PublishedText {
public:
    PublishedText() { Set(std::string()); }
    PublishedText(const PublishedText&) = delete;
    PublishedText& operator=(const PublishedText&) = delete;

    const std::string& Get() const noexcept { return *m_current.load(std::memory_order_acquire); }

    void Set(const std::string& text) {
        const std::lock_guard<std::mutex> guard(m_mutex);
        m_current.store(&*m_texts.insert(text).first, std::memory_order_release);
    }

private:
    std::mutex m_mutex;
    std::set<std::string> m_texts;  // Guarded by m_mutex.
    std::atomic<const std::string*> m_current{nullptr};
};

}  // namespace gvx
