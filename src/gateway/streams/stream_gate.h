#pragma once

#include "gvx_common/records/media_types.h"

#include <cstddef>
#include <cstdint>
#include <string>

class CMediaSendStream;

namespace gvx {

// Stands between a plug-in and the send function of its stream. It is made held: packets of the plug-in's threads wait
// until the answer to the platform has left, so that media never overtakes it. Once closed it lets nothing through,
// whatever a plug-in's thread still sends, and it counts the calls that are inside.
//
// What the plug-in gets is a number, no address: it stays harmless when the gate and its stream are gone, and a call
// with it is then answered with ZVS_GVX_OPEN_SOCKET_ERROR. The memory behind it serves one gate after the other and is
// never given back; kMaxGates stand at a time.
class StreamGate {
public:
    static constexpr std::size_t kMaxGates = 65536;

    // Takes a slot. The thread that makes the gate is the one that starts the stream: it may send while it is held. The
    // names are those under which late calls are told (PluginTroubles).
    explicit StreamGate(const std::string& plugin = "-", const std::string& device = "-");
    // Closes it. Calls that are inside must have ended, or their stream must be kept for good.
    ~StreamGate();
    StreamGate(const StreamGate&) = delete;
    StreamGate& operator=(const StreamGate&) = delete;

    // False when every slot was taken: nothing may be sent through such a gate.
    bool IsUsable() const { return m_slot != nullptr; }
    // What MEDIA_DATA::pUserInfo of the plug-in's packets has to be.
    void* UserInfo() const;

    // Packets go to this stream, which must live until WaitEmpty has answered true; audio false drops those of audio.
    // Before the gate is handed out.
    void SetTarget(CMediaSendStream* target, bool audio);
    // Packets of metadata go there, with the same conditions; without one they are dropped.
    void SetMetadataTarget(CMediaSendStream* target);
    // Metadata packets that its target has taken.
    std::uint64_t MetadataPackets() const;
    void Open();
    void Close();
    // Waits until no call is inside, for limitMs at most; true when there is none. After Close.
    bool WaitEmpty(int limitMs) const;

    // The SEND_STREAM_FUNC that plug-ins get. Any thread, at any time. Allocates nothing.
    static int Send(MEDIA_DATA* data, STREAM_TYPE_EX* streamType);

private:
    class Slot;  // what is behind a gate; never destroyed

    Slot* const m_slot;
};

}  // namespace gvx
