#include "gateway/intake/intake.h"

#include "base/log.h"
#include "base/shortage.h"
#include "bp/poll_reactor.h"
#include "gateway/plugins/plugin_host.h"
#include "gvx_common/config/setting_table.h"
#include "gvx_common/utility/gvx_utility.h"

#include <ace/ACE.h>
#include <ace/INET_Addr.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>
#include <system_error>

#include <pthread.h>

namespace gvx {

namespace {

// Bytes that may wait for the consumer, which only passes them on. A full queue holds the connections up.
constexpr std::size_t kQueueBytes = 1 << 20;
constexpr int kMaxDescriptors = 65536;
constexpr int kPauseAfterFaultMs = 100;

template <typename Number>
void Read(Setting setting, Number& value) {
    value = static_cast<Number>(SettingNumber(setting));
}

}  // namespace

IntakeSettings ReadIntakeSettings() {
    IntakeSettings settings;
    settings.ip = SettingText(Setting::GVX_INTAKE_IP);
    Read(Setting::GVX_INTAKE_PORT, settings.port);
    Read(Setting::GVX_INTAKE_MAX_BLOCKS, settings.limits.maxBlocks);
    Read(Setting::GVX_INTAKE_MAX_WAIT_MS, settings.limits.maxWaitMs);
    Read(Setting::GVX_INTAKE_MAX_RATE, settings.limits.maxRate);
    Read(Setting::GVX_INTAKE_ALARM_INTERVAL, settings.limits.alarmIntervalSec);
    return settings;
}

Intake::Intake() : m_queue(kQueueBytes, kQueueBytes), m_reactor(BP::MakePollReactor()) {}

Intake::~Intake() {
    Close();
}

StartResult Intake::Start(const IntakeSettings& settings, std::vector<const LoadedPlugin*> takers) {
    if (m_reactor == nullptr) {
        return StartFailure(ExitCode::OutOfResources, "the intake has no reactor");
    }
    StartResult result = Listen(settings);
    if (result.Failed()) {
        return result;
    }
    m_open = true;
    if (!m_wake.Valid() || m_reactor->register_handler(&m_wake, ACE_Event_Handler::READ_MASK) != 0) {
        NoteShortage(errno == ENOSPC ? ENOMEM : errno);
        return StartFailure(ExitCode::OutOfResources, "the intake cannot be woken");
    }
    const std::size_t plugins = takers.size();
    if (!IntakeFlow::Instance().Open(settings.limits, std::move(takers))) {
        return StartFailure(ExitCode::OutOfResources, "the queue of the intake could not be started");
    }
    try {
        m_reactorThread = std::thread([this] { RunReactor(); });
        m_consumerThread = std::thread([this] { RunConsumer(); });
    } catch (const std::system_error& fault) {
        NoteShortage(fault);
        return StartFailure(ExitCode::OutOfResources, "the threads of the intake could not be started");
    }
    GVX_LOG_INFO("Intake", "devices push to %s:%u, %zu plug-ins take it", settings.ip.c_str(), settings.port, plugins);
    return result;
}

StartResult Intake::Listen(const IntakeSettings& settings) {
    m_acceptor.SetMsgQueue(&m_queue);
    if (m_acceptor.start(ACE_INET_Addr(settings.port, settings.ip.c_str()), m_reactor.get()) != 0) {
        const int error = errno;
        NoteShortage(error == ENOSPC ? ENOMEM : error);
        return StartFailure(ExitCode::CannotListen, "cannot listen on " + settings.ip + ":" +
                                                        std::to_string(settings.port) +
                                                        " for devices (GVX_INTAKE_PORT): " + std::strerror(error));
    }
    m_acceptor.WidenBacklog();
    return {};
}

void Intake::RunReactor() {
    CGvxUtility::pthreadSetThreadname(pthread_self(), "IntakeSockets");
    while (!m_stop) {
        if (m_reactor->handle_events() < 0 && errno != EINTR) {
            GVX_LOG_ERR("Intake", "waiting for devices failed: %s", std::strerror(errno));
            m_wake.WaitAside(kPauseAfterFaultMs);
        }
    }
}

void Intake::RunConsumer() {
    CGvxUtility::pthreadSetThreadname(pthread_self(), "IntakeConsumer");
    ACE_Message_Block* block = nullptr;
    while (m_queue.dequeue_head(block) != -1) {
        IntakeFlow::Instance().Take(BP::MessageBlockPtr(block));
    }
}

// A thread that waits for room in the queue, or for a block from it, goes on when the queue is deactivated.
void Intake::Close() {
    if (!m_open) {
        return;
    }
    m_open = false;
    IntakeFlow::Instance().Close();
    m_stop = true;
    m_queue.deactivate();
    m_wake.Ring();
    if (m_reactorThread.joinable()) {
        m_reactorThread.join();
    }
    if (m_consumerThread.joinable()) {
        m_consumerThread.join();
    }
    // A listener that is paused waits for nothing, and such a handler the reactor would keep, past its life.
    m_reactor->schedule_wakeup(&m_acceptor, ACE_Event_Handler::ACCEPT_MASK);
    m_acceptor.stop();
    CloseConnections();
}

// The reactor forgets its handlers when it goes, without a word to them, but calls those of its timers.
void Intake::CloseConnections() {
    constexpr int kDontCall = 1;
    m_reactor->cancel_timer(&m_acceptor, kDontCall);
    m_reactor->remove_handler(&m_wake, ACE_Event_Handler::ALL_EVENTS_MASK | ACE_Event_Handler::DONT_CALL);
    const int limit = ACE::max_handles();
    const int descriptors = limit > 0 ? std::min(limit, kMaxDescriptors) : kMaxDescriptors;
    for (ACE_HANDLE handle = 0; handle < descriptors; ++handle) {
        m_reactor->remove_handler(handle, ACE_Event_Handler::ALL_EVENTS_MASK);
    }
}

bool Intake::WaitIdle(std::chrono::milliseconds limit) {
    return IntakeFlow::Instance().WaitIdle(limit);
}

}  // namespace gvx
