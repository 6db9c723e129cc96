#include "gvx_common/rtp/common_rtp_receiver.h"

#include "base/clock.h"
#include "base/log.h"
#include "base/thread_own.h"
#include "gvx_common/config/setting_table.h"
#include "gvx_common/rtp/h264_depacketizer.h"
#include "gvx_common/rtp/h265_depacketizer.h"
#include "gvx_common/rtp/rtp_view.h"
#include "gvx_common/utility/gvx_utility.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <netinet/udp.h>
#include <sys/socket.h>

namespace {

constexpr const char* kTitle = "Rtp receiver";
constexpr std::size_t kMostCandidates = 16;
constexpr std::size_t kTakeoverPackets = 8;  // without one of the source that is in force
constexpr std::int64_t kSilentUs = 1000000;
constexpr std::int64_t kPictureLossPauseUs = 500000;

int SocketBufferBytes() {
    constexpr long long kKib = 1024;
    return static_cast<int>(gvx::SettingNumber(gvx::Setting::SOCKET_BUFFER_SIZE) * kKib);
}

// What one call of recvmmsg reads into. With UDP_GRO a message may hold many packets of one size. A thread has one,
// made when it receives for the first time.
class ReceiveBatch {
public:
    static constexpr std::size_t kMessages = 64;

    static ReceiveBatch& OfThread() {
        static gvx::ThreadOwn<std::unique_ptr<ReceiveBatch>> batches;
        std::unique_ptr<ReceiveBatch>* const batch = batches.Get();
        if (batch == nullptr) {
            throw std::bad_alloc();
        }
        if (*batch == nullptr) {
            *batch = std::make_unique<ReceiveBatch>();
        }
        return **batch;
    }

    ReceiveBatch() : m_room(new std::uint8_t[kMessages * kStride]) {
        for (std::size_t i = 0; i < kMessages; ++i) {
            m_parts[i] = {m_room.get() + i * kStride, kMessageRoom};
            m_heads[i] = mmsghdr{};
            m_heads[i].msg_hdr.msg_iov = &m_parts[i];
            m_heads[i].msg_hdr.msg_iovlen = 1;
            m_heads[i].msg_hdr.msg_name = &m_from[i];
            m_heads[i].msg_hdr.msg_control = m_controls[i].bytes;
            Rearm(i);
        }
    }

    // Messages read, or -1 with errno.
    int Read(int handle) { return ::recvmmsg(handle, m_heads.data(), kMessages, MSG_DONTWAIT, nullptr); }

    const std::uint8_t* Data(std::size_t i) const { return static_cast<const std::uint8_t*>(m_parts[i].iov_base); }
    std::size_t Size(std::size_t i) const { return m_heads[i].msg_len; }
    const sockaddr_in& From(std::size_t i) const { return m_from[i]; }

    // Size of the packets in the message; 0 when it is one. To be called once for each message that was read.
    std::size_t TakeSegment(std::size_t i) {
        int segment = 0;
        msghdr& head = m_heads[i].msg_hdr;
        for (cmsghdr* part = CMSG_FIRSTHDR(&head); part != nullptr; part = CMSG_NXTHDR(&head, part)) {
            if (part->cmsg_level == SOL_UDP && part->cmsg_type == UDP_GRO) {
                std::memcpy(&segment, CMSG_DATA(part), sizeof(segment));
            }
        }
        Rearm(i);
        return segment > 0 ? static_cast<std::size_t>(segment) : 0;
    }

private:
    // The kernel has written over what it was given.
    void Rearm(std::size_t i) {
        m_heads[i].msg_hdr.msg_namelen = sizeof(m_from[i]);
        m_heads[i].msg_hdr.msg_controllen = sizeof(m_controls[i].bytes);
    }

    // A UDP message can be that long. The buffers do not begin at multiples of a power of two: their first lines, which
    // are all that most messages touch, would share a few places of the caches.
    static constexpr std::size_t kMessageRoom = 65536;
    static constexpr std::size_t kStride = kMessageRoom + 4096 + 128;
    struct alignas(cmsghdr) Control {
        char bytes[CMSG_SPACE(sizeof(int))];
    };
    std::unique_ptr<std::uint8_t[]> m_room;
    std::array<iovec, kMessages> m_parts;
    std::array<mmsghdr, kMessages> m_heads;
    std::array<sockaddr_in, kMessages> m_from;
    std::array<Control, kMessages> m_controls;
};

std::unique_ptr<gvx::RtpDepacketizer> MakeDepacketizer(const RtpReceiverParams& params, gvx::IRtpAccessUnitSink& sink) {
    switch (params.codec) {
        case RTP_CODEC_H264:
            return std::make_unique<gvx::H264Depacketizer>(sink, params.accessUnitEnd, params.maxAccessUnit);
        case RTP_CODEC_H265:
            return std::make_unique<gvx::H265Depacketizer>(sink, params.accessUnitEnd, params.maxAccessUnit);
        case RTP_CODEC_G711:
            return std::make_unique<gvx::G711Depacketizer>(sink, params.maxAccessUnit);
        case RTP_CODEC_AAC:
            return std::make_unique<gvx::AacDepacketizer>(sink, params.aac, params.maxAccessUnit);
    }
    return nullptr;
}

}  // namespace

CCommonRtpReceiver::CCommonRtpReceiver(IRtpReceiverSink& sink) : m_sink(sink) {}

CCommonRtpReceiver::~CCommonRtpReceiver() {
    CCommonRtpReceiver::Close();
}

int CCommonRtpReceiver::Open(const RtpReceiverParams& params) {
    if (params.iPayloadType < -1 || params.iPayloadType > 127 || params.maxAccessUnit == 0 || params.codec < 0 ||
        params.codec > RTP_CODEC_AAC || params.aac.sizeLength > 16 || params.aac.indexLength > 16 ||
        params.aac.indexDeltaLength > 16) {
        GVX_LOG_ERR(kTitle, "Parameters are wrong, payload type[%d], codec[%d].", params.iPayloadType,
                    static_cast<int>(params.codec));
        return ZVS_PARA_INVALID;
    }
    const int result = OpenBase(params.endpoint, SO_RCVBUF, SocketBufferBytes());
    if (result != ZVS_SUCCEED) {
        return result;
    }
    if (GetHandle() != -1) {
        // Where the kernel does not know it, packets come one by one.
        const int on = 1;
        ::setsockopt(GetHandle(), SOL_UDP, UDP_GRO, &on, sizeof(on));
    }
    m_payloadType = params.iPayloadType;
    m_pictureLoss = params.bPictureLoss;
    m_depacketizer = MakeDepacketizer(params, *this);
    m_reorder = std::make_unique<gvx::RtpReorder>(static_cast<gvx::IRtpPacketSink&>(*this), params.reorderPackets,
                                                  static_cast<std::int64_t>(params.uiReorderMs) * 1000);
    m_source = gvx::RtpSource();
    m_hasSource = false;
    m_candidates.resize(kMostCandidates);
    m_candidateCount = 0;
    m_pictureLossAtUs = 0;
    m_statistics = RtpReceiverStatistics{};
    return ZVS_SUCCEED;
}

int CCommonRtpReceiver::Receive() {
    constexpr int kMostBatches = 16;  // others of the thread wait meanwhile
    if (GetHandle() == -1) {
        return -1;
    }
    ReceiveBatch& batch = ReceiveBatch::OfThread();
    int packets = 0;
    for (int i = 0; i < kMostBatches; ++i) {
        const int count = batch.Read(GetHandle());
        if (count < 0) {
            if (errno == EINTR || errno == ECONNREFUSED) {
                continue;
            }
            if (errno == EAGAIN) {
                break;
            }
            return -1;
        }
        const std::int64_t nowUs = gvx::CurrentClock().MonotonicMicroseconds();
        for (std::size_t at = 0; at < static_cast<std::size_t>(count); ++at) {
            const std::size_t segment = batch.TakeSegment(at);
            if (IsFromRemote(batch.From(at))) {
                packets += TakeDatagram(batch.Data(at), batch.Size(at), segment, nowUs);
            } else {
                ++m_statistics.foreign;
                ++packets;
            }
        }
        if (static_cast<std::size_t>(count) < ReceiveBatch::kMessages) {
            break;
        }
    }
    return packets;
}

void CCommonRtpReceiver::Push(const std::uint8_t* data, std::size_t size) {
    if (IsOpen()) {
        TakePacket(data, size, gvx::CurrentClock().MonotonicMicroseconds());
    }
}

// A message of the socket: packets of `segment` bytes, the last perhaps shorter, or one when that is 0. How many.
int CCommonRtpReceiver::TakeDatagram(const std::uint8_t* data, std::size_t size, std::size_t segment,
                                     std::int64_t nowUs) {
    int packets = 1;
    if (segment == 0) {
        segment = size;
    }
    for (; size > segment; ++packets) {
        TakePacket(data, segment, nowUs);
        data += segment;
        size -= segment;
    }
    TakePacket(data, size, nowUs);
    return packets;
}

void CCommonRtpReceiver::TakePacket(const std::uint8_t* data, std::size_t size, std::int64_t nowUs) {
    gvx::RtpView view;
    if (gvx::IsRtcp(data, size)) {
        PushControl(data, size);
        return;
    }
    Trace(false, false, data, size);
    if (!gvx::ParseRtp(data, size, view)) {
        ++m_statistics.invalid;
        return;
    }
    if (m_payloadType != -1 && view.payloadType != m_payloadType) {
        ++m_statistics.foreign;
        return;
    }
    const std::int64_t number = m_hasSource && view.ssrc == m_source.Ssrc() ? m_source.Update(view.seq) : -1;
    if (number < 0) {
        TakeCandidate(view, data, size, nowUs);
        return;
    }
    ++m_statistics.packets;
    m_statistics.bytes += size;
    m_heardSinceReport = true;
    m_lastHeardUs = nowUs;
    m_statistics.foreign += m_candidateCount;
    m_candidateCount = 0;
    const std::int64_t ticks = nowUs / 1000000 * ClockRate() + nowUs % 1000000 * ClockRate() / 1000000;
    m_source.UpdateJitter(static_cast<std::uint32_t>(ticks), view.timestamp);
    m_reorder->Push(number, data, size, nowUs);
}

// A source is taken for real when two of its packets follow each other (RFC 3550, A.1); they are kept meanwhile, so
// that none is lost. While another source is heard, more are needed, all without one of the other between.
void CCommonRtpReceiver::TakeCandidate(const gvx::RtpView& view, const std::uint8_t* data, std::size_t size,
                                       std::int64_t nowUs) {
    if (m_candidateCount != 0 && m_candidateSsrc != view.ssrc) {
        m_statistics.foreign += m_candidateCount;
        m_candidateCount = 0;
    }
    m_candidateSsrc = view.ssrc;
    bool follows = false;
    for (std::size_t i = 0; i < m_candidateCount; ++i) {
        const auto distance = static_cast<std::uint16_t>(view.seq - m_candidates[i].seq);
        if (distance == 0) {
            ++m_statistics.foreign;
            return;
        }
        follows = follows || distance == 1 || distance == 0xFFFF;
    }
    if (m_candidateCount == kMostCandidates) {
        std::rotate(m_candidates.begin(), m_candidates.begin() + 1, m_candidates.end());
        --m_candidateCount;
        ++m_statistics.foreign;
    }
    Candidate& candidate = m_candidates[m_candidateCount++];
    candidate.bytes.assign(data, data + size);
    candidate.seq = view.seq;
    candidate.arrivalUs = nowUs;
    const bool other = m_hasSource && view.ssrc != m_source.Ssrc() && nowUs - m_lastHeardUs < kSilentUs;
    if (follows && (!other || m_candidateCount >= kTakeoverPackets)) {
        StartSource(view.ssrc);
    }
}

void CCommonRtpReceiver::StartSource(std::uint32_t ssrc) {
    EndSource();
    // Numbers far from that of the last packet are not of this run.
    const std::uint16_t last = m_candidates[m_candidateCount - 1].seq;
    const auto distance = [last](const Candidate& candidate) {
        return static_cast<std::int16_t>(static_cast<std::uint16_t>(candidate.seq - last));
    };
    const auto end = std::partition(
        m_candidates.begin(), m_candidates.begin() + static_cast<std::ptrdiff_t>(m_candidateCount),
        [&](const Candidate& candidate) { return std::abs(distance(candidate)) <= gvx::RtpSource::kMaxMisorder; });
    std::sort(m_candidates.begin(), end,
              [&](const Candidate& a, const Candidate& b) { return distance(a) < distance(b); });
    m_statistics.foreign += m_candidateCount - static_cast<std::size_t>(end - m_candidates.begin());
    m_candidateCount = 0;
    m_source.Start(ssrc, m_candidates.front().seq);
    m_reorder->Start(m_source.First());
    m_hasSource = true;
    ++m_statistics.sources;
    m_sink.OnSource(ssrc);
    for (auto candidate = m_candidates.begin(); candidate != end; ++candidate) {
        ++m_statistics.packets;
        m_statistics.bytes += candidate->bytes.size();
        m_lastHeardUs = candidate->arrivalUs;
        m_reorder->Push(m_source.Update(candidate->seq), candidate->bytes.data(), candidate->bytes.size(),
                        candidate->arrivalUs);
    }
    m_heardSinceReport = true;
}

void CCommonRtpReceiver::EndSource() {
    if (m_hasSource) {
        m_reorder->Flush();
        m_depacketizer->Reset();
        m_hasSource = false;
    }
}

void CCommonRtpReceiver::OnOrderedPacket(const std::uint8_t* data, std::size_t size, std::uint32_t lostBefore,
                                         std::int64_t arrivalUs) {
    gvx::RtpView view;
    if (gvx::ParseRtp(data, size, view)) {
        m_depacketizer->OnPacket(view, lostBefore, arrivalUs);
    }
}

void CCommonRtpReceiver::OnAccessUnit(const gvx::RtpAccessUnit& unit) {
    gvx::RtpAccessUnit complete = unit;
    complete.captureWallUs = m_source.CaptureWallUs(unit.rtpTime, ClockRate());
    m_sink.OnAccessUnit(complete);
}

std::int64_t CCommonRtpReceiver::OnTime(std::int64_t nowUs) {
    m_reorder->OnTime(nowUs);
    return m_reorder->DueUs();
}

void CCommonRtpReceiver::AddReport(gvx::RtcpBuilder& packet, std::int64_t nowUs) {
    // A block is about a source that was heard since the last report (RFC 3550, 6.4).
    if (m_hasSource && m_heardSinceReport) {
        const gvx::RtcpReportBlock block = m_source.MakeReport(nowUs);
        packet.AddReceiverReport(GetSsrc(), &block);
        m_heardSinceReport = false;
    } else {
        packet.AddReceiverReport(GetSsrc(), nullptr);
    }
}

gvx::RtcpSchedule::Session CCommonRtpReceiver::GetSession() const {
    return {m_hasSource ? 2u : 1u, m_hasSource ? 1u : 0u, false};
}

void CCommonRtpReceiver::OnSenderReport(const gvx::RtcpSenderInfo& info) {
    if (m_hasSource && info.ssrc == m_source.Ssrc()) {
        m_source.OnSenderReport(info, gvx::CurrentClock().MonotonicMicroseconds());
    }
}

void CCommonRtpReceiver::OnBye(std::uint32_t ssrc) {
    if (m_hasSource && ssrc == m_source.Ssrc()) {
        EndSource();
        m_sink.OnSourceEnd(ssrc);
    }
}

int CCommonRtpReceiver::RequestKeyframe() {
    if (!m_pictureLoss || !m_hasSource) {
        return ZVS_FAIL;
    }
    const std::int64_t nowUs = gvx::CurrentClock().MonotonicMicroseconds();
    if (m_pictureLossAtUs != 0 && nowUs - m_pictureLossAtUs < kPictureLossPauseUs) {
        return ZVS_SUCCEED;
    }
    gvx::RtcpBuilder packet;
    BeginCompound(packet);
    packet.AddPictureLoss(GetSsrc(), m_source.Ssrc());
    if (!SendControl(packet)) {
        return ZVS_FAIL;
    }
    m_pictureLossAtUs = nowUs;
    ++m_statistics.pictureLossSent;
    return ZVS_SUCCEED;
}

RtpReceiverStatistics CCommonRtpReceiver::GetStatistics() const {
    RtpReceiverStatistics statistics = m_statistics;
    statistics.jitter = m_source.Jitter();
    if (m_reorder != nullptr) {
        statistics.order = m_reorder->GetStatistics();
        statistics.units = m_depacketizer->GetStatistics();
    }
    return statistics;
}

void CCommonRtpReceiver::Close() {
    if (!IsOpen()) {
        return;
    }
    // The last report still speaks of the source.
    CCommonRtpBase::Close();
    EndSource();
}
