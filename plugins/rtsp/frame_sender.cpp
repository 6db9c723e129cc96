#include "rtsp/frame_sender.h"

#include "base/clock.h"
#include "base/log.h"
#include "bp/message_block_ptr.h"
#include "gvx_common/codec/nal_unit.h"
#include "gvx_common/rtp/start_code.h"

#include <algorithm>
#include <utility>

namespace gvxrtsp {
namespace {

constexpr std::int64_t kSecondUs = 1000000;
constexpr std::int64_t kLongestStepSeconds = 10;
constexpr std::uint32_t kUsualFrameRate = 25;
constexpr std::size_t kMostVideo = INT32_MAX / 2;
// With its head it stays whole: the parts of a longer one could not be put together again.
constexpr std::size_t kMostAac = GVX_RTP_MAX_PAYLOAD - AacFrameHead::kBytes;

}  // namespace

FrameSender::FrameSender(CAdapterLensBase& lens, StreamKind kind) : m_lens(lens), m_kind(kind) {
    m_outlets[0].channelID = kind == MAIN_STREAM ? STREAM_TYPE_REAL_MAIN : STREAM_TYPE_REAL_SUB1;
    m_outlets[1].channelID = m_outlets[0].channelID + GVX_MEDIA_CHANNEL_TCP_OFFSET;
    m_outlets[1].overTcp = true;
}

int FrameSender::Add(StreamUser user) {
    Outlet& outlet = m_outlets[user.overTcp ? 1 : 0];
    const bool otherForm = !outlet.users.empty() && outlet.users.front().needExternData != user.needExternData;
    if (otherForm || Has(user.serviceID)) {
        return ZVS_GVX_STREAM_EXIST;
    }
    CMediaChannel* channel = m_lens.getMidiaChannel(outlet.channelID);
    GVX_CHECK_NULL_RETURN(channel, ZVS_NULL_POINTER);
    if (channel->m_pMediaBufWithRTP == nullptr) {
        channel->m_pMediaBufWithRTP = BP::MakeMessageBlock(GVX_MEDIA_BUF_MIN_SIZE).release();
        GVX_CHECK_NULL_RETURN(channel->m_pMediaBufWithRTP, ZVS_ALLOC_MEMORY_ERROR);
    }
    channel->m_pSendStreamFunc = &FrameSender::FanOut;
    outlet.users.push_back(std::move(user));
    return ZVS_SUCCEED;
}

bool FrameSender::Remove(const std::string& serviceID) {
    for (Outlet& outlet : m_outlets) {
        const auto found = std::find_if(outlet.users.begin(), outlet.users.end(),
                                        [&](const StreamUser& user) { return user.serviceID == serviceID; });
        if (found != outlet.users.end()) {
            outlet.users.erase(found);
            return true;
        }
    }
    return false;
}

bool FrameSender::Has(const std::string& serviceID) const {
    return std::any_of(m_outlets.begin(), m_outlets.end(), [&](const Outlet& outlet) {
        return std::any_of(outlet.users.begin(), outlet.users.end(),
                           [&](const StreamUser& user) { return user.serviceID == serviceID; });
    });
}

void FrameSender::Begin(const StreamDescription& description) {
    for (TrackTime& time : m_times) {
        time.ssrc = 0;
    }
    const TrackDescription* video = description.Video();
    m_sets = std::make_unique<gvx::ParameterSets>(video->VideoCodec());
    for (const std::string& set : video->parameterSets) {
        const auto* data = reinterpret_cast<const std::uint8_t*>(set.data());
        m_sets->Keep(gvx::ClassifyNal(video->VideoCodec(), data, set.size()), {data, set.size()});
    }
}

// Keeps the sets ahead of a key frame's first slice; complete when there were some.
void FrameSender::LookAtSets(const TrackDescription& track, const std::uint8_t* data, std::size_t size,
                             bool& complete) {
    gvx::FrameUnits units(data, size, true);
    while (units.Next()) {
        const gvx::NalKind kind = gvx::ClassifyNal(track.VideoCodec(), units.Data(), units.Size());
        if (kind.slice) {
            return;
        }
        if (kind.parameterSet) {
            complete = complete || kind.sequenceSet;
            m_sets->Keep(kind, {units.Data(), units.Size()});
        }
        if (kind.sequenceSet) {
            gvx::SequenceInfo info;
            m_sequence = gvx::ParseSequenceParameterSet(track.VideoCodec(), units.Data(), units.Size(), info)
                             ? info
                             : m_sequence;
        }
    }
}

// The camera's own steps, back and forth as pictures are reordered. Behind another source, a restart or a leap, the
// time that has gone by here. Only pictures between key frames are reordered: a key frame or sound that goes back shows
// that the camera's clock began anew.
std::uint32_t FrameSender::Ticks(TrackTime& time, const TrackDescription& track, const gvx::RtpAccessUnit& unit) const {
    const std::uint32_t clockRate = track.clockRate;
    const auto step = static_cast<std::int32_t>(unit.rtpTime - time.rtpTime);
    const std::int64_t most = kLongestStepSeconds * clockRate;
    const std::int64_t least = track.video && !unit.keyFrame ? -most : -1;
    std::uint32_t ticks = clockRate / kUsualFrameRate;
    if (time.known && time.ssrc == unit.ssrc && step > least && step < most) {
        ticks = static_cast<std::uint32_t>(step);
    } else if (time.known) {
        const std::int64_t goneUs = unit.arrivalUs - time.arrivalUs;
        // Never none: two pictures of one time stamp would be one to a receiver.
        ticks = static_cast<std::uint32_t>(std::max<std::int64_t>(goneUs * clockRate / kSecondUs, 1));
    }
    time = {true, unit.ssrc, unit.rtpTime, unit.arrivalUs};
    return ticks;
}

void FrameSender::Send(const TrackDescription& track, const gvx::RtpAccessUnit& unit) {
    const std::uint32_t ticks = Ticks(m_times[track.video ? 1 : 0], track, unit);
    const bool aac = !track.video && track.codec == RTP_CODEC_AAC;
    if (unit.size == 0 || unit.size > (track.video ? kMostVideo : aac ? kMostAac : UINT16_MAX)) {
        return;
    }
    const std::uint8_t* bytes = unit.data;
    std::size_t size = unit.size;
    if (track.video && unit.keyFrame && m_sets != nullptr) {
        bool complete = false;
        LookAtSets(track, bytes, size, complete);
        if (!complete) {
            m_frame.clear();
            m_sets->AppendTo(m_frame);
            m_frame.insert(m_frame.end(), bytes, bytes + size);
            bytes = m_frame.data();
            size = m_frame.size();
        }
    }
    if (aac) {
        const auto head = track.aacHead.For(size);
        m_frame.assign(head.begin(), head.end());
        m_frame.insert(m_frame.end(), bytes, bytes + size);
        bytes = m_frame.data();
        size = m_frame.size();
    }
    const std::int64_t wallUs = unit.captureWallUs != 0 ? unit.captureWallUs : gvx::CurrentClock().WallMicroseconds();
    for (Outlet& outlet : m_outlets) {
        if (outlet.users.empty()) {
            continue;
        }
        outlet.keyFrame = track.video && unit.keyFrame;
        MEDIA_DATA data{};
        data.pUserInfo = &outlet;
        data.nVideoSize = track.video ? static_cast<std::uint32_t>(size) : 0;
        data.nAudioSize = track.video ? std::uint16_t{0} : static_cast<std::uint16_t>(size);
        data.nWidth = static_cast<std::uint16_t>(m_sequence.width);
        data.nHeight = static_cast<std::uint16_t>(m_sequence.height);
        data.FrameType = unit.keyFrame ? FRAME_I : FRAME_BP;
        data.eVideoFormatType = track.VideoFormat();
        data.eAudioFormatType = track.AudioFormat();
        data.nUtcSecond = static_cast<std::time_t>(wallUs / kSecondUs);
        data.nUtcMillsec = static_cast<std::uint16_t>(wallUs % kSecondUs / 1000);
        data.nTimeTick = ticks;
        // The frame is only read.
        m_lens.H264ToRtp(const_cast<unsigned char*>(bytes), static_cast<int>(size), data, outlet.channelID,
                         outlet.overTcp, outlet.users.front().needExternData, data.nUtcMillsec,
                         static_cast<unsigned int>(data.nUtcSecond), false);
        if (outlet.keyFrame) {
            for (StreamUser& user : outlet.users) {
                user.waitsForKey = false;
            }
        }
    }
}

// Takes each packet of a channel. A user that joins later begins with the next key frame.
int FrameSender::FanOut(MEDIA_DATA* data, STREAM_TYPE_EX* streamType) {
    auto* outlet = static_cast<Outlet*>(data->pUserInfo);
    bool anyLeft = false;
    for (StreamUser& user : outlet->users) {
        if (user.gone || (user.waitsForKey && !outlet->keyFrame)) {
            anyLeft = anyLeft || !user.gone;
            continue;
        }
        MEDIA_DATA packet = *data;
        packet.pUserInfo = user.userInfo;
        user.gone = user.send(&packet, streamType) == ZVS_GVX_OPEN_SOCKET_ERROR;
        anyLeft = anyLeft || !user.gone;
    }
    return anyLeft ? ZVS_SUCCEED : ZVS_GVX_OPEN_SOCKET_ERROR;
}

}  // namespace gvxrtsp
