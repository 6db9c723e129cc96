#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "gvx_common/rtp/audio_depacketizer.h"
#include "gvx_common/rtp/common_rtp_base.h"
#include "gvx_common/rtp/nal_depacketizer.h"
#include "gvx_common/rtp/rtp_depacketizer.h"
#include "gvx_common/rtp/rtp_reorder.h"
#include "gvx_common/rtp/rtp_source.h"

enum enRtpCodec { RTP_CODEC_H264, RTP_CODEC_H265, RTP_CODEC_G711, RTP_CODEC_AAC };

struct RtpReceiverParams {
    RtpEndpointParams endpoint;
    enRtpCodec codec = RTP_CODEC_H264;
    int iPayloadType = -1;  // packets of other types are dropped; -1 takes all
    gvx::AccessUnitEnd accessUnitEnd = gvx::AccessUnitEnd::Marker;
    gvx::AacFormat aac;
    std::size_t maxAccessUnit = gvx::RtpDepacketizer::kDefaultMaxBytes;  // bytes
    std::size_t reorderPackets = 64;  // how far ahead of a gap packets may wait, 1 to 255
    std::uint32_t uiReorderMs = 100;  // and how long; then the gap is given up
    bool bPictureLoss = false;        // the device offered "nack pli" (RFC 4585, 4.2)
};

// Called on the thread that calls the receiver; none of these may close or delete it.
class IRtpReceiverSink : public gvx::IRtpAccessUnitSink {
public:
    // A source was validated: the first, another SSRC, or the same whose numbers began anew.
    virtual void OnSource(std::uint32_t /*ssrc*/) {}
    // The source said that it ends. What it had sent was handed over before.
    virtual void OnSourceEnd(std::uint32_t /*ssrc*/) {}
};

struct RtpReceiverStatistics {
    std::uint64_t packets = 0;  // taken for RTP of the stream
    std::uint64_t bytes = 0;    // of these, heads included
    std::uint64_t invalid = 0;  // no RTP
    std::uint64_t foreign = 0;  // from another address, of another payload type, or of a source that was not validated
    std::uint64_t sources = 0;
    std::uint64_t pictureLossSent = 0;
    std::uint32_t jitter = 0;  // ticks of the stream's clock
    gvx::RtpReorderStatistics order;
    gvx::RtpDepacketizerStatistics units;
};

// Receives one stream of a device: packets in, whole access units out (RFC 3550 and the payload formats). Two hundred
// of these are served by one thread: wait for the handles (gvx::RtpPoller does), then Receive. Nothing is allocated for
// a packet; the buffers that the sockets are read into belong to the thread and are shared by its receivers.
class CCommonRtpReceiver : public CCommonRtpBase, private gvx::IRtpPacketSink, private gvx::IRtpAccessUnitSink {
public:
    // The sink must outlive the receiver.
    explicit CCommonRtpReceiver(IRtpReceiverSink& sink);
    ~CCommonRtpReceiver() override;

    // Binds a pair of ports on the address of the parameters or, without one, of the configuration: GVX_MEDIA_IP
    // (default 127.0.0.1), with a receive buffer of SOCKET_BUFFER_SIZE KiB (default 384; what is not a number from 1 to
    // 1048576 counts as the default). 0; 2 for wrong parameters; ZVS_GVX_OPEN_SOCKET_ERROR, with a line in the log.
    int Open(const RtpReceiverParams& params);

    // Takes what has come to the handle, many packets with one call of the kernel and several of these, hands over the
    // access units that it completes, and does what OnTimer is for as far as it is about the order of packets. Packets
    // read; -1 for a socket that is broken. Not from within a callback of any receiver.
    int Receive();

    // A media packet that came inside a TCP link. RTCP on the same channel is told apart.
    void Push(const std::uint8_t* data, std::size_t size);

    // Asks the sender for a whole picture (RFC 4585, 6.3.1). At most once in half a second leaves; more count as
    // asked. 0; 1 when the device did not offer it, nothing has come yet or nothing could be sent.
    int RequestKeyframe();

    // When a gap is given up, in monotonic microseconds of gvx::Clock; -1 while nothing waits. OnTimer counts it in.
    std::int64_t OrderDueUs() const { return m_reorder == nullptr ? -1 : m_reorder->DueUs(); }

    RtpReceiverStatistics GetStatistics() const;

    // Says BYE, closes, and hands over what has come so far.
    void Close() override;

private:
    // A packet of a source that is not validated yet.
    struct Candidate {
        std::vector<std::uint8_t> bytes;
        std::uint16_t seq = 0;
        std::int64_t arrivalUs = 0;
    };

    int TakeDatagram(const std::uint8_t* data, std::size_t size, std::size_t segment, std::int64_t nowUs);
    void TakePacket(const std::uint8_t* data, std::size_t size, std::int64_t nowUs);
    void TakeCandidate(const gvx::RtpView& view, const std::uint8_t* data, std::size_t size, std::int64_t nowUs);
    void StartSource(std::uint32_t ssrc);
    void EndSource();

    void OnOrderedPacket(const std::uint8_t* data, std::size_t size, std::uint32_t lostBefore,
                         std::int64_t arrivalUs) override;
    void OnAccessUnit(const gvx::RtpAccessUnit& unit) override;
    void AddReport(gvx::RtcpBuilder& packet, std::int64_t nowUs) override;
    gvx::RtcpSchedule::Session GetSession() const override;
    std::int64_t OnTime(std::int64_t nowUs) override;
    void OnSenderReport(const gvx::RtcpSenderInfo& info) override;
    void OnBye(std::uint32_t ssrc) override;

    IRtpReceiverSink& m_sink;
    int m_payloadType = -1;
    bool m_pictureLoss = false;
    std::unique_ptr<gvx::RtpDepacketizer> m_depacketizer;
    std::unique_ptr<gvx::RtpReorder> m_reorder;
    gvx::RtpSource m_source;
    bool m_hasSource = false;
    bool m_heardSinceReport = false;
    std::int64_t m_lastHeardUs = 0;
    std::int64_t m_pictureLossAtUs = 0;
    std::vector<Candidate> m_candidates;  // the first m_candidateCount are in use
    std::size_t m_candidateCount = 0;
    std::uint32_t m_candidateSsrc = 0;
    RtpReceiverStatistics m_statistics;
};
