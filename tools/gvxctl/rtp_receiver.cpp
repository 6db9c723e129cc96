#include "gvxctl/rtp_receiver.h"

#include "base/clock.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <utility>

#include <poll.h>
#include <sys/socket.h>

namespace gvxctl {
namespace {

constexpr int kPollMs = 100;
constexpr int kStillMs = 5000;
// Some seconds of a stream, so that a stall of the disk or of the machine loses nothing.
constexpr std::size_t kReceiveBufferBytes = 16u << 20;
constexpr std::size_t kBatch = 64;
constexpr std::size_t kPacketBytes = 2048;
constexpr std::size_t kTcpReadBytes = 256 * 1024;

}  // namespace

bool RtpReceiver::OpenRecorder(const RecordFiles& files, std::string& error) {
    return m_recorder.Open(files, error) && m_recorder.OpenMetadata(m_metadataOptions, error);
}

bool RtpReceiver::StartUdp(const std::string& ip, std::uint16_t videoPort, std::uint16_t audioPort,
                           const RecordFiles& files, std::string& error) {
    m_video = BindUdp(Endpoint{ip, videoPort}, error);
    m_audio = m_video.Valid() ? BindUdp(Endpoint{ip, audioPort}, error) : gvx::UniqueFd();
    if (m_audio.Valid() && m_metadataOptions.wanted) {
        m_metadata = BindUdp(Endpoint{ip, m_metadataOptions.port}, error);
    }
    if (!m_audio.Valid() || (m_metadataOptions.wanted && !m_metadata.Valid()) || !OpenRecorder(files, error)) {
        return false;
    }
    for (const gvx::UniqueFd* socket : {&m_video, &m_audio, &m_metadata}) {
        if (socket->Valid()) {
            SetReceiveBuffer(socket->Get(), kReceiveBufferBytes);
        }
    }
    m_running = true;
    m_thread = std::thread([this] { RunUdp(); });
    return true;
}

bool RtpReceiver::StartTcp(const Endpoint& local, const RecordFiles& files, std::string& error) {
    m_video = ListenTcp(local, error);
    if (!m_video.Valid() || !OpenRecorder(files, error)) {
        return false;
    }
    m_running = true;
    m_thread = std::thread([this] { RunTcp(); });
    return true;
}

void RtpReceiver::Stop() {
    m_running = false;
    if (m_thread.joinable()) {
        m_thread.join();
        const std::lock_guard<std::mutex> guard(m_mutex);
        m_recorder.Finish();
    }
}

StreamStats RtpReceiver::Stats() const {
    const std::lock_guard<std::mutex> guard(m_mutex);
    StreamStats stats = m_recorder.Stats();
    if (stats.error.empty()) {
        stats.error = m_error;
    }
    return stats;
}

bool RtpReceiver::WaitForFrames(std::uint64_t frames, int idleMs, int timeoutMs, const std::atomic<bool>& stop) const {
    const std::int64_t end = gvx::MonotonicMilliseconds() + timeoutMs;
    while (!stop && gvx::MonotonicMilliseconds() < end) {
        const StreamStats stats = Stats();
        const std::int64_t idle = gvx::MonotonicMilliseconds() - stats.lastPacketMs;
        if (stats.complete || (stats.video.frames >= frames && idle >= idleMs)) {
            return true;
        }
        if (!stats.error.empty() || (stats.firstPacketMs != 0 && idle >= kStillMs)) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return false;
}

void RtpReceiver::RunUdp() {
    // A descriptor of -1 is passed over by both.
    const std::array<int, 3> sockets{m_video.Get(), m_audio.Get(), m_metadata.Get()};
    const auto drain = [&] { std::for_each(sockets.begin(), sockets.end(), [this](int fd) { DrainUdp(fd); }); };
    while (m_running) {
        std::array<pollfd, 3> entries{{{sockets[0], POLLIN, 0}, {sockets[1], POLLIN, 0}, {sockets[2], POLLIN, 0}}};
        if (::poll(entries.data(), entries.size(), kPollMs) > 0) {
            drain();
        }
    }
    drain();
}

void RtpReceiver::DrainUdp(int fd) {
    thread_local std::array<std::array<std::uint8_t, kPacketBytes>, kBatch> buffers;
    std::array<iovec, kBatch> vectors{};
    std::array<mmsghdr, kBatch> messages{};
    for (std::size_t i = 0; i < kBatch; ++i) {
        vectors[i] = iovec{buffers[i].data(), kPacketBytes};
        messages[i].msg_hdr.msg_iov = &vectors[i];
        messages[i].msg_hdr.msg_iovlen = 1;
    }
    for (int count = kBatch; count == static_cast<int>(kBatch);) {
        count = ::recvmmsg(fd, messages.data(), kBatch, MSG_DONTWAIT, nullptr);
        const std::lock_guard<std::mutex> guard(m_mutex);
        for (int i = 0; i < count; ++i) {
            const mmsghdr& message = messages[static_cast<std::size_t>(i)];
            if ((message.msg_hdr.msg_flags & MSG_TRUNC) != 0) {
                m_recorder.CountMalformed();
            } else {
                m_recorder.Take(buffers[static_cast<std::size_t>(i)].data(), message.msg_len);
            }
        }
    }
}

void RtpReceiver::RunTcp() {
    gvx::UniqueFd accepted;
    std::string error;
    while (m_running && !accepted.Valid() && error.empty()) {
        accepted = AcceptTcp(m_video.Get(), kPollMs, error);
    }
    const int connection = accepted.Get();
    if (connection != -1) {
        SetReceiveBuffer(connection, kReceiveBufferBytes);
        const std::lock_guard<std::mutex> lock(m_connectionMutex);
        m_connection = std::move(accepted);
        m_connected.notify_all();
    }
    bool open = connection != -1;
    while (m_running && open) {
        open = !WaitReadable(connection, kPollMs) || ReadTcp(connection);
    }
    while (open && WaitReadable(connection, 0) && ReadTcp(connection)) {
        // what was sent before the stop belongs to the stream
    }
    {
        const std::lock_guard<std::mutex> lock(m_connectionMutex);
        m_connection.Reset();
    }
    const std::lock_guard<std::mutex> guard(m_mutex);
    if (!error.empty()) {
        m_error = error;
    }
}

bool RtpReceiver::SendInterleaved(std::uint8_t channel, const unsigned char* packet, std::size_t size) {
    constexpr std::chrono::seconds kConnectLimit(2);
    std::string bytes{'$', static_cast<char>(channel), static_cast<char>(size >> 8), static_cast<char>(size)};
    bytes.append(reinterpret_cast<const char*>(packet), size);
    std::unique_lock<std::mutex> lock(m_connectionMutex);
    return m_connected.wait_for(lock, kConnectLimit, [this] { return m_connection.Valid(); }) &&
           ::send(m_connection.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
}

bool RtpReceiver::ReadTcp(int fd) {
    thread_local std::array<std::uint8_t, kTcpReadBytes> buffer;
    const ssize_t count = ::recv(fd, buffer.data(), buffer.size(), 0);
    if (count <= 0) {
        return count < 0 && (errno == EAGAIN || errno == EINTR);
    }
    const std::lock_guard<std::mutex> guard(m_mutex);
    m_cutter.Feed(buffer.data(), static_cast<std::size_t>(count));
    std::uint8_t channel = 0;
    const std::uint8_t* data = nullptr;
    std::size_t length = 0;
    InterleaveCutter::Result result = InterleaveCutter::Result::NeedMore;
    while ((result = m_cutter.Next(channel, data, length)) == InterleaveCutter::Result::Ready) {
        m_recorder.Take(data, length);
    }
    if (result == InterleaveCutter::Result::Broken) {
        m_error = "the interleaved stream has lost its framing";
        return false;
    }
    return true;
}

}  // namespace gvxctl
