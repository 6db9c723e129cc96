#pragma once

#include <functional>
#include <memory>

namespace gvx {

// Reads the configuration again on a thread of its own. Edits and plug-ins, which are told of switches, may hold a
// reload up; whoever asked for it goes on serving signals. Of main's thread.
class ReloadThread {
public:
    // reload runs on the thread and must not throw; what it refers to must outlive Wait.
    explicit ReloadThread(std::function<void()> reload);
    // Waits.
    ~ReloadThread();
    ReloadThread(const ReloadThread&) = delete;
    ReloadThread& operator=(const ReloadThread&) = delete;

    // Begins a reload; while one is under way, another one follows it. Where no thread is to be had, it is done here.
    void Ask();
    // Returns when no reload runs any more.
    void Wait();

private:
    struct State;
    const std::unique_ptr<State> m_state;
};

}  // namespace gvx
