#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "gvx_common/rtp/common_rtp_base.h"

struct RtpSenderParams {
    RtpEndpointParams endpoint;
    int iPayloadType = 0;  // 0 to 127
};

// What the other end says; called on the thread that uses the sender.
class IRtpSenderSink {
public:
    virtual ~IRtpSenderSink() = default;
    // It wants a whole picture (RFC 4585, 6.3.1).
    virtual void OnPictureRequested() {}
    virtual void OnReceiverEnd() {}
};

// What the last report of the other end said.
struct RtpSenderStatistics {
    std::uint64_t packets = 0;      // sent
    std::uint64_t octets = 0;       // of payload
    std::uint64_t failed = 0;       // that the socket or link did not take
    std::uint64_t reports = 0;      // heard about this stream
    std::uint8_t fractionLost = 0;  // of 256
    std::int32_t cumulativeLost = 0;
    std::uint32_t jitter = 0;       // ticks of the stream's clock
    std::int64_t roundTripUs = -1;  // -1 while it is not known
};

// Sends one stream packet by packet, such as a talk to a device, with sender reports. SSRC, first sequence number and
// the start of the time stamps are random (RFC 3550, 5.1).
class CCommonRtpSender : public CCommonRtpBase {
public:
    // The sink may be null; it must outlive the sender.
    explicit CCommonRtpSender(IRtpSenderSink* sink = nullptr) : m_sink(sink) {}
    ~CCommonRtpSender() override;

    // The remote address may be set later. 0; 2 for wrong parameters; ZVS_GVX_OPEN_SOCKET_ERROR.
    int Open(const RtpSenderParams& params);

    // One packet. rtpTime counts ticks of the clock from any start. 0; 2 for no payload or one that no packet holds;
    // ZVS_GVX_OPEN_SOCKET_ERROR when it did not leave: no remote address, no room, a link that is gone. A packet that
    // did not leave uses up its number, so that the other end counts it as lost.
    int Send(const void* payload, std::size_t size, bool marker, std::uint32_t rtpTime);

    RtpSenderStatistics GetStatistics() const { return m_statistics; }

private:
    void AddReport(gvx::RtcpBuilder& packet, std::int64_t nowUs) override;
    gvx::RtcpSchedule::Session GetSession() const override;
    void OnReportBlock(std::uint32_t reporter, const gvx::RtcpReportBlock& block) override;
    void OnBye(std::uint32_t ssrc) override;
    void OnPictureLoss(std::uint32_t sender, std::uint32_t media) override;

    IRtpSenderSink* const m_sink;
    std::uint8_t m_payloadType = 0;
    std::uint16_t m_seq = 0;
    std::uint32_t m_timeOffset = 0;
    std::uint32_t m_lastRtpTime = 0;  // offset included
    std::int64_t m_lastSentUs = -1;
    bool m_sentSinceReport = false;
    bool m_heardReceiver = false;
    std::vector<std::uint8_t> m_packet;  // reused
    RtpSenderStatistics m_statistics;
};
