#pragma once

#include <cstddef>

namespace gvx {

// A scope around the packets of one NAL unit on the thread that makes them. Who sends them may hold packets back while
// it lasts, so that they go on together, and no longer.
class PacketRun {
public:
    // What has held packets back, and passes them on as the run ends.
    class Holder {
    public:
        virtual bool HandOn() noexcept = 0;

    protected:
        ~Holder() = default;
    };

    // About so many packets are to come.
    explicit PacketRun(std::size_t packets) : m_packets(packets), m_outer(s_current) { s_current = this; }
    ~PacketRun() {
        s_current = m_outer;
        if (m_holder != nullptr) {
            m_holder->HandOn();
        }
    }
    PacketRun(const PacketRun&) = delete;
    PacketRun& operator=(const PacketRun&) = delete;

    // The innermost run of the calling thread; null outside of one.
    static PacketRun* Current() { return s_current; }

    std::size_t Packets() const { return m_packets; }
    void SetHolder(Holder* holder) { m_holder = holder; }

private:
    static inline thread_local PacketRun* s_current = nullptr;

    const std::size_t m_packets;
    PacketRun* const m_outer;
    Holder* m_holder = nullptr;  // lives as long as the thread
};

}  // namespace gvx
