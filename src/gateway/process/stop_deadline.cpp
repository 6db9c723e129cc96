#include "gateway/process/stop_deadline.h"

namespace gvx {

StopDeadline::StopDeadline(std::chrono::milliseconds limit, std::function<void()> action)
    : m_thread([this, limit, action = std::move(action)] {
          std::unique_lock<std::mutex> lock(m_mutex);
          if (!m_wake.wait_for(lock, limit, [this] { return m_done; })) {
              lock.unlock();
              action();
          }
      }) {}

StopDeadline::~StopDeadline() {
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_done = true;
    }
    m_wake.notify_all();
    m_thread.join();
}

}  // namespace gvx
