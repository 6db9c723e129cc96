#pragma once

#include "bp/message_block_ptr.h"
#include "gvx_common/intake/gvx_qfc.h"

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <memory>
#include <mutex>
#include <vector>

namespace gvx {

class IntakeTaker;
class LoadedPlugin;

// Limits of the queue between the intake's connections and the plug-ins (CQueueFlowControl).
struct IntakeLimits {
    unsigned int maxBlocks = 1024;
    unsigned int maxWaitMs = 2000;
    unsigned int maxRate = 0;            // blocks in a window of up to two seconds; 0 for no limit
    unsigned int alarmIntervalSec = 60;  // quiet time before an alarm clears
};

// The queue between the intake's connections and the plug-ins that asked for what devices push. One thread serves it,
// since blocks of one connection are pieces of one text; a plug-in that takes its time holds up the intake alone, which
// then sheds load. One that does not come back within the limit of a call (GVX_PLUGIN_CALL_LIMIT) is passed over from
// then on until it does, and the others go on. Never destroyed, as its thread is never stopped.
class IntakeFlow : public CQueueFlowControl {
public:
    static IntakeFlow& Instance();

    // The plug-ins must stay until WaitIdle has answered true. False when threads or timer could not be started.
    bool Open(const IntakeLimits& limits, std::vector<const LoadedPlugin*> takers);
    // Nothing more is given to plug-ins, but for the one block that may be with one now.
    void Close();
    // After Close: waits until nothing is queued and no plug-in is at work; true when that is so.
    bool WaitIdle(std::chrono::milliseconds limit);

    // A block as CGVXReceiver posts it. One that is refused is released. Any thread.
    void Take(BP::MessageBlockPtr block);

    int QFC_MsgProc(void* block) override;
    void QFC_MsgFree(void* block) override;

private:
    using Takers = std::vector<std::unique_ptr<IntakeTaker>>;

    IntakeFlow();

    void CountDown();

    std::mutex m_mutex;
    std::condition_variable m_emptied;
    std::shared_ptr<const Takers> m_takers;  // Guarded by m_mutex; kept from Open until WaitIdle.
    bool m_open = false;                     // Guarded by m_mutex.
    std::size_t m_pending = 0;               // Guarded by m_mutex; blocks queued or at work.
};

}  // namespace gvx
