#include "gvx_common/rtp/common_rtp_base.h"

#include "base/clock.h"
#include "base/log.h"
#include "base/random.h"
#include "gvx_common/config/setting_table.h"
#include "gvx_common/rtp/rtp_view.h"

#include <algorithm>
#include <cerrno>

#include <arpa/inet.h>
#include <sys/socket.h>

namespace {

constexpr const char* kTitle = "Rtp endpoint";
constexpr int kMostPortTries = 64;

// A socket bound to that address, or none with errno.
gvx::UniqueFd BoundSocket(const in_addr& ip, std::uint16_t port) {
    gvx::UniqueFd handle(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr = ip;
    address.sin_port = htons(port);
    if (handle.Valid() && ::bind(handle.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        handle.Reset();
    }
    return handle;
}

std::uint16_t PortOf(int handle) {
    sockaddr_in address{};
    socklen_t size = sizeof(address);
    return ::getsockname(handle, reinterpret_cast<sockaddr*>(&address), &size) == 0 ? ntohs(address.sin_port)
                                                                                    : std::uint16_t{0};
}

// The kernel cuts the size at net.core.rmem_max or wmem_max without a word, except for who may go beyond.
void SetBuffer(int handle, int option, int bytes) {
    const int forced = option == SO_RCVBUF ? SO_RCVBUFFORCE : SO_SNDBUFFORCE;
    if (::setsockopt(handle, SOL_SOCKET, forced, &bytes, sizeof(bytes)) == 0) {
        return;
    }
    ::setsockopt(handle, SOL_SOCKET, option, &bytes, sizeof(bytes));
    int got = 0;
    socklen_t size = sizeof(got);
    // The kernel tells twice what it was asked for: the rest is for its own use.
    if (::getsockopt(handle, SOL_SOCKET, option, &got, &size) == 0 && got / 2 < bytes) {
        GVX_DEBUG("Rtp socket buffer is %d bytes of %d, limited by the system.", got / 2, bytes);
    }
}

}  // namespace

int CCommonRtpBase::OpenBase(const RtpEndpointParams& params, int bufferOption, int bufferBytes) {
    if (m_open) {
        GVX_LOG_ERR(kTitle, "The endpoint is open already, port[%u].", static_cast<unsigned int>(m_port));
        return ZVS_FAIL;
    }
    if (params.uiClockRate == 0 || params.usLocalPort % 2 != 0 || params.strCname.size() > 255) {
        GVX_LOG_ERR(kTitle, "Parameters are wrong, clock rate[%u], port[%u].", params.uiClockRate,
                    static_cast<unsigned int>(params.usLocalPort));
        return ZVS_PARA_INVALID;
    }
    m_interleavedSend = params.interleavedSend;
    m_clockRate = params.uiClockRate;
    m_remote = m_remoteControl = sockaddr_in{};
    if (!params.strRemoteIp.empty()) {
        const int result = SetRemote(params.strRemoteIp, params.usRemotePort, params.usRemoteControlPort);
        if (result != ZVS_SUCCEED) {
            return result;
        }
    }
    const std::string ip =
        !params.strLocalIp.empty() ? params.strLocalIp : gvx::SettingText(gvx::Setting::GVX_MEDIA_IP);
    if (!m_interleavedSend) {
        const int result = OpenSockets(ip, params.usLocalPort);
        if (result != ZVS_SUCCEED) {
            return result;
        }
        SetBuffer(m_handle.Get(), bufferOption, bufferBytes);
    }
    CBB::GenerateRandom(&m_ssrc, sizeof(m_ssrc));
    m_cname = !params.strCname.empty() ? params.strCname : "gvx-" + std::to_string(m_port) + "@" + ip;
    m_cname.resize(std::min<std::size_t>(m_cname.size(), 255));
    m_device = params.strDevice;
    m_linkPeer = params.linkPeer;
    m_localEnd = m_interleavedSend ? params.linkLocal : GvxMakeTraceEnd(ip, m_port);
    m_open = true;
    m_schedule.Start(gvx::CurrentClock().MonotonicMicroseconds(), params.uiBandwidth, GetSession());
    return ZVS_SUCCEED;
}

// RFC 3550, 11: RTP on an even port, RTCP on the next.
int CCommonRtpBase::OpenSockets(const std::string& ip, std::uint16_t port) {
    in_addr address{};
    if (::inet_pton(AF_INET, ip.c_str(), &address) != 1) {
        GVX_LOG_ERR_CODE(kTitle, ZVS_GVX_OPEN_SOCKET_ERROR, "The local address is wrong, ip[%s].", ip.c_str());
        return ZVS_GVX_OPEN_SOCKET_ERROR;
    }
    int error = 0;
    for (int i = 0; i < (port == 0 ? kMostPortTries : 1); ++i) {
        m_handle = BoundSocket(address, port);
        error = errno;
        if (!m_handle.Valid()) {
            continue;
        }
        const std::uint16_t got = PortOf(m_handle.Get());
        if (got % 2 == 0 && got != 0) {
            m_controlHandle = BoundSocket(address, static_cast<std::uint16_t>(got + 1));
            error = errno;
            if (m_controlHandle.Valid()) {
                m_port = got;
                return ZVS_SUCCEED;
            }
        }
        CloseSockets();
    }
    GVX_LOG_ERR_CODE(kTitle, ZVS_GVX_OPEN_SOCKET_ERROR, "No pair of ports, ip[%s], port[%u], errno: %d.", ip.c_str(),
                     static_cast<unsigned int>(port), error);
    return ZVS_GVX_OPEN_SOCKET_ERROR;
}

void CCommonRtpBase::CloseSockets() {
    m_handle.Reset();
    m_controlHandle.Reset();
    m_port = 0;
}

int CCommonRtpBase::SetRemote(const std::string& ip, std::uint16_t port, std::uint16_t controlPort) {
    sockaddr_in remote{};
    remote.sin_family = AF_INET;
    remote.sin_port = htons(port);
    if (::inet_pton(AF_INET, ip.c_str(), &remote.sin_addr) != 1 || remote.sin_addr.s_addr == 0) {
        GVX_LOG_ERR(kTitle, "The remote address is wrong, ip[%s].", ip.c_str());
        return ZVS_PARA_INVALID;
    }
    m_remote = m_remoteControl = remote;
    if (controlPort == 0 && port != 0) {
        controlPort = static_cast<std::uint16_t>(port + 1);
    }
    m_remoteControl.sin_port = htons(controlPort);
    return ZVS_SUCCEED;
}

int CCommonRtpBase::ReceiveControl() {
    constexpr int kMostAtATime = 32;
    std::uint8_t packet[2048];
    for (int i = 0; i < kMostAtATime; ++i) {
        sockaddr_in from{};
        socklen_t fromSize = sizeof(from);
        const ssize_t size = ::recvfrom(m_controlHandle.Get(), packet, sizeof(packet), MSG_DONTWAIT,
                                        reinterpret_cast<sockaddr*>(&from), &fromSize);
        if (size < 0) {
            // ECONNREFUSED tells of a report that found nobody.
            if (errno == EINTR || errno == ECONNREFUSED) {
                continue;
            }
            return errno == EAGAIN ? ZVS_SUCCEED : ZVS_FAIL;
        }
        if (IsFromRemote(from)) {
            PushControl(packet, static_cast<std::size_t>(size));
        }
    }
    return ZVS_SUCCEED;
}

void CCommonRtpBase::ReportToTrace(bool control, bool toDevice, const std::uint8_t* data, std::size_t size) const {
    GvxTracedPacket packet;
    packet.bControl = control;
    packet.bToDevice = toDevice;
    packet.bOverTcp = static_cast<bool>(m_interleavedSend);
    packet.local = m_localEnd;
    packet.peer = m_linkPeer;
    if (!packet.bOverTcp) {
        const sockaddr_in& remote = control ? m_remoteControl : m_remote;
        packet.local.usPort = static_cast<std::uint16_t>(m_port + (control ? 1 : 0));
        const auto* const bytes = reinterpret_cast<const std::uint8_t*>(&remote.sin_addr);
        std::copy_n(bytes, sizeof(remote.sin_addr), packet.peer.address.begin());
        packet.peer.usPort = ntohs(remote.sin_port);
    }
    packet.pData = data;
    packet.nSize = size;
    GvxReportTracedPacket(m_device, packet);
}

void CCommonRtpBase::PushControl(const std::uint8_t* data, std::size_t size) {
    Trace(true, false, data, size);
    if (m_open && gvx::ParseRtcp(data, size, *this)) {
        m_schedule.OnReceived(size);
    }
}

int CCommonRtpBase::OnTimer() {
    constexpr std::int64_t kMostMs = 1000;
    if (!m_open) {
        return static_cast<int>(kMostMs);
    }
    const std::int64_t nowUs = gvx::CurrentClock().MonotonicMicroseconds();
    std::int64_t nextUs = OnTime(nowUs);
    if (m_schedule.IsDue(nowUs, GetSession())) {
        gvx::RtcpBuilder packet;
        BeginCompound(packet);
        SendControl(packet);
        m_schedule.OnSent(nowUs, packet.Size(), GetSession());
    }
    nextUs = nextUs < 0 ? m_schedule.NextUs() : std::min(nextUs, m_schedule.NextUs());
    // Rounded up: a call that comes too early would be repeated at once.
    return static_cast<int>(std::clamp<std::int64_t>((nextUs - nowUs + 999) / 1000, 0, kMostMs));
}

void CCommonRtpBase::BeginCompound(gvx::RtcpBuilder& packet) {
    AddReport(packet, gvx::CurrentClock().MonotonicMicroseconds());
    packet.AddCname(m_ssrc, m_cname);
}

bool CCommonRtpBase::SendControl(const gvx::RtcpBuilder& packet) {
    Trace(true, true, packet.Data(), packet.Size());
    if (m_interleavedSend) {
        return m_interleavedSend(RTP_FLOW_CONTROL, packet.Data(), packet.Size());
    }
    return m_remoteControl.sin_port != 0 &&
           ::sendto(m_controlHandle.Get(), packet.Data(), packet.Size(), MSG_DONTWAIT | MSG_NOSIGNAL,
                    reinterpret_cast<const sockaddr*>(&m_remoteControl), sizeof(m_remoteControl)) >= 0;
}

void CCommonRtpBase::Close() {
    if (!m_open) {
        return;
    }
    // RFC 3550, 6.3.7: at once, since a session of two is small.
    gvx::RtcpBuilder packet;
    BeginCompound(packet);
    packet.AddBye(m_ssrc);
    SendControl(packet);
    CloseSockets();
    m_interleavedSend = nullptr;
    m_open = false;
}
