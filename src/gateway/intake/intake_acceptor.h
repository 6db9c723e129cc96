#pragma once

#include "gvx_common/intake/gvx_acceptor.h"

namespace gvx {

// The acceptor of the intake. Without free descriptors a device stays in the backlog and the socket readable, so that
// going on at once would only spin: it then pauses for a second, and does so too where the devices' connections take a
// quarter of what the process may open. After its start it belongs to the reactor's thread.
class IntakeAcceptor : public CGVXAcceptor {
public:
    // Makes room for many devices that connect at the same moment. After start.
    void WidenBacklog();

    int accept_svc_handler(CGVXReceiver* receiver) override;
    int handle_accept_error() override;
    int handle_timeout(const ACE_Time_Value& now, const void* arg) override;

private:
    bool m_pauseLogged = false;
    bool m_isFull = false;  // the last connection was refused for its number
};

}  // namespace gvx
