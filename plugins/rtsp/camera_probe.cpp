#include "rtsp/camera_probe.h"

#include "base/clock.h"
#include "base/log.h"
#include "base/random.h"
#include "base/unique_fd.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <strings.h>
#include <sys/socket.h>

namespace gvxrtsp {
namespace {

constexpr const char* kTitle = "rtsp plug-in";
constexpr std::size_t kMostAtOnce = 64;
constexpr std::int64_t kAnswerMs = 2000;
constexpr std::int64_t kMatchesMs = 3000;
constexpr int kTurnMs = 100;
constexpr std::size_t kMaxAnswer = 4096;
constexpr const char* kDiscoveryGroup = "239.255.255.250";
constexpr std::uint16_t kDiscoveryPort = 3702;

struct Probe {
    gvx::UniqueFd socket;
    ProbedCamera camera;
    std::string answer;
    bool asked = false;
    std::int64_t endMs = 0;
};

bool Begin(const std::string& address, std::uint16_t port, Probe& probe) {
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(port);
    probe.camera = {address, port, ""};
    probe.endMs = gvx::MonotonicMilliseconds() + kAnswerMs;
    probe.socket.Reset(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    return probe.socket.Valid() && inet_pton(AF_INET, address.c_str(), &to.sin_addr) == 1 &&
           (connect(probe.socket.Get(), reinterpret_cast<const sockaddr*>(&to), sizeof(to)) == 0 ||
            errno == EINPROGRESS);
}

// A name goes into reports, whose texts are UTF-8: what may be none is left out.
std::string Printable(std::string name) {
    name.erase(std::remove_if(name.begin(), name.end(), [](unsigned char c) { return c < ' ' || c > '~'; }),
               name.end());
    return name;
}

std::string ValueOf(const std::string& answer, const char* name) {
    for (std::size_t at = answer.find("\r\n"); at != std::string::npos; at = answer.find("\r\n", at + 2)) {
        if (strncasecmp(answer.c_str() + at + 2, name, std::strlen(name)) == 0) {
            const std::size_t from = answer.find_first_not_of(' ', at + 2 + std::strlen(name));
            return from == std::string::npos ? "" : answer.substr(from, answer.find("\r\n", from) - from);
        }
    }
    return {};
}

// False when the probe is through, told or not.
bool Go(Probe& probe, short events, const ProbeReport& report) {
    if (!probe.asked) {
        const std::string request = "OPTIONS rtsp://" + probe.camera.address + ":" + std::to_string(probe.camera.port) +
                                    "/ RTSP/1.0\r\nCSeq: 1\r\nUser-Agent: gvx\r\n\r\n";
        probe.asked = true;
        return (events & (POLLERR | POLLHUP)) == 0 && send(probe.socket.Get(), request.data(), request.size(),
                                                           MSG_NOSIGNAL) == static_cast<ssize_t>(request.size());
    }
    char buffer[1024];
    const ssize_t size = recv(probe.socket.Get(), buffer, sizeof(buffer), 0);
    if (size <= 0) {
        return size < 0 && (errno == EAGAIN || errno == EINTR);
    }
    probe.answer.append(buffer, static_cast<std::size_t>(size));
    if (probe.answer.compare(0, 5, "RTSP/", 0, std::min<std::size_t>(5, probe.answer.size())) != 0 ||
        probe.answer.size() > kMaxAnswer) {
        return false;
    }
    if (probe.answer.find("\r\n\r\n") == std::string::npos) {
        return true;
    }
    probe.camera.name = Printable(ValueOf(probe.answer, "Server:"));
    report(probe.camera);
    return false;
}

// The text of the first element of that name, whatever its prefix.
std::string ElementText(const std::string& xml, const std::string& name) {
    for (std::size_t at = xml.find(name); at != std::string::npos; at = xml.find(name, at + 1)) {
        const std::size_t end = at + name.size();
        const bool begins = at > 0 && (xml[at - 1] == '<' || xml[at - 1] == ':') && end < xml.size() &&
                            (xml[end] == '>' || xml[end] == ' ');
        const std::size_t open = xml.rfind('<', at);
        if (begins && open != std::string::npos && xml[open + 1] != '/') {
            const std::size_t from = xml.find('>', end);
            return from == std::string::npos ? "" : xml.substr(from + 1, xml.find('<', from) - from - 1);
        }
    }
    return {};
}

std::string Unescaped(const std::string& text) {
    std::string plain;
    for (std::size_t i = 0; i < text.size(); ++i) {
        unsigned int code = 0;
        if (text[i] == '%' && i + 2 < text.size() && std::sscanf(text.c_str() + i + 1, "%2x", &code) == 1 &&
            code >= 32) {
            plain += static_cast<char>(code);
            i += 2;
        } else {
            plain += text[i];
        }
    }
    return plain;
}

std::string ProbeMessage() {
    std::array<unsigned char, 16> bytes{};
    CBB::GenerateRandom(bytes.data(), bytes.size());
    char id[40] = {};
    std::snprintf(id, sizeof(id), "%02x%02x%02x%02x-%02x%02x-4%x%02x-a%x%02x-%02x%02x%02x%02x%02x%02x", bytes[0],
                  bytes[1], bytes[2], bytes[3], bytes[4], bytes[5], bytes[6] & 15u, bytes[7], bytes[8] & 15u, bytes[9],
                  bytes[10], bytes[11], bytes[12], bytes[13], bytes[14], bytes[15]);
    return std::string(
               "<?xml version=\"1.0\" encoding=\"UTF-8\"?>"
               "<e:Envelope xmlns:e=\"http://www.w3.org/2003/05/soap-envelope\""
               " xmlns:w=\"http://schemas.xmlsoap.org/ws/2004/08/addressing\""
               " xmlns:d=\"http://schemas.xmlsoap.org/ws/2005/04/discovery\""
               " xmlns:dn=\"http://www.onvif.org/ver10/network/wsdl\"><e:Header><w:MessageID>urn:uuid:") +
           id +
           "</w:MessageID><w:To>urn:schemas-xmlsoap-org:ws:2005:04:discovery</w:To>"
           "<w:Action>http://schemas.xmlsoap.org/ws/2005/04/discovery/Probe</w:Action></e:Header>"
           "<e:Body><d:Probe><d:Types>dn:NetworkVideoTransmitter</d:Types></d:Probe></e:Body></e:Envelope>";
}

}  // namespace

void ProbeRtsp(const std::list<std::string>& addresses, const std::list<std::uint16_t>& ports,
               const ProbeReport& report, const ProbeOver& over, const ProbeProgress& progress) {
    const std::size_t total = addresses.size() * ports.size();
    std::size_t begun = 0;
    std::list<Probe> probes;
    std::vector<pollfd> handles;
    auto address = addresses.begin();
    auto port = ports.begin();
    while (!over() && (address != addresses.end() || !probes.empty())) {
        while (address != addresses.end() && port != ports.end() && probes.size() < kMostAtOnce) {
            Probe probe;
            if (Begin(*address, *port, probe)) {
                probes.push_back(std::move(probe));
            } else if (!probe.socket.Valid()) {
                break;  // no descriptors: as many as there are go on
            }
            ++begun;
            if (++port == ports.end()) {
                port = ports.begin();
                ++address;
            }
        }
        if (probes.empty() && address != addresses.end()) {
            GVX_LOG_ERR(kTitle, "The search ends early: %s", std::strerror(errno));
            return;
        }
        progress(static_cast<unsigned int>(99 * (begun - probes.size()) / std::max<std::size_t>(total, 1)));
        handles.clear();
        for (const Probe& probe : probes) {
            handles.push_back({probe.socket.Get(), static_cast<short>(probe.asked ? POLLIN : POLLOUT), 0});
        }
        poll(handles.data(), handles.size(), kTurnMs);
        const std::int64_t nowMs = gvx::MonotonicMilliseconds();
        auto handle = handles.begin();
        for (auto probe = probes.begin(); probe != probes.end(); ++handle) {
            const bool goesOn = handle->revents == 0 ? nowMs < probe->endMs : Go(*probe, handle->revents, report);
            probe = goesOn ? std::next(probe) : probes.erase(probe);
        }
    }
}

bool ReadProbeMatch(const std::string& message, ProbedCamera& camera) {
    const std::string services = ElementText(message, "XAddrs");
    const std::size_t host = services.find("://");
    if (message.find("ProbeMatch") == std::string::npos || host == std::string::npos) {
        return false;
    }
    in_addr parsed{};
    const std::size_t end = services.find_first_of(":/ ", host + 3);
    camera.address = services.substr(host + 3, end - host - 3);
    const std::string scopes = ElementText(message, "Scopes");
    const char* const kName = "onvif://www.onvif.org/name/";
    const std::size_t name = scopes.find(kName);
    if (name != std::string::npos) {
        const std::size_t from = name + std::strlen(kName);
        camera.name = Printable(Unescaped(scopes.substr(from, scopes.find_first_of(" \r\n\t", from) - from)));
    }
    return inet_pton(AF_INET, camera.address.c_str(), &parsed) == 1;
}

void ProbeOnvif(const std::string& localAddress, const ProbeReport& report, const ProbeOver& over) {
    in_addr local{};
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(kDiscoveryPort);
    inet_pton(AF_INET, kDiscoveryGroup, &to.sin_addr);
    const gvx::UniqueFd link(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const std::string message = ProbeMessage();
    if (!link.Valid() || inet_pton(AF_INET, localAddress.c_str(), &local) != 1 ||
        setsockopt(link.Get(), IPPROTO_IP, IP_MULTICAST_IF, &local, sizeof(local)) != 0 ||
        sendto(link.Get(), message.data(), message.size(), 0, reinterpret_cast<const sockaddr*>(&to), sizeof(to)) < 0) {
        GVX_LOG_WARN(kTitle, "The network of %s cannot be asked for cameras: %s", localAddress.c_str(),
                     std::strerror(errno));
        return;
    }
    const std::int64_t endMs = gvx::MonotonicMilliseconds() + kMatchesMs;
    std::vector<char> buffer(65536);
    while (!over() && gvx::MonotonicMilliseconds() < endMs) {
        pollfd handle{link.Get(), POLLIN, 0};
        if (poll(&handle, 1, kTurnMs) <= 0) {
            continue;
        }
        const ssize_t size = recv(link.Get(), buffer.data(), buffer.size(), MSG_DONTWAIT);
        ProbedCamera camera;
        if (size > 0 && ReadProbeMatch(std::string(buffer.data(), static_cast<std::size_t>(size)), camera)) {
            report(camera);
        }
    }
}

}  // namespace gvxrtsp
