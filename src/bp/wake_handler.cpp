#include "bp/wake_handler.h"

#include <poll.h>
#include <sys/eventfd.h>

namespace BP {

WakeHandler::WakeHandler() : m_fd(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {}

void WakeHandler::Ring() {
    if (!m_rung.exchange(true)) {
        ::eventfd_write(m_fd.Get(), 1);
    }
}

void WakeHandler::WaitAside(int milliseconds) {
    struct pollfd watched = {m_fd.Get(), POLLIN, 0};
    ::poll(&watched, 1, milliseconds);
    handle_input(m_fd.Get());
}

// The mark is taken away before the work is looked at, so that work which comes later rings again.
int WakeHandler::handle_input(ACE_HANDLE) {
    eventfd_t count = 0;
    ::eventfd_read(m_fd.Get(), &count);
    m_rung = false;
    return 0;
}

}  // namespace BP
