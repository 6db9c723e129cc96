#include "gateway/intake/intake_acceptor.h"

#include "base/log.h"

#include <cerrno>
#include <cstdint>
#include <cstring>

#include <sys/resource.h>
#include <sys/socket.h>

namespace gvx {

namespace {

constexpr int kBacklog = 1024;
const ACE_Time_Value kPause(1);

bool IsShortage(int error) {
    return error == EMFILE || error == ENFILE || error == ENOBUFS || error == ENOMEM;
}

// A quarter of the process's descriptors: the platform and its streams need theirs.
std::size_t MostConnections() {
    rlimit limit{};
    return ::getrlimit(RLIMIT_NOFILE, &limit) == 0 ? static_cast<std::size_t>(limit.rlim_cur / 4) : SIZE_MAX;
}

}  // namespace

void IntakeAcceptor::WidenBacklog() {
    if (::listen(get_handle(), kBacklog) != 0) {
        GVX_LOG_WARN("Intake", "the backlog stays small: %s", std::strerror(errno));
    }
}

int IntakeAcceptor::accept_svc_handler(CGVXReceiver* receiver) {
    m_isFull = CGVXReceiver::Count() > MostConnections();  // the new one among them
    if (m_isFull) {
        receiver->close(0);
        errno = EMFILE;
        return -1;
    }
    const int result = CGVXAcceptor::accept_svc_handler(receiver);
    if (result == 0) {
        m_pauseLogged = false;
    }
    return result;
}

int IntakeAcceptor::handle_accept_error() {
    const int error = errno;
    if (!IsShortage(error) || reactor()->schedule_timer(this, nullptr, kPause) == -1) {
        return 0;
    }
    reactor()->cancel_wakeup(this, ACE_Event_Handler::ACCEPT_MASK);
    if (!m_pauseLogged) {
        m_pauseLogged = true;
        GVX_LOG_ERR("Intake", "devices have to wait: %s",
                    m_isFull ? "their connections take a quarter of the descriptors" : std::strerror(error));
    }
    return 0;
}

int IntakeAcceptor::handle_timeout(const ACE_Time_Value&, const void*) {
    if (reactor() != nullptr) {
        reactor()->schedule_wakeup(this, ACE_Event_Handler::ACCEPT_MASK);
    }
    return 0;
}

}  // namespace gvx
