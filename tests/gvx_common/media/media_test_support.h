#pragma once

#include "base/clock.h"
#include "gvx_common/config/gvx_config_mgr.h"
#include "gvx_common/media/gvx_stream_transmission.h"
#include "gvx_common/media_memory/media_block_buffer.h"
#include "support/recording_logger.h"
#include "support/settings_folder.h"
#include "support/wait_until.h"

#include <ace/INET_Addr.h>
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstring>
#include <future>
#include <memory>
#include <string>
#include <vector>

#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

// For a scope, a clock fifty times slower than the system's: limits of seconds still exist, but no machine is so slow
// as to run into one.
class ScopedSlowClock {
public:
    ScopedSlowClock() {
        Shared().start = SlowClock::SystemMicroseconds();
        gvx::SetClock(&Shared());
    }
    ~ScopedSlowClock() { gvx::SetClock(nullptr); }
    ScopedSlowClock(const ScopedSlowClock&) = delete;
    ScopedSlowClock& operator=(const ScopedSlowClock&) = delete;

private:
    struct SlowClock : gvx::Clock {
        static std::int64_t SystemMicroseconds() {
            const auto time = std::chrono::steady_clock::now().time_since_epoch();
            return std::chrono::duration_cast<std::chrono::microseconds>(time).count();
        }
        std::int64_t WallMicroseconds() const noexcept override { return MonotonicMicroseconds(); }
        std::int64_t MonotonicMicroseconds() const noexcept override {
            return start + (SystemMicroseconds() - start) / 50;
        }
        std::atomic<std::int64_t> start{0};
    };
    // Never destroyed: a thread that goes on may just be asking it.
    static SlowClock& Shared() {
        static auto* const clock = new SlowClock;
        return *clock;
    }
};

// Holds transmission threads, each in the midst of a packet of its queue, so that what a test queues behind it stays
// there and nothing of the streams is touched meanwhile. All that was queued before has been served.
class HeldThreads {
public:
    explicit HeldThreads(const std::vector<CStreamTransmission::Queue*>& queues)
        : m_gate(std::make_shared<Gate>()), m_former(OMAdapter::getInstance()->getSharedLogger()) {
        OMAdapter::getInstance()->setLogger(m_gate);
        for (CStreamTransmission::Queue* queue : queues) {
            // A block without a record makes the thread write a line, which does not return.
            queue->enqueue_tail(CMediaBlockBuffer::instance()->allocMediaBlock());
        }
        EXPECT_TRUE(WaitUntil([&] { return m_gate->Held() == queues.size(); }));
    }
    ~HeldThreads() {
        m_gate->Open();
        OMAdapter::getInstance()->setLogger(m_former);
    }
    HeldThreads(const HeldThreads&) = delete;
    HeldThreads& operator=(const HeldThreads&) = delete;

private:
    class Gate : public RecordingLogger {
    public:
        void VLog(int level, const char* title, const OMLogPlace& place, const char* format, va_list args) override
            __attribute__((format(printf, 5, 0))) {
            RecordingLogger::VLog(level, title, place, format, args);
            if (std::strcmp(format, "Socket info is null") == 0) {
                const std::shared_future<void> opened = m_opened;
                ++m_held;
                opened.wait();
            }
        }
        std::size_t Held() const { return m_held; }
        void Open() { m_open.set_value(); }

    private:
        std::atomic<std::size_t> m_held{0};
        std::promise<void> m_open;
        const std::shared_future<void> m_opened = m_open.get_future().share();
    };

    const std::shared_ptr<Gate> m_gate;
    const std::shared_ptr<IOMLogger> m_former;
};

// A socket of a test on 127.0.0.1: a UDP receiver, or a TCP listener or connection. Every wait ends after 20 s.
class TestSocket {
public:
    explicit TestSocket(int type, int receiveBuffer = 4 << 20) : m_handle(::socket(AF_INET, type | SOCK_CLOEXEC, 0)) {
        ::setsockopt(m_handle, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof(receiveBuffer));
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        ::bind(m_handle, reinterpret_cast<sockaddr*>(&address), sizeof(address));
        if (type == SOCK_STREAM) {
            ::listen(m_handle, 8);
        }
        SetLimit();
    }
    static TestSocket Adopt(int handle) { return TestSocket(Handle{handle}); }
    TestSocket(TestSocket&& other) noexcept : m_handle(other.m_handle) { other.m_handle = -1; }
    TestSocket& operator=(TestSocket&&) = delete;
    ~TestSocket() { Close(); }

    void Close() {
        if (m_handle != -1) {
            ::close(m_handle);
            m_handle = -1;
        }
    }
    int Get() const { return m_handle; }
    ACE_INET_Addr Address() const {
        sockaddr_in address{};
        socklen_t size = sizeof(address);
        ::getsockname(m_handle, reinterpret_cast<sockaddr*>(&address), &size);
        return ACE_INET_Addr(&address, static_cast<int>(size));
    }
    TestSocket Accept() const { return Adopt(::accept4(m_handle, nullptr, nullptr, SOCK_CLOEXEC)); }

    // One datagram, or what is there of a stream; empty at the end of the stream or after the limit.
    std::string Receive(std::size_t most = 65536) const {
        std::string data(most, '\0');
        const ssize_t size = ::recv(m_handle, data.data(), data.size(), 0);
        data.resize(size > 0 ? static_cast<std::size_t>(size) : 0);
        return data;
    }
    // Exactly that many bytes of a stream; fewer only at its end or after the limit.
    std::string ReceiveExactly(std::size_t size) const {
        std::string data;
        while (data.size() < size) {
            const std::string part = Receive(size - data.size());
            if (part.empty()) {
                break;
            }
            data += part;
        }
        return data;
    }
    // True when nothing is there to be received at this moment.
    bool IsQuiet() const {
        char byte;
        return ::recv(m_handle, &byte, 1, MSG_DONTWAIT | MSG_PEEK) == -1;
    }

private:
    struct Handle {
        int value;
    };
    explicit TestSocket(Handle handle) : m_handle(handle.value) { SetLimit(); }
    void SetLimit() const {
        const timeval time{20, 0};
        ::setsockopt(m_handle, SOL_SOCKET, SO_RCVTIMEO, &time, sizeof(time));
    }

    int m_handle;
};

// A record with both UDP sockets, whose life the test sees to.
struct UdpRecord {
    UdpRecord(const TestSocket& video, const TestSocket& audio) {
        info.protocol = RTP_OVER_UDP;
        info.videoDstAddr = video.Address();
        info.audioDstAddr = audio.Address();
        info.videoSockDgram.set_handle(sockets[0].Get());
        info.audioSockDgram.set_handle(sockets[1].Get());
        info.bVideoStream = true;
    }
    TestSocket sockets[2] = {TestSocket(SOCK_DGRAM), TestSocket(SOCK_DGRAM)};
    SOCKET_INFO info;
};

// A stream whose peer has little room and does not read of itself. A pair of local sockets stands for the connection:
// its room changes only when the peer reads, never by what the network does meanwhile.
struct TcpRecord {
    TcpRecord() : TcpRecord(Pair()) {}

    TestSocket sender;
    TestSocket peer;
    SOCKET_INFO info;

private:
    explicit TcpRecord(std::array<int, 2> pair) : sender(TestSocket::Adopt(pair[0])), peer(TestSocket::Adopt(pair[1])) {
        info.protocol = RTP_OVER_TCP;
        info.videoSockStream.set_handle(sender.Get());
        info.bVideoStream = true;
    }
    static std::array<int, 2> Pair() {
        std::array<int, 2> pair{-1, -1};
        const int room = 1;  // the least that there is
        EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair.data()), 0);
        ::setsockopt(pair[0], SOL_SOCKET, SO_SNDBUF, &room, sizeof(room));
        return pair;
    }
};
