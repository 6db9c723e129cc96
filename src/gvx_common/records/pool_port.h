#pragma once

#include <functional>
#include <utility>

namespace gvx {

// A local port that a pool has handed out: who holds the record holds the port, and its end gives the port back. Moves,
// and is never copied, so that no port goes back twice.
class PoolPort {
public:
    using GiveBack = std::function<void(unsigned int port)>;

    PoolPort() = default;  // no port
    // giveBack is called once, on the thread that ends the record.
    PoolPort(unsigned int port, GiveBack giveBack) : m_port(port), m_giveBack(std::move(giveBack)) {}
    ~PoolPort() {
        if (m_port != 0) {
            m_giveBack(m_port);
        }
    }
    PoolPort(PoolPort&& other) noexcept
        : m_port(std::exchange(other.m_port, 0)), m_giveBack(std::move(other.m_giveBack)) {}
    PoolPort& operator=(PoolPort&&) = delete;

    // In host byte order; 0 for no port.
    unsigned int Number() const { return m_port; }

private:
    unsigned int m_port = 0;
    GiveBack m_giveBack;
};

}  // namespace gvx
