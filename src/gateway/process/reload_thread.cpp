#include "gateway/process/reload_thread.h"

#include "base/log.h"
#include "base/shortage.h"

#include <exception>
#include <mutex>
#include <thread>
#include <utility>

#include <pthread.h>

namespace gvx {

struct ReloadThread::State {
    std::function<void()> reload;
    std::thread thread;
    std::mutex mutex;      // Guards the two below; nothing is called while it is held.
    bool runs = false;     // the thread is at it
    bool another = false;  // it is to begin anew when it is through

    void Run() {
        bool goesOn = true;
        while (goesOn) {
            reload();
            const std::lock_guard<std::mutex> lock(mutex);
            goesOn = std::exchange(another, false);
            runs = goesOn;
        }
    }
};

ReloadThread::ReloadThread(std::function<void()> reload) : m_state(std::make_unique<State>()) {
    m_state->reload = std::move(reload);
}

ReloadThread::~ReloadThread() {
    Wait();
}

void ReloadThread::Ask() {
    {
        const std::lock_guard<std::mutex> lock(m_state->mutex);
        m_state->another = m_state->runs;
        if (m_state->runs) {
            return;
        }
        m_state->runs = true;
    }
    Wait();  // for a thread that is on its way out
    try {
        m_state->thread = std::thread(&State::Run, m_state.get());
        pthread_setname_np(m_state->thread.native_handle(), "Reload");
    } catch (const std::exception& fault) {
        NoteShortage(fault);
        GVX_LOG_WARN("gvxd", "No thread for the reload, which is done without: %s", fault.what());
        m_state->Run();
    }
}

void ReloadThread::Wait() {
    if (m_state->thread.joinable()) {
        m_state->thread.join();
    }
}

}  // namespace gvx
