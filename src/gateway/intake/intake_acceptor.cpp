#include "gateway/intake/intake_acceptor.h"

#include "base/log.h"

#include <cerrno>
#include <cstring>

#include <sys/socket.h>

namespace gvx {

namespace {

constexpr int kBacklog = 1024;
const ACE_Time_Value kPause(1);

bool IsShortage(int error) {
    return error == EMFILE || error == ENFILE || error == ENOBUFS || error == ENOMEM;
}

}  // namespace

void IntakeAcceptor::WidenBacklog() {
    if (::listen(get_handle(), kBacklog) != 0) {
        GVX_LOG_WARN("Intake", "the backlog stays small: %s", std::strerror(errno));
    }
}

int IntakeAcceptor::accept_svc_handler(CGVXReceiver* receiver) {
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
        GVX_LOG_ERR("Intake", "devices have to wait: %s", std::strerror(error));
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
