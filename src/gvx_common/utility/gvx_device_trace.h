#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

// What is said between the gateway and one device, for whoever looks for the reason of its failure. A plug-in reports
// each message of a dialogue, such as RTSP or HTTP, whenever it was sent or received; the gateway keeps the last of
// them by the code of the device, from the moment before CreateDevice until the device is deleted. The heads of media
// packets are wanted only while somebody traces the device. A report about a device that the gateway does not have is
// dropped. Any thread; nothing here throws, or waits for anything but a short lock.

// One end of a connection. All zero: not known.
struct GvxTraceEnd {
    std::array<std::uint8_t, 16> address{};  // network order; IPv4 in the first four bytes
    bool bIpv6 = false;
    std::uint16_t usPort = 0;  // host order
};

// An end by the text of its address, such as "10.1.2.3"; one that is no address gives zeros.
GvxTraceEnd GvxMakeTraceEnd(const std::string& address, std::uint16_t port);
// The local end of a socket, or its peer's; zeros when there is none.
GvxTraceEnd GvxTraceEndOfSocket(int handle, bool peer);
// "10.1.2.3:554", "[2001:db8::1]:554"; empty for zeros.
std::string GvxTraceEndText(const GvxTraceEnd& end);

struct GvxDialogueMessage {
    const char* pszProtocol = "";  // "RTSP" or "HTTP", whose messages begin with lines; at most 15 bytes
    bool bToDevice = false;
    GvxTraceEnd local;
    GvxTraceEnd peer;
    // The message as it is on the wire; only read during the call. What follows the heads of a message and is no text
    // is told by its length alone, which need not be done by the caller.
    const char* pszText = nullptr;
    std::size_t nLength = 0;
    std::size_t nLeftOut = 0;  // bytes of the message behind the text that are not worth keeping, such as a picture's
};

// Takes a message. What is known to be secret leaves before anything is kept: the values of Authorization and Cookie
// lines and their like, users and passwords in URLs, passwords and keys in bodies. At most 16 KiB of a message stay.
void GvxReportDialogue(const std::string& device, const GvxDialogueMessage& message) noexcept;

// A packet of media or of its control that was sent or received.
struct GvxTracedPacket {
    bool bControl = false;  // RTCP instead of RTP
    bool bToDevice = false;
    bool bOverTcp = false;  // inside a TCP link; the ends are those of that
    GvxTraceEnd local;
    GvxTraceEnd peer;
    const std::uint8_t* pData = nullptr;  // the packet from its RTP head on; only read during the call
    std::size_t nSize = 0;                // of the whole packet
};

// Whether anybody traces any device: to be asked before a packet is reported. One relaxed load.
bool GvxIsAnyDeviceTraced() noexcept;
// Takes a packet's head, contributing sources and extension included, and the first 4 bytes of its payload; of a
// control packet the first 256 bytes. Those who use CCommonRtpReceiver name the device in RtpEndpointParams instead.
void GvxReportTracedPacket(const std::string& device, const GvxTracedPacket& packet) noexcept;

// The side of the gateway. Any thread.
namespace gvx {

// One message that was kept, or, without a protocol, one sentence of the gateway: a new state, a failed operation.
struct DialogueEntry {
    std::int64_t wallUs = 0;  // since 1970
    std::string protocol;
    bool toDevice = false;
    GvxTraceEnd local;
    GvxTraceEnd peer;
    std::string text;         // without secrets
    std::size_t leftOut = 0;  // bytes of the message that are not in the text
};

// What is kept of a device: all that was said in the last episode of failure and shortly before it, and what was said
// since. An episode begins with a state that is neither unknown nor online and ends with one that is; a failed
// operation of a device that is well is an episode of a moment. One that begins within a minute of the last one's end
// goes on with it, any other takes its place.
struct KeptDialogue {
    bool failing = false;    // the episode goes on
    std::time_t tBegan = 0;  // wall time of the episode; 0 when there was none
    std::time_t tEnded = 0;  // 0 while it goes on
    std::vector<DialogueEntry> episode;
    std::vector<DialogueEntry> recent;  // said since; empty while it goes on
    std::uint64_t dropped = 0;          // messages that had no room
};

constexpr std::size_t kEpisodeBytes = 64u * 1024;         // of one device, as kept in memory
constexpr std::size_t kRecentBytes = 24u * 1024;          // of one device that is well
constexpr std::size_t kAllDialogueBytes = 32u << 20;      // of all devices; those that were silent longest go first
constexpr std::size_t kMessageTextBytes = 16u * 1024;     // of one message
constexpr std::size_t kMostDialoguesWithoutDevice = 32u;  // of devices whose addition failed; the oldest goes first

// Keeps the dialogue of a device while it lives. Several of one code share it.
class DeviceTraceKeeper {
public:
    explicit DeviceTraceKeeper(std::string device);
    // Forgets what was kept, and ends a trace.
    ~DeviceTraceKeeper();
    DeviceTraceKeeper(const DeviceTraceKeeper&) = delete;
    DeviceTraceKeeper& operator=(const DeviceTraceKeeper&) = delete;

    // What was kept outlives this object: the device could not be added, and its dialogue tells why.
    void LeaveBehind() { m_leaveBehind = true; }

private:
    const std::string m_device;
    bool m_leaveBehind = false;
};

// The state of a device as a sentence; failing when it is neither unknown nor online.
void NoteDialogueState(const std::string& device, bool failing, const std::string& text) noexcept;
// An operation of the device has failed.
void NoteDialogueError(const std::string& device, const std::string& text) noexcept;

// False when nothing is known of such a device.
bool FindDialogue(const std::string& device, KeptDialogue& kept);
// Dialogues that went because all together had no room; rises only.
std::uint64_t DroppedDialogues() noexcept;

// Takes what is reported of a traced device, on the threads that report it: also those of media, so it must not wait.
class IDeviceTraceSink {
public:
    virtual ~IDeviceTraceSink() = default;
    virtual void OnMessage(const DialogueEntry& entry) noexcept = 0;
    // pData holds head bytes only; nSize is that of the whole packet.
    virtual void OnPacket(const GvxTracedPacket& packet, std::size_t head) noexcept = 0;
    // The device was deleted; nothing comes any more.
    virtual void OnDeviceGone() noexcept = 0;
};

// Begins a trace; sink gets all that is reported from now on, and kept what was before, with nothing between. False
// when there is no such device, or it is traced already.
bool BeginDeviceTrace(const std::string& device, const std::shared_ptr<IDeviceTraceSink>& sink, KeptDialogue& kept);
// Ends it where that sink still traces the device. A report that came before may be on its way to it yet.
void EndDeviceTrace(const std::string& device, const IDeviceTraceSink* sink) noexcept;

}  // namespace gvx
