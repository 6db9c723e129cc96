#pragma once

#include <cstdint>
#include <functional>
#include <list>
#include <string>

namespace gvxrtsp {

// A camera that answered a probe.
struct ProbedCamera {
    std::string address;  // IPv4
    std::uint16_t port = 0;
    std::string name;  // what its server, or its scopes, call it; may be empty
};

// Both search until they are through or over() says so, and tell each camera on the calling thread.
using ProbeReport = std::function<void(const ProbedCamera&)>;
using ProbeOver = std::function<bool()>;
using ProbeProgress = std::function<void(unsigned int percent)>;

// Asks each address on each port for OPTIONS (RFC 2326, section 10.1), at most 64 at once; whoever answers in RTSP
// within two seconds is a camera, whatever the answer says. progress is told now and then, 99 at most.
void ProbeRtsp(const std::list<std::string>& addresses, const std::list<std::uint16_t>& ports,
               const ProbeReport& report, const ProbeOver& over, const ProbeProgress& progress);

// Asks the network of a local address for video transmitters (WS-Discovery 2005/04 as ONVIF Core, section 7, uses it):
// one probe to 239.255.255.250:3702, answers for three seconds. The port told is that of the device's service, not of
// RTSP, which is why it is left at 0.
void ProbeOnvif(const std::string& localAddress, const ProbeReport& report, const ProbeOver& over);

// Address and name in an answer to such a probe; false when it is none.
bool ReadProbeMatch(const std::string& message, ProbedCamera& camera);

}  // namespace gvxrtsp
