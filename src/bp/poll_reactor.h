#pragma once

#include "base/unique_fd.h"

#include <ace/Event_Handler.h>

#include <atomic>
#include <memory>

class ACE_Reactor;

namespace BP {

// A reactor over epoll whose descriptor is close-on-exec, without a notification pipe of its own. Null, with errno,
// when its descriptor could not be made.
std::unique_ptr<ACE_Reactor> MakePollReactor();

// Takes a handler out of a reactor that MakePollReactor made, without a call to handle_close. The reactor itself keeps one
// that waits for nothing at the moment.
void TakeOut(ACE_Reactor& reactor, ACE_Event_Handler& handler);

// Ends the wait of a reactor from any thread, never blocking: the counter of an eventfd takes every ring. The
// reactor's own notification pipe can fill up and is not used.
class WakeHandler : public ACE_Event_Handler {
public:
    WakeHandler();

    bool Valid() const { return m_fd.Valid(); }
    // Any thread.
    void Ring();
    // Waits for a ring without the reactor, at most that long. For the reactor's thread.
    void WaitAside(int milliseconds);

    ACE_HANDLE get_handle() const override { return m_fd.Get(); }
    int handle_input(ACE_HANDLE) override;

private:
    gvx::UniqueFd m_fd;
    std::atomic<bool> m_rung{false};
};

}  // namespace BP
