#include "bp/poll_reactor.h"

#include "base/shortage.h"

#include <ace/ACE.h>
#include <ace/Dev_Poll_Reactor.h>
#include <ace/Reactor.h>

#include <algorithm>
#include <cerrno>
#include <new>

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>

namespace BP {

namespace {

// The reactor keeps a row for each descriptor number, so the limit of an unlimited process would take all memory.
constexpr int kMaxDescriptors = 65536;

class PollReactor : public ACE_Dev_Poll_Reactor {
public:
    explicit PollReactor(std::size_t descriptors) : ACE_Dev_Poll_Reactor(descriptors, true, nullptr, nullptr, 1) {
        if (poll_fd_ != ACE_INVALID_HANDLE) {
            ::fcntl(poll_fd_, F_SETFD, FD_CLOEXEC);
        }
    }
};

}  // namespace

std::unique_ptr<ACE_Reactor> MakePollReactor() {
    const int limit = ACE::max_handles();
    const int descriptors = limit > 0 ? std::min(limit, kMaxDescriptors) : kMaxDescriptors;
    std::unique_ptr<PollReactor> reactor(new (std::nothrow) PollReactor(static_cast<std::size_t>(descriptors)));
    if (reactor == nullptr || !reactor->initialized()) {
        const int error = errno;
        gvx::NoteShortage(reactor == nullptr ? ENOMEM : error);
        errno = error;
        return nullptr;
    }
    return std::make_unique<ACE_Reactor>(reactor.release(), true);
}

void TakeOut(ACE_Reactor& reactor, ACE_Event_Handler& handler) {
    reactor.schedule_wakeup(&handler, ACE_Event_Handler::READ_MASK);
    reactor.remove_handler(&handler, ACE_Event_Handler::ALL_EVENTS_MASK | ACE_Event_Handler::DONT_CALL);
}

WakeHandler::WakeHandler() : m_fd(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {
    if (!m_fd.Valid()) {
        gvx::NoteShortage(errno);
    }
}

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
