#include "base/clock.h"
#include "gvx_common/rtp/rtp_poller.h"
#include "gvx_common/security/gvx_security_mgr.h"
#include "support/rtsp_client.h"

#include <cstdio>
#include <cstdlib>
#include <deque>
#include <fstream>
#include <iostream>
#include <string>

// Goes through a whole session with an RTSP server, and prints a line for each step. The clear password is the one line
// of standard input.
//
//   rtsp_session URL USER h264|h265 udp|tcp FOLDER
//
// The first media is the picture, the second G.711. Both are received until the server ends them, and are written to
// received.h264 (or .h265) and received.alaw in the folder.

namespace {

constexpr std::int64_t kPlayLimitMs = 60000;

struct Media : IRtpReceiverSink {
    void OnAccessUnit(const gvx::RtpAccessUnit& unit) override {
        ++units;
        broken += unit.IsDamaged() || unit.lostPackets != 0;
        file.write(reinterpret_cast<const char*>(unit.data), static_cast<std::streamsize>(unit.size));
    }
    void OnSourceEnd(std::uint32_t) override { ended = true; }

    std::ofstream file;
    int units = 0;
    int broken = 0;
    bool ended = false;
    CCommonRtpReceiver receiver{*this};
};

bool Told(const char* step, int result, const std::string& more = std::string()) {
    std::printf("%s %d%s\n", step, result, result == 0 ? more.c_str() : "");
    return result == 0;
}

bool SetUp(RtspClient& client, const CCommonSession& session, std::size_t number, bool onConnection, Media& media,
           RtpReceiverParams params) {
    const auto channel = static_cast<std::uint8_t>(2 * number);
    std::string transport =
        "RTP/AVP/TCP;unicast;interleaved=" + std::to_string(channel) + "-" + std::to_string(channel + 1);
    if (onConnection) {
        params.endpoint.interleavedSend = [&client, channel](enRtpFlow flow, const std::uint8_t* data,
                                                             std::size_t size) {
            return client.SendInterleaved(static_cast<std::uint8_t>(channel + flow), data, size);
        };
    }
    if (media.receiver.Open(params) != 0) {
        return false;
    }
    if (!onConnection) {
        const unsigned int port = media.receiver.GetPort();
        transport = "RTP/AVP;unicast;client_port=" + std::to_string(port) + "-" + std::to_string(port + 1);
    }
    if (!Told("SETUP", client.Setup(session, transport))) {
        return false;
    }
    const std::string key = "server_port=";
    const std::size_t at = client.Transport().find(key);
    const auto remote = static_cast<std::uint16_t>(
        at == std::string::npos ? 0 : std::atoi(client.Transport().c_str() + at + key.size()));
    return onConnection || (remote != 0 && media.receiver.SetRemote("127.0.0.1", remote) == 0);
}

bool Play(RtspClient& client, const std::string& codec, bool onConnection, const std::string& folder) {
    std::deque<Media> media(2);
    client.SetPacketSink([&](std::uint8_t channel, const std::uint8_t* data, std::size_t size) {
        if (channel < 4) {
            CCommonRtpReceiver& receiver = media[channel / 2].receiver;
            channel % 2 == 0 ? receiver.Push(data, size) : receiver.PushControl(data, size);
        }
    });
    RtpReceiverParams params[2];
    params[0].codec = codec == "h265" ? RTP_CODEC_H265 : RTP_CODEC_H264;
    params[0].iPayloadType = 96;
    params[1].codec = RTP_CODEC_G711;
    params[1].iPayloadType = 8;
    params[1].endpoint.uiClockRate = 8000;
    gvx::RtpPoller poller;
    std::size_t number = 0;
    for (const CCommonSession* session : client.Sessions()) {
        if (number == media.size() || !SetUp(client, *session, number, onConnection, media[number], params[number])) {
            return false;
        }
        media[number].file.open(folder + "/received." + (number == 0 ? codec : "alaw"), std::ios::binary);
        if (!onConnection) {
            poller.Add(media[number].receiver);
        }
        ++number;
    }
    if (!Told("PLAY", client.Play())) {
        return false;
    }
    const std::int64_t limit = gvx::MonotonicMilliseconds() + kPlayLimitMs;
    while (!(media[0].ended && media[1].ended) && gvx::MonotonicMilliseconds() < limit) {
        if (!onConnection) {
            poller.Poll(100);
        } else if (!client.ReadInterleaved()) {
            break;
        }
    }
    std::printf("ENDED %s, %d frames and %d of sound, %d broken\n", media[0].ended && media[1].ended ? "both" : "not",
                media[0].units, media[1].units, media[0].broken + media[1].broken);
    for (Media& one : media) {
        poller.Remove(one.receiver);
        one.receiver.Close();
    }
    return Told("TEARDOWN", client.Teardown());
}

}  // namespace

int main(int argc, char** argv) {
    std::string clear;
    char password[512] = {};
    if (argc != 6 || !std::getline(std::cin, clear) ||
        CSecurityMgr::Instance()->EncryptString(clear.c_str(), password, sizeof(password)) != 0) {
        std::fprintf(stderr, "usage: %s URL USER h264|h265 udp|tcp FOLDER <PASSWORD\n", argv[0]);
        return 2;
    }
    RtspClient client(argv[1], argv[2], password);
    const int connected = client.Connect();
    const int options = connected == 0 ? client.Options() : connected;
    std::string told;
    for (const std::string& method : client.MethodNames()) {
        told += " " + method;
    }
    if (!Told("OPTIONS", options, told)) {
        return 1;
    }
    const int result = client.Describe();
    told.clear();
    for (const CCommonSession* session : client.Sessions()) {
        told +=
            std::string(" ") + session->m_szSessionName + "=" + session->m_szSessionType + "=" + session->m_szCtrlPath;
    }
    if (!Told("DESCRIBE", result, told) || !Play(client, argv[3], std::string(argv[4]) == "tcp", argv[5])) {
        return 1;
    }
    std::printf("AUTHORIZATION %s\n", client.Authorization().substr(0, client.Authorization().find(' ')).c_str());
    return 0;
}
