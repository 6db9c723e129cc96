#pragma once

#include "nss/nss_msg_header.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

// A peer of a link, on blocking sockets with a time limit on every step. One thread at a time.
class FakePeer {
public:
    static constexpr std::chrono::milliseconds kLimit{20000};

    struct Frame {
        NssMsgHeader head{};  // host order
        std::string body;     // behind the head
        std::string Transaction() const;
    };

    // The bytes of a whole frame; version and length are set.
    static std::string MakeFrame(std::uint16_t type, std::uint32_t seq = 1, const std::string& transID = std::string(),
                                 std::uint32_t rspCode = 0, const std::string& body = std::string());
    // One item of a body: 16-bit tag, 32-bit length, value.
    static std::string MakeItem(std::uint16_t tag, const std::string& value);

    explicit FakePeer(int fd);
    ~FakePeer() { Close(); }
    FakePeer(const FakePeer&) = delete;
    FakePeer& operator=(const FakePeer&) = delete;

    // Null when nobody listens there. receiveBufferBytes makes a peer that can hold little (0: the system's choice).
    static std::unique_ptr<FakePeer> Connect(std::uint16_t port, const char* ip = "127.0.0.1",
                                             int receiveBufferBytes = 0);

    // Registers as a connecting peer and reads the answer. Its code, and the other side's identifier in *answered;
    // no value when no answer came.
    std::optional<std::uint32_t> Register(const std::string& id, std::string* answered = nullptr);
    // Reads the registration of a side that connected to us and answers it. Its identifier; empty on failure.
    std::string AnswerRegistration(const std::string& id, std::uint32_t rspCode = 0);

    bool SendRaw(const std::string& bytes);
    bool SendFrame(std::uint16_t type, std::uint32_t seq = 1, const std::string& transID = std::string(),
                   std::uint32_t rspCode = 0, const std::string& body = std::string());

    // The next frame; keep-alive requests are answered and, like their answers, passed over unless asked for. No value
    // when the link closes or the limit passes.
    std::optional<Frame> ReadFrame(bool withKeepAlive = false, std::chrono::milliseconds limit = kLimit);
    // Reads and drops bytes until the other side closes; false when it does not within the limit.
    bool ReadUntilClosed(std::chrono::milliseconds limit = kLimit);
    // Connected still, as far as a look at the socket tells.
    bool Connected();
    std::uint16_t LocalPort() const;
    void Close();

private:
    // recv within the deadline; 0 behind it, and when the other side has closed or reset the link.
    std::size_t Read(char* target, std::size_t length, std::chrono::steady_clock::time_point deadline, bool& closed);
    bool ReadAll(char* target, std::size_t length, std::chrono::steady_clock::time_point deadline);

    int m_fd;
};

// Listens on the loopback for sides that connect.
class FakeListener {
public:
    // Port 0 takes any free one. Valid() is false when the port cannot be taken.
    explicit FakeListener(std::uint16_t port = 0, const char* ip = "127.0.0.1");
    ~FakeListener();
    FakeListener(const FakeListener&) = delete;
    FakeListener& operator=(const FakeListener&) = delete;

    bool Valid() const { return m_fd >= 0; }
    std::uint16_t Port() const { return m_port; }
    int Fd() const { return m_fd; }
    // Null when nobody came within the limit.
    std::unique_ptr<FakePeer> Accept(std::chrono::milliseconds limit = FakePeer::kLimit);

private:
    int m_fd = -1;
    std::uint16_t m_port = 0;
};
