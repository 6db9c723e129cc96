#pragma once

#include <chrono>

namespace gvx {

// The signals of the process as something to wait for: SIGTERM and SIGINT ask for the stop, SIGHUP for the
// configuration and the log files to be read and opened anew, SIGUSR1 for the status in the log; SIGPIPE and SIGUSR2 do
// nothing. One object at a time, made on main's thread before any other thread.
//
// The maker's thread and all that it starts block them, so that no wait of an event thread ends early; whoever waits
// here takes them, and one thread beside (TakeHere). Calls into plug-ins have the mask of before (PluginCallScope), so
// that the programs which they start can be ended. They have handlers all the same: a thread that a library has started
// before has no mask of ours.
class ProcessSignals {
public:
    enum class Event { None, Stop, Reload, Status };

    // Ok() is false when the signals could not be taken over.
    ProcessSignals();
    // Brings the former handling back, and the mask of the calling thread.
    ~ProcessSignals();
    ProcessSignals(const ProcessSignals&) = delete;
    ProcessSignals& operator=(const ProcessSignals&) = delete;

    bool Ok() const { return m_ok; }

    // The calling thread takes the signals from now on.
    static void TakeHere();

    // The number of the first signal that asks for the stop, 0 while none has come. Any thread.
    int First() const;
    // Waits for what was asked for, at most that long. Signals that come while their work is under way are one event;
    // the stop goes before all. A second signal that asks for the stop ends the process at once, with 128 plus its
    // number.
    Event Wait(std::chrono::milliseconds limit);

private:
    bool m_ok = false;
};

// Raises the limit of open descriptors as far as the system lets us, and logs what was got.
void RaiseDescriptorLimit();

}  // namespace gvx
