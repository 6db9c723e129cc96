#include "gateway/intake/intake_taker.h"

#include "gateway/plugins/plugin_host.h"
#include "gvx_common/utility/gvx_utility.h"

#include <pthread.h>

namespace gvx {

IntakeTaker::IntakeTaker(const LoadedPlugin& plugin) : m_plugin(plugin), m_thread([this] { Run(); }) {}

IntakeTaker::~IntakeTaker() {
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_stop = true;
    }
    m_changed.notify_all();
    m_thread.join();
}

bool IntakeTaker::Give(std::shared_ptr<const PushedBlock> block) {
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_block != nullptr) {
            return false;
        }
        m_block = std::move(block);
    }
    m_changed.notify_all();
    return true;
}

std::optional<int> IntakeTaker::Wait(std::chrono::steady_clock::time_point deadline) {
    std::unique_lock<std::mutex> lock(m_mutex);
    if (!m_changed.wait_until(lock, deadline, [this] { return m_block == nullptr; })) {
        return std::nullopt;
    }
    return m_answer;
}

bool IntakeTaker::IsIdle(std::chrono::steady_clock::time_point deadline) {
    return Wait(deadline).has_value();
}

void IntakeTaker::Run() {
    CGvxUtility::pthreadSetThreadname(pthread_self(), "IntakeTaker");
    std::unique_lock<std::mutex> lock(m_mutex);
    while (true) {
        m_changed.wait(lock, [this] { return m_stop || m_block != nullptr; });
        if (m_block == nullptr) {
            return;
        }
        const std::shared_ptr<const PushedBlock> block = m_block;
        lock.unlock();
        const int answer = m_plugin.TakeIntakeBlock(block->view);
        lock.lock();
        m_answer = answer;
        m_block.reset();
        m_changed.notify_all();
    }
}

}  // namespace gvx
