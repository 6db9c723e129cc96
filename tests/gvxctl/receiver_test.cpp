#include "gvxctl/rtp_receiver.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

namespace gvxctl {
namespace {

std::string Packet(std::uint8_t payloadType, std::uint16_t seq, std::uint8_t timestamp, const std::string& payload) {
    std::string bytes(12, '\0');
    bytes[0] = static_cast<char>(0x80);
    bytes[1] = static_cast<char>(payloadType);
    bytes[2] = static_cast<char>(seq >> 8);
    bytes[3] = static_cast<char>(seq & 0xFF);
    bytes[7] = static_cast<char>(timestamp);
    return bytes + payload;
}

// Two frames, the first of two units, and two packets of audio.
const std::string kVideo[] = {Packet(99, 1, 0, "\x67one"), Packet(99, 2, 0, "\x65two"), Packet(99, 3, 40, "\x41three")};
const std::string kAudio[] = {Packet(8, 1, 0, "tone-a"), Packet(8, 2, 160, "tone-b")};
const std::string kVideoFile("\0\0\0\1\x67one\0\0\0\1\x65two\0\0\0\1\x41three", 26);
const std::string kAudioFile = "tone-atone-b";

class ReceiverTest : public ::testing::Test {
protected:
    void SetUp() override {
        char name[] = "/tmp/gvxctl_test_XXXXXX";
        ASSERT_NE(::mkdtemp(name), nullptr);
        m_folder = name;
        m_files = {m_folder + "/v", m_folder + "/a"};
    }
    void TearDown() override {
        ::unlink(m_files.video.c_str());
        ::unlink(m_files.audio.c_str());
        ::rmdir(m_folder.c_str());
    }
    static std::string Content(const std::string& path) {
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    void SendUdp(std::uint16_t port, const std::string& bytes) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        const auto* generic = static_cast<const sockaddr*>(static_cast<const void*>(&address));
        ASSERT_EQ(::sendto(m_sender.Get(), bytes.data(), bytes.size(), 0, generic, sizeof address),
                  static_cast<ssize_t>(bytes.size()));
    }
    void ExpectClip(RtpReceiver& receiver) {
        const std::atomic<bool> stop{false};
        EXPECT_TRUE(receiver.WaitForFrames(2, 100, 20000, stop));
        receiver.Stop();
        const StreamStats stats = receiver.Stats();
        EXPECT_EQ(stats.video.packets, 3u);
        EXPECT_EQ(stats.video.frames, 2u);
        EXPECT_EQ(stats.video.lost, 0u);
        EXPECT_EQ(stats.audio.packets, 2u);
        EXPECT_EQ(Content(m_files.video), kVideoFile);
        EXPECT_EQ(Content(m_files.audio), kAudioFile);
    }

    std::string m_folder;
    RecordFiles m_files;
    gvx::UniqueFd m_sender{::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
    std::string m_error;
};

TEST_F(ReceiverTest, RecordsWhatComesOverUdp) {
    RtpReceiver receiver;
    ASSERT_TRUE(receiver.StartUdp("127.0.0.1", 0, 0, m_files, m_error)) << m_error;
    for (const std::string& packet : kAudio) {
        SendUdp(receiver.AudioPort(), packet);
    }
    SendUdp(receiver.VideoPort(), "no RTP at all");
    SendUdp(receiver.VideoPort(), Packet(107, 1, 0, "metadata"));
    SendUdp(receiver.VideoPort(), std::string(3000, '\x80'));
    for (const std::string& packet : kVideo) {
        SendUdp(receiver.VideoPort(), packet);
    }
    ExpectClip(receiver);
    EXPECT_EQ(receiver.Stats().malformed, 2u);
    EXPECT_EQ(receiver.Stats().otherPayloads, 1u);
}

TEST_F(ReceiverTest, ForeignBytesEndAnInterleavedStream) {
    RtpReceiver receiver;
    ASSERT_TRUE(receiver.StartTcp(Endpoint{}, m_files, m_error)) << m_error;
    gvx::UniqueFd peer = ConnectTcp(Endpoint{"127.0.0.1", receiver.VideoPort()}, 5000, m_error);
    ASSERT_TRUE(peer.Valid() && SendAll(peer.Get(), "HTTP/1.1", 8, 5000)) << m_error;
    const std::atomic<bool> stop{false};
    EXPECT_FALSE(receiver.WaitForFrames(1, 0, 20000, stop));
    EXPECT_EQ(receiver.Stats().error, "the interleaved stream has lost its framing");
}

}  // namespace
}  // namespace gvxctl
