#include "rtsp/camera_probe.h"

#include "base/unique_fd.h"
#include "support/scripted_server.h"

#include <gtest/gtest.h>

#include <list>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <arpa/inet.h>
#include <sys/socket.h>

namespace gvxrtsp {
namespace {

std::string Address(int last) {
    return "127.0.0." + std::to_string(last);
}

TEST(ProbeRtsp, FindsThoseThatAnswerInRtsp) {
    constexpr int kLast = 80;  // more than are asked at once
    const struct {
        int last;
        std::string answer;  // empty: silence
        bool found;
    } rows[] = {
        {2, "RTSP/1.0 200 OK\r\nCSeq: 1\r\nserver:  Some Camera\r\nPublic: OPTIONS\r\n\r\n", true},
        {3, "HTTP/1.1 400 Bad Request\r\nServer: web\r\n\r\n", false},
        {4, "", false},
        {5, "RTSP/1.0 200 OK\r\n" + std::string(100000, 'x'), false},
        {kLast, "RTSP/1.0 401 Unauthorized\r\nServer: A\x1b[31mB\r\n\r\n", true},
    };
    std::vector<std::unique_ptr<ScriptedServer>> servers;
    for (const auto& row : rows) {
        servers.push_back(std::make_unique<ScriptedServer>(
            [&row](ScriptedServer::Link& link) {
                EXPECT_EQ(0u, link.ReadRequest().find("OPTIONS rtsp://" + Address(row.last)));
                link.Write(row.answer);
                link.WaitClosed();
            },
            servers.empty() ? std::uint16_t{0} : servers.front()->Port(), Address(row.last).c_str()));
    }
    std::list<std::string> addresses;
    for (int last = 2; last <= kLast; ++last) {
        addresses.push_back(Address(last));
    }
    std::set<std::string> found;
    unsigned int last = 0;
    ProbeRtsp(
        addresses, {servers.front()->Port()},
        [&](const ProbedCamera& camera) { found.insert(camera.address + " " + camera.name); }, [] { return false; },
        [&](unsigned int percent) {
            EXPECT_TRUE(percent >= last && percent <= 99) << percent << " behind " << last;
            last = percent;
        });
    EXPECT_LT(50u, last);
    EXPECT_EQ((std::set<std::string>{"127.0.0.2 Some Camera", "127.0.0.80 A[31mB"}), found);
}

TEST(ReadProbeMatch, TakesAddressAndName) {
    const auto match = [](const std::string& services, const std::string& scopes) {
        return "<s:Envelope><s:Body><d:ProbeMatches><d:ProbeMatch><d:Scopes>" + scopes + "</d:Scopes><d:XAddrs>" +
               services + "</d:XAddrs></d:ProbeMatch></d:ProbeMatches></s:Body></s:Envelope>";
    };
    const struct {
        std::string message;
        std::string found;  // empty: refused
    } rows[] = {
        {match("http://192.0.2.7:8080/onvif/device_service http://[fe80::1]/x",
               "onvif://www.onvif.org/type/x onvif://www.onvif.org/name/Front%20Door%0a"),
         "192.0.2.7 Front Door%0a"},
        {match("http://192.0.2.7/onvif", ""), "192.0.2.7 "},
        {match("http://camera.example/onvif", "onvif://www.onvif.org/name/x"), ""},
        {match("", ""), ""},
        {"<Hello><XAddrs>http://192.0.2.7/</XAddrs></Hello>", ""},
        {"<d:ProbeMatch><d:XAddrs", ""},
        {std::string("\0<XAddrs>ProbeMatch", 19), ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.message);
        ProbedCamera camera;
        EXPECT_EQ(!row.found.empty(), ReadProbeMatch(row.message, camera));
        if (!row.found.empty()) {
            EXPECT_EQ(row.found, camera.address + " " + camera.name);
        }
    }
}

TEST(ProbeOnvif, FindsTheDeviceThatAnswersOnTheLoopback) {
    const gvx::UniqueFd device(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    sockaddr_in group{};
    group.sin_family = AF_INET;
    group.sin_port = htons(3702);
    ::inet_pton(AF_INET, "239.255.255.250", &group.sin_addr);
    ip_mreq membership{group.sin_addr, {htonl(INADDR_LOOPBACK)}};
    const int on = 1;
    const timeval limit{20, 0};
    ::setsockopt(device.Get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
    ::setsockopt(device.Get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
    ASSERT_EQ(0, ::bind(device.Get(), reinterpret_cast<const sockaddr*>(&group), sizeof(group)));
    ASSERT_EQ(0, ::setsockopt(device.Get(), IPPROTO_IP, IP_ADD_MEMBERSHIP, &membership, sizeof(membership)));
    std::string probe(4096, '\0');
    std::thread answers([&] {
        sockaddr_in from{};
        socklen_t size = sizeof(from);
        const ssize_t got =
            ::recvfrom(device.Get(), probe.data(), probe.size(), 0, reinterpret_cast<sockaddr*>(&from), &size);
        probe.resize(static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
        const std::string match =
            "<ProbeMatches><ProbeMatch><XAddrs>http://127.0.0.9/x</XAddrs></ProbeMatch></ProbeMatches>";
        for (const std::string& answer : {std::string("no match"), match}) {
            ::sendto(device.Get(), answer.data(), answer.size(), 0, reinterpret_cast<const sockaddr*>(&from), size);
        }
    });
    std::string found;
    ProbeOnvif(
        "127.0.0.1", [&](const ProbedCamera& camera) { found += camera.address; }, [&] { return !found.empty(); });
    answers.join();
    EXPECT_EQ("127.0.0.9", found);
    EXPECT_NE(std::string::npos, probe.find("NetworkVideoTransmitter"));
}

}  // namespace
}  // namespace gvxrtsp
