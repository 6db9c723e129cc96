#pragma once

#include "bp/poll_reactor.h"
#include "gateway/intake/intake_acceptor.h"
#include "gateway/intake/intake_flow.h"
#include "gateway/settings/exit_codes.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>
#include <vector>

class ACE_Reactor;

namespace gvx {

class LoadedPlugin;

// Where devices push what they have to tell.
struct IntakeSettings {
    std::string ip = "127.0.0.1";
    std::uint16_t port = 0;  // 0: there is no intake
    IntakeLimits limits;
};

// Reads the keys GVX_INTAKE_* of the configuration. Any thread.
IntakeSettings ReadIntakeSettings();

// The door for devices that push what they have to tell: connections on a thread with a reactor of its own, a bounded
// message queue behind them, and a thread that passes its blocks on to the IntakeFlow. Of the thread that starts and
// stops the gateway.
class Intake {
public:
    Intake();
    // Closes what is open.
    ~Intake();
    Intake(const Intake&) = delete;
    Intake& operator=(const Intake&) = delete;

    // Listens and gives what comes to the plug-ins, which must stay until WaitIdle has answered true.
    StartResult Start(const IntakeSettings& settings, std::vector<const LoadedPlugin*> takers);
    // Takes nothing in any more and closes every connection; never waits for a plug-in.
    void Close();
    // After Close: true when no plug-in is at work any more.
    bool WaitIdle(std::chrono::milliseconds limit);

private:
    StartResult Listen(const IntakeSettings& settings);
    void RunReactor();
    void RunConsumer();
    void CloseConnections();

    GvxReceiverQueue m_queue;
    const std::unique_ptr<ACE_Reactor> m_reactor;
    BP::WakeHandler m_wake;
    IntakeAcceptor m_acceptor;
    std::atomic<bool> m_stop{false};
    bool m_open = false;
    std::thread m_reactorThread;
    std::thread m_consumerThread;
};

}  // namespace gvx
