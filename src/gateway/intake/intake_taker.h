#pragma once

#include "gvx_common/adapter/gvx_plugin.h"
#include "gvx_common/intake/gvx_receiver.h"

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace gvx {

class LoadedPlugin;

// A block that devices have pushed, kept for as long as a plug-in looks at it.
struct PushedBlock {
    GVX_RECEIVED_HEAD head{};
    std::string data;
    GvxIntakeBlock view{};  // leads into the two above
};

// One plug-in that takes what devices push, on a thread of its own: a plug-in that does not return holds up nobody
// else. Give and Wait are for one thread.
class IntakeTaker {
public:
    // The plug-in must stay. Throws std::system_error when there is no thread.
    explicit IntakeTaker(const LoadedPlugin& plugin);
    // Waits until the plug-in has come back: not to be called before IsIdle.
    ~IntakeTaker();
    IntakeTaker(const IntakeTaker&) = delete;
    IntakeTaker& operator=(const IntakeTaker&) = delete;

    // Hands a block to the plug-in. False while it is still at an earlier one: it does not get this one.
    bool Give(std::shared_ptr<const PushedBlock> block);
    // The plug-in's answer to the block that it was given; nothing when it has not answered by then.
    std::optional<int> Wait(std::chrono::steady_clock::time_point deadline);
    // The plug-in is at no block, or comes back from it by then. Any thread.
    bool IsIdle(std::chrono::steady_clock::time_point deadline);

private:
    void Run();

    const LoadedPlugin& m_plugin;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::shared_ptr<const PushedBlock> m_block;  // Guarded by m_mutex; null while the plug-in is at none.
    int m_answer = 0;                            // Guarded by m_mutex; to the last block.
    bool m_stop = false;                         // Guarded by m_mutex.
    std::thread m_thread;                        // last: it uses all of the above
};

}  // namespace gvx
