#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

namespace gvxctl {

// Tells on standard error what a command waits for, in one line that is written over, once two seconds have gone by and
// until its end. Nothing is written when standard error is no terminal. Made and destroyed by one thread; while one
// exists, others stay silent, so the outermost speaks.
class Progress {
public:
    // What has been reached so far; called by a thread of the progress. May be empty.
    using Reached = std::function<std::string()>;

    explicit Progress(std::string what, Reached reached = nullptr);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    // Takes the line away, for one on standard output. It comes back by itself.
    void Hide();

private:
    void Run();

    const std::string m_what;
    const Reached m_reached;
    bool m_speaks = false;
    std::mutex m_mutex;  // guards m_over and m_shown
    std::condition_variable m_wake;
    bool m_over = false;
    bool m_shown = false;
    std::thread m_thread;
};

}  // namespace gvxctl
