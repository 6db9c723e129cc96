#pragma once

#include "gvx_common/adapter/gvx_adapter_lens.h"
#include "gvx_common/codec/sequence_parameter_set.h"
#include "rtsp/camera_profile.h"
#include "rtsp/stream_description.h"

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace gvxrtsp {

// One stream that the platform asked for.
struct StreamUser {
    std::string serviceID;
    void* userInfo = nullptr;
    SEND_STREAM_FUNC* send = nullptr;
    bool overTcp = false;
    bool needExternData = false;
    bool waitsForKey = true;  // a decoder can begin at a key frame only
    bool gone = false;        // its socket is
};

// Sends the access units of one stream of a camera into the channels of a lens: packets are made once for each
// transport and handed to all who asked for it, so that they share sequence numbers and time stamps. On the loop's
// thread, but for the constructor.
class FrameSender {
public:
    FrameSender(CAdapterLensBase& lens, StreamKind kind);
    FrameSender(const FrameSender&) = delete;
    FrameSender& operator=(const FrameSender&) = delete;

    // 0; ZVS_GVX_STREAM_EXIST when another user of the transport asked for heads of another form;
    // ZVS_ALLOC_MEMORY_ERROR.
    int Add(StreamUser user);
    // False when there is no such user.
    bool Remove(const std::string& serviceID);
    bool IsEmpty() const { return m_outlets[0].users.empty() && m_outlets[1].users.empty(); }
    bool Has(const std::string& serviceID) const;

    // A session begins: what the camera said of its streams, and time stamps that begin anew.
    void Begin(const StreamDescription& description);
    void Send(const TrackDescription& track, const gvx::RtpAccessUnit& unit);

private:
    struct Outlet {
        int channelID = 0;
        bool overTcp = false;
        bool keyFrame = false;  // of the unit in hand
        std::vector<StreamUser> users;
    };
    // Where the time of a track stands.
    struct TrackTime {
        bool known = false;
        std::uint32_t ssrc = 0;
        std::uint32_t rtpTime = 0;
        std::int64_t arrivalUs = 0;
    };

    static int FanOut(MEDIA_DATA* data, STREAM_TYPE_EX* streamType);

    std::uint32_t Ticks(TrackTime& time, const TrackDescription& track, const gvx::RtpAccessUnit& unit) const;
    void LookAtSets(const TrackDescription& track, const std::uint8_t* data, std::size_t size, bool& complete);

    CAdapterLensBase& m_lens;
    const StreamKind m_kind;
    std::array<Outlet, 2> m_outlets;   // over UDP, over TCP
    std::array<TrackTime, 2> m_times;  // audio, video
    std::unique_ptr<gvx::ParameterSets> m_sets;
    gvx::SequenceInfo m_sequence;
    std::vector<std::uint8_t> m_frame;  // reused
};

}  // namespace gvxrtsp
