#pragma once

namespace gvx {

// SIGTERM and SIGINT as something to wait for. A handler, not a blocked mask: threads that started when the core was
// loaded have no mask of ours, and a signal may reach any of them. One object at a time, made before the first socket.
class StopSignal {
public:
    // Takes the two signals over and ignores SIGPIPE. Ok() is false when that failed.
    StopSignal();
    // Brings the former handling back.
    ~StopSignal();
    StopSignal(const StopSignal&) = delete;
    StopSignal& operator=(const StopSignal&) = delete;

    bool Ok() const { return m_ok; }

    // The number of the first signal, 0 while none has come. Any thread.
    int First() const;
    // Waits for the first signal and gives its number. A second one ends the process at once, with 128 plus its
    // number.
    int Wait();

private:
    bool m_ok = false;
};

// Raises the limit of open descriptors as far as the system lets us, and logs what was got.
void RaiseDescriptorLimit();

}  // namespace gvx
