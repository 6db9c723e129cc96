#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include <netinet/in.h>

#include "base/unique_fd.h"
#include "gvx_common/rtp/rtcp_packet.h"
#include "gvx_common/rtp/rtcp_schedule.h"
#include "gvx_common/utility/gvx_device_trace.h"

// Which of the two flows of a session a packet belongs to.
enum enRtpFlow { RTP_FLOW_MEDIA = 0, RTP_FLOW_CONTROL = 1 };

// Takes a packet of an endpoint whose session travels inside a TCP link (RFC 2326, 10.12), without the four bytes of
// interleave. Called on the thread that uses the endpoint; must not wait. False when the packet could not be taken.
using RtpInterleavedSend = std::function<bool(enRtpFlow flow, const std::uint8_t* data, std::size_t size)>;

// Where an endpoint stands and whom it speaks to. Addresses are dotted IPv4, ports in host byte order.
struct RtpEndpointParams {
    std::string strLocalIp;         // empty: the configured GVX_MEDIA_IP
    std::uint16_t usLocalPort = 0;  // even, with RTCP on the next one; 0 takes a free pair
    std::string strRemoteIp;        // empty: packets are taken from anybody, and no reports are sent
    std::uint16_t usRemotePort = 0;
    std::uint16_t usRemoteControlPort = 0;  // 0: usRemotePort + 1
    std::uint32_t uiClockRate = 90000;      // ticks a second of the RTP time stamps
    std::uint32_t uiBandwidth = 4000000;    // of the session in bit/s, for the interval of reports
    std::string strCname;                   // empty: the local address and port
    RtpInterleavedSend interleavedSend;     // set: no sockets; the session travels inside a TCP link
    std::string strDevice;                  // whose traces take the heads of the packets; empty: none does
    GvxTraceEnd linkLocal{};                // for these: the ends of the TCP link that the session travels in
    GvxTraceEnd linkPeer{};
};

// What RTP endpoints share (RFC 3550): the pair of sockets or the way into a TCP link, this end's SSRC and name, and
// RTCP: reports at the stated interval, and what the other end reports. An endpoint has no thread: its user waits for
// its handles, calls OnTimer in time, and all that is called back is called back on the user's thread. One thread at a
// time.
class CCommonRtpBase : private gvx::IRtcpVisitor {
public:
    virtual ~CCommonRtpBase() = default;
    CCommonRtpBase(const CCommonRtpBase&) = delete;
    CCommonRtpBase& operator=(const CCommonRtpBase&) = delete;

    // To be waited for with poll or epoll until they are readable. -1 when the session travels inside a TCP link.
    int GetHandle() const { return m_handle.Get(); }
    int GetControlHandle() const { return m_controlHandle.Get(); }
    // The local port of RTP; RTCP has the next one. 0 without sockets.
    std::uint16_t GetPort() const { return m_port; }
    std::uint32_t GetSsrc() const { return m_ssrc; }
    bool IsOpen() const { return m_open; }

    // Where the other end is, once it is known (an RTSP SETUP answers it after the sockets are open). controlPort 0
    // stands for port + 1. 0; 2 for an address that is none.
    int SetRemote(const std::string& ip, std::uint16_t port, std::uint16_t controlPort = 0);

    // Takes what has come to the control handle. 0; 1 for a socket that is broken.
    int ReceiveControl();
    // A control packet that came inside a TCP link.
    void PushControl(const std::uint8_t* data, std::size_t size);

    // Does what is due: reports, and what a derived class waits for. Milliseconds until it is needed again, at most
    // 1000; to be called then, or more often.
    int OnTimer();

    // Says BYE and gives everything back. May be called again.
    virtual void Close();

protected:
    CCommonRtpBase() = default;

    // 0; 2 for a wrong argument; ZVS_GVX_OPEN_SOCKET_ERROR. A failure leaves the endpoint closed, with a line in the
    // log. bufferBytes: of the socket, for the direction of media.
    int OpenBase(const RtpEndpointParams& params, int bufferOption, int bufferBytes);

    // A control packet for the other end. False when it did not leave.
    bool SendControl(const gvx::RtcpBuilder& packet);
    // A compound packet's beginning: a report and the source description.
    void BeginCompound(gvx::RtcpBuilder& packet);

    // Whether bytes come from where the other end is; true while that is not known.
    bool IsFromRemote(const sockaddr_in& from) const {
        return m_remote.sin_addr.s_addr == 0 || from.sin_addr.s_addr == m_remote.sin_addr.s_addr;
    }

    // The report of this end, first in each compound packet.
    virtual void AddReport(gvx::RtcpBuilder& packet, std::int64_t nowUs) = 0;
    virtual gvx::RtcpSchedule::Session GetSession() const = 0;
    // Does what is due besides reports. When it is needed again, in monotonic microseconds; -1 for not at all.
    virtual std::int64_t OnTime(std::int64_t /*nowUs*/) { return -1; }

    // Items of the other end's control packets.
    void OnSenderReport(const gvx::RtcpSenderInfo&) override {}
    void OnReportBlock(std::uint32_t, const gvx::RtcpReportBlock&) override {}
    void OnCname(std::uint32_t, const char*, std::size_t) override {}
    void OnBye(std::uint32_t) override {}
    void OnPictureLoss(std::uint32_t, std::uint32_t) override {}

    // Shows a packet to a trace of the device.
    void Trace(bool control, bool toDevice, const std::uint8_t* data, std::size_t size) const {
        if (GvxIsAnyDeviceTraced() && !m_device.empty()) {
            ReportToTrace(control, toDevice, data, size);
        }
    }

    const sockaddr_in& Remote() const { return m_remote; }
    std::uint32_t ClockRate() const { return m_clockRate; }
    const RtpInterleavedSend& InterleavedSend() const { return m_interleavedSend; }

private:
    int OpenSockets(const std::string& ip, std::uint16_t port);
    void CloseSockets();
    void ReportToTrace(bool control, bool toDevice, const std::uint8_t* data, std::size_t size) const;

    gvx::UniqueFd m_handle;
    gvx::UniqueFd m_controlHandle;
    std::uint16_t m_port = 0;
    bool m_open = false;
    std::uint32_t m_ssrc = 0;
    std::uint32_t m_clockRate = 90000;
    std::string m_cname;
    sockaddr_in m_remote{};  // address 0 while it is not known
    sockaddr_in m_remoteControl{};
    RtpInterleavedSend m_interleavedSend;
    std::string m_device;
    GvxTraceEnd m_localEnd;  // of RTP, or of the link that carries all
    GvxTraceEnd m_linkPeer;
    gvx::RtcpSchedule m_schedule;
};
