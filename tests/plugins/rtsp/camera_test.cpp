#include "rtsp/camera.h"

#include "rtsp/frame_sender.h"
#include "support/scripted_server.h"
#include "support/temp_folder.h"
#include "support/test_lens.h"
#include "support/wait_until.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include <arpa/inet.h>
#include <sys/socket.h>

namespace gvxrtsp {
namespace {

constexpr char kDescription[] =
    "v=0\r\no=- 1 1 IN IP4 127.0.0.1\r\ns=x\r\nt=0 0\r\nm=video 0 RTP/AVP 96\r\na=rtpmap:96 H264/90000\r\n"
    "a=fmtp:96 packetization-mode=1;sprop-parameter-sets=Z0IAHpWoKA9puAgICBA=,aM48gA==\r\na=control:track1\r\n";
const std::string kOtherSet("\x67\x42\x00\x1e\x95\xa8\x28\x0f\x69\xb8\x09\x09\x09\x11", 14);
const std::string kPicture = "\x65\x88" + std::string(40, 'p');

// A camera's end of one connection: what comes is answered well, but for the method that its test cares for.
class CameraEnd {
public:
    using Link = ScriptedServer::Link;

    explicit CameraEnd(Link& link) : m_link(link) {}

    // Answers up to a request of that method, which is left to the caller. False when the client closes.
    bool UpTo(const std::string& method) {
        while (!(m_request = m_link.ReadRequest()).empty()) {
            if (m_request.compare(0, method.size() + 1, method + " ") == 0) {
                return true;
            }
            const bool describes = m_request.compare(0, 8, "DESCRIBE") == 0;
            if (m_request.compare(0, 5, "SETUP") == 0) {
                AnswerSetup();
            } else {
                Answer("200 OK", describes ? "Content-Type: application/sdp\r\n" : "", describes ? kDescription : "");
            }
        }
        return false;
    }
    void Answer(const std::string& status, const std::string& heads = "", const std::string& body = "") {
        const std::size_t number = m_request.find("CSeq: ");
        if (number == std::string::npos) {
            return;  // the client has closed
        }
        m_link.Write("RTSP/1.0 " + status + "\r\nCSeq: " + std::to_string(std::stoi(m_request.substr(number + 6))) +
                     "\r\n" + heads + "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body);
    }
    void AnswerSetup() { Answer("200 OK", "Session: 12;timeout=1\r\n" + Transport()); }
    void Write(const std::string& bytes) { m_link.Write(bytes); }
    bool AsksForUdp() const { return m_request.find("client_port=") != std::string::npos; }
    // A unit that ends an access unit, or not.
    void Send(const std::string& unit, bool last = true) {
        ++m_sequence;
        m_time += m_begins ? 3600 : 0;
        m_begins = last;
        const std::string packet = {'\x80',
                                    static_cast<char>(last ? 0xE0 : 0x60),
                                    0,
                                    m_sequence,
                                    0,
                                    0,
                                    static_cast<char>(m_time >> 8),
                                    static_cast<char>(m_time),
                                    0,
                                    0,
                                    0,
                                    9};
        const std::string load = packet + unit;
        if (m_clientPort != 0) {
            sockaddr_in to{};
            to.sin_family = AF_INET;
            to.sin_port = htons(m_clientPort);
            to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
            ::sendto(m_udp.Get(), load.data(), load.size(), 0, reinterpret_cast<const sockaddr*>(&to), sizeof(to));
            return;
        }
        m_link.Write(std::string("$\0\0", 3) + static_cast<char>(load.size()) + load);
    }
    void Play() {
        if (UpTo("PLAY")) {
            Answer("200 OK");
            SendPictures();
        }
    }
    // A receiver believes in a source behind its second packet (RFC 3550, section A.1).
    void SendPictures() {
        for (int i = 0; i < 3; ++i) {
            Send(kPicture);
        }
    }
    void BeginTimeAnew() { m_time = 0; }
    // Keeps the session until the client closes.
    void Stay() { UpTo("nothing"); }

private:
    std::string Transport() {
        const std::size_t at = m_request.find("client_port=");
        if (at == std::string::npos) {
            return "Transport: RTP/AVP/TCP;unicast;interleaved=0-1\r\n";
        }
        m_clientPort = static_cast<std::uint16_t>(std::stoi(m_request.substr(at + 12)));
        m_udp.Reset(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
        sockaddr_in own{};
        own.sin_family = AF_INET;
        own.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof(own);
        ::bind(m_udp.Get(), reinterpret_cast<const sockaddr*>(&own), size);
        ::getsockname(m_udp.Get(), reinterpret_cast<sockaddr*>(&own), &size);
        const int port = ntohs(own.sin_port);
        return "Transport: RTP/AVP;unicast;client_port=" + std::to_string(m_clientPort) + "-" +
               std::to_string(m_clientPort + 1) + ";server_port=" + std::to_string(port) + "-" +
               std::to_string(port + 1) + "\r\n";
    }

    Link& m_link;
    std::string m_request;
    gvx::UniqueFd m_udp;
    std::uint16_t m_clientPort = 0;
    char m_sequence = 0;
    unsigned int m_time = 0;
    bool m_begins = true;  // the next unit a picture
};

// The plug-in's camera on a loop, with one user of its main stream.
class CameraOnLoop {
public:
    explicit CameraOnLoop(std::uint16_t port, int noFramesSeconds = 60) {
        std::string error;
        EXPECT_TRUE(m_profiles.Load(m_folder.Write("rtsp.json", "{\"loginsPerMinute\":600,\"noFramesSeconds\":" +
                                                                    std::to_string(noFramesSeconds) + "}"),
                                    error) &&
                    m_loop.Start(error))
            << error;
        CameraProfile profile;
        profile.address = "127.0.0.1";
        profile.port = port;
        profile.paths.main = "/live";
        m_camera = std::make_unique<Camera>(m_loop, profile, m_profiles,
                                            [this](CameraState state, const std::string& /*reason*/) {
                                                const std::lock_guard<std::mutex> guard(m_mutex);
                                                m_states.emplace_back(CameraStateName(state));
                                            });
        m_loop.Call([this] {
            StreamUser user;
            user.serviceID = "1";
            user.userInfo = this;
            user.send = &CameraOnLoop::Take;
            m_camera->Open();
            EXPECT_EQ(0, m_sender.Add(std::move(user)));
            m_camera->Stream(MAIN_STREAM)->Join(&m_sender);
        });
    }
    ~CameraOnLoop() {
        m_loop.Call([this] { m_camera->Close(); });
    }

    std::vector<std::string> States() const {
        const std::lock_guard<std::mutex> guard(m_mutex);
        return m_states;
    }
    bool HasGoneBack() const { return m_hasGoneBack; }
    // All that the user got, one unit behind the other.
    std::string Bytes() const {
        const std::lock_guard<std::mutex> guard(m_mutex);
        return m_bytes;
    }

private:
    static int Take(MEDIA_DATA* data, STREAM_TYPE_EX* /*streamType*/) {
        auto& self = *static_cast<CameraOnLoop*>(data->pUserInfo);
        const std::lock_guard<std::mutex> guard(self.m_mutex);
        self.m_hasGoneBack = self.m_hasGoneBack || static_cast<std::int32_t>(data->nTimeTick) < 0;
        self.m_bytes.append(static_cast<const char*>(data->pDataBuf), data->nVideoSize);
        return 0;
    }

    const TempFolder m_folder;
    CameraProfiles m_profiles;
    TestLensOnDevice m_lens;
    FrameSender m_sender{m_lens.lens, MAIN_STREAM};
    mutable std::mutex m_mutex;
    std::vector<std::string> m_states;  // Guarded by m_mutex.
    std::string m_bytes;                // Guarded by m_mutex.
    std::atomic<bool> m_hasGoneBack{false};
    MediaLoop m_loop;
    std::unique_ptr<Camera> m_camera;
};

std::function<void(CameraEnd&)> RefusesAt(const char* method, const char* status) {
    return [method, status](CameraEnd& end) {
        end.UpTo(method);
        end.Answer(status);
        end.Stay();
    };
}

// What a camera does at the first connection; at the next one it behaves, and the stream must come then.
TEST(Camera, GoesOnBehindWhateverACameraDoes) {
    using States = std::vector<std::string>;
    const struct {
        const char* name;
        std::function<void(CameraEnd&)> misbehave;
        States states;
    } rows[] = {
        {"closes behind PLAY",
         [](CameraEnd& end) {
             end.UpTo("PLAY");
             end.Answer("200 OK");
         },
         {"offline", "online"}},
        {"sends pictures ahead of the answer to PLAY",
         [](CameraEnd& end) {
             end.UpTo("PLAY");
             end.SendPictures();
             end.Answer("200 OK");
             end.Stay();
         },
         {"online"}},
        {"has forgotten the session at SETUP", RefusesAt("SETUP", "454 Session Not Found"), {"refused", "online"}},
        {"forgets the session while it plays",
         [](CameraEnd& end) {
             end.Play();
             end.UpTo("OPTIONS");
             end.Answer("454 Session Not Found");
             end.Stay();
         },
         {"online", "offline", "online"}},
        {"takes no TCP", RefusesAt("SETUP", "461 Unsupported Transport"), {"online"}},
        {"takes no TCP, which is a bad request to it", RefusesAt("SETUP", "400 Bad Request"), {"online"}},
        {"does not know the path", RefusesAt("DESCRIBE", "404 Not Found"), {"no such stream", "online"}},
        {"does not know an option", RefusesAt("PLAY", "551 Option not supported"), {"refused", "online"}},
        {"sends the client elsewhere",
         [](CameraEnd& end) {
             end.UpTo("DESCRIBE");
             end.Answer("302 Moved\n\x1b[31m", "Location: rtsp://192.0.2.1/\r\n");
             end.Stay();
         },
         {"refused", "online"}},
        {"stops sending without closing",
         [](CameraEnd& end) {
             end.Play();
             end.Stay();
         },
         {"online", "no frames", "online"}},
        {"sends heads without end",
         [](CameraEnd& end) {
             end.UpTo("OPTIONS");
             end.Write("RTSP/1.0 200 OK\r\n" + std::string(200000, 'x'));
             end.Stay();
         },
         {"offline", "online"}},
        {"promises a body that is too long",
         [](CameraEnd& end) {
             end.UpTo("DESCRIBE");
             end.Write("RTSP/1.0 200 OK\r\nContent-Length: 99999999999\r\n\r\n");
             end.Stay();
         },
         {"offline", "online"}},
        {"sends packets of channels that nobody asked for, then what is none",
         [](CameraEnd& end) {
             end.UpTo("PLAY");
             end.Answer("200 OK");
             end.Write(std::string("$\xfe\0\x03", 4) + "abc" + std::string("$\0\0\0$\1\0\1x", 9));
             end.Write("\xff\xff");
             end.Stay();
         },
         {"offline", "online"}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        std::atomic<int> connections{0};
        std::atomic<bool> udp{false};
        ScriptedServer server([&](ScriptedServer::Link& link) {
            CameraEnd end(link);
            if (++connections == 1) {
                row.misbehave(end);
                return;
            }
            if (end.UpTo("SETUP")) {
                udp = end.AsksForUdp();
                end.AnswerSetup();
                end.Play();
                end.Stay();
            }
        });
        const bool falls = std::find(row.states.begin(), row.states.end(), "no frames") != row.states.end();
        CameraOnLoop camera(server.Port(), falls ? 1 : 60);
        EXPECT_TRUE(WaitUntil([&] { return camera.States().size() >= row.states.size(); }));
        EXPECT_TRUE(WaitUntil([&] { return camera.Bytes().find(kPicture) != std::string::npos; }));
        const States states = camera.States();
        EXPECT_EQ(row.states, States(states.begin(), states.begin() + static_cast<std::ptrdiff_t>(
                                                                          std::min(states.size(), row.states.size()))));
        EXPECT_EQ(std::string(row.name).rfind("takes no TCP", 0) == 0, udp);
    }
}

// A camera that asks for a connection at each turn, and gives it back behind the turn.
struct AskingTimer : LoopTimer {
    explicit AskingTimer(MediaLoop& loop) : LoopTimer(loop) { SetDue(0); }
    void OnTimer(std::int64_t /*nowUs*/) override {
        if (m_loop.MayConnect(*this, false)) {
            ++served;
            m_loop.AddConnecting(1);
            m_loop.Post([this] { m_loop.AddConnecting(-1); });
            SetDue(0);
        }
    }
    std::atomic<int> served{0};
};

TEST(MediaLoop, TheLastConnectionGoesRound) {
    MediaLoop loop;
    std::vector<std::unique_ptr<AskingTimer>> timers;
    std::string error;
    ASSERT_TRUE(loop.Start(error)) << error;
    loop.Call([&] {
        loop.AddConnecting(MediaLoop::kMostLooking - 1);
        for (int i = 0; i < 3; ++i) {
            timers.push_back(std::make_unique<AskingTimer>(loop));
        }
    });
    for (const auto& timer : timers) {
        EXPECT_TRUE(WaitUntil([&] { return timer->served > 2; }));
    }
    loop.Stop();
}

TEST(Camera, PutsTheLatestParameterSetsInFrontOfAKeyFrameAndNeverGoesBackInTime) {
    const std::string described("\x67\x42\x00\x1e\x95\xa8\x28\x0f\x69\xb8\x08\x08\x08\x10", 14);
    ScriptedServer server([](ScriptedServer::Link& link) {
        CameraEnd end(link);
        end.Play();
        end.Send(kOtherSet, false);
        end.Send(kPicture + "second");
        end.BeginTimeAnew();
        end.Send(kPicture + "third");
        end.Stay();
    });
    CameraOnLoop camera(server.Port());
    ASSERT_TRUE(WaitUntil([&] { return camera.Bytes().find("third") != std::string::npos; }));
    const std::string bytes = camera.Bytes();
    const std::size_t second = bytes.find("second");
    EXPECT_LT(bytes.find(described), bytes.find(kPicture));
    EXPECT_EQ(std::string::npos, bytes.find(described, second));
    EXPECT_NE(std::string::npos, bytes.find(kOtherSet, second)) << "the third picture has the changed set";
    EXPECT_FALSE(camera.HasGoneBack()) << "though the camera's clock has";
}

}  // namespace
}  // namespace gvxrtsp
