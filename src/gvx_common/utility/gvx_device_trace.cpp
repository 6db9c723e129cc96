#include "gvx_common/utility/gvx_device_trace.h"

#include "base/clock.h"
#include "base/redact.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <map>
#include <mutex>
#include <new>
#include <string_view>
#include <utility>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

namespace gvx {
namespace {

constexpr std::size_t kMostProtocolBytes = 15;
constexpr std::size_t kLookedAtBytes = 64u * 1024;  // of a message; a secret that its end cuts lies behind what stays
constexpr std::int64_t kGoesOnMs = 60000;
constexpr std::size_t kRoomAfterEviction = kAllDialogueBytes / 8 * 7;
constexpr std::size_t kRtpHead = 12;
constexpr std::size_t kPayloadHead = 4;
constexpr std::size_t kControlHead = 256;

// Messages of one device, the oldest first.
class Dialogue {
public:
    const std::vector<DialogueEntry>& Entries() const { return m_entries; }
    std::size_t Bytes() const { return m_bytes; }

    // Returns how many entries had to go.
    std::size_t Add(DialogueEntry entry, std::size_t limit) {
        const std::size_t bytes = BytesOf(entry);
        m_entries.push_back(std::move(entry));
        m_bytes += bytes;
        auto first = m_entries.begin();
        for (; m_bytes > limit; ++first) {
            m_bytes -= BytesOf(*first);
        }
        const auto gone = static_cast<std::size_t>(first - m_entries.begin());
        m_entries.erase(m_entries.begin(), first);
        return gone;
    }

    void Clear() {
        std::vector<DialogueEntry>().swap(m_entries);
        m_bytes = 0;
    }

    std::vector<DialogueEntry> Take() {
        m_bytes = 0;
        return std::exchange(m_entries, {});
    }

private:
    // The same for an entry as it comes and as it goes, wherever it was moved to meanwhile.
    static std::size_t BytesOf(const DialogueEntry& entry) { return sizeof(entry) + entry.text.size(); }

    std::vector<DialogueEntry> m_entries;
    std::size_t m_bytes = 0;
};

struct TracedDevice {
    int keepers = 0;
    Dialogue recent;
    Dialogue episode;
    bool failing = false;
    std::time_t began = 0;
    std::time_t ended = 0;
    std::int64_t endedMs = 0;
    std::int64_t lastMs = 0;  // of the last message
    std::uint64_t dropped = 0;
    std::shared_ptr<IDeviceTraceSink> sink;  // null: nobody traces it

    std::size_t Bytes() const { return recent.Bytes() + episode.Bytes(); }

    void Add(DialogueEntry entry) {
        lastMs = MonotonicMilliseconds();
        dropped += failing ? episode.Add(std::move(entry), kEpisodeBytes) : recent.Add(std::move(entry), kRecentBytes);
    }

    void BeginEpisode() {
        if (failing) {
            return;
        }
        if (began == 0 || MonotonicMilliseconds() - endedMs > kGoesOnMs) {
            episode.Clear();
            dropped = 0;
            began = WallSeconds();
        }
        ended = 0;
        failing = true;
        for (DialogueEntry& entry : recent.Take()) {
            dropped += episode.Add(std::move(entry), kEpisodeBytes);
        }
    }

    void EndEpisode() {
        if (failing) {
            failing = false;
            ended = WallSeconds();
            endedMs = MonotonicMilliseconds();
        }
    }

    KeptDialogue Kept() const { return {failing, began, ended, episode.Entries(), recent.Entries(), dropped}; }
};

std::atomic<int> g_tracedDevices{0};
std::atomic<std::uint64_t> g_droppedDialogues{0};

class TraceTable {
public:
    // Never destroyed: a thread of a plug-in may report after the static objects are gone.
    static TraceTable& Instance() {
        static TraceTable* const table = new TraceTable;
        return *table;
    }

    // Calls use with the device, and gives its sink back, so that it is called without the lock; null when there is no
    // such device or nobody traces it.
    template <typename Use>
    std::shared_ptr<IDeviceTraceSink> With(const std::string& device, const Use& use) noexcept {
        const std::lock_guard<std::mutex> lock(m_mutex);
        const auto found = m_devices.find(device);
        if (found == m_devices.end()) {
            return nullptr;
        }
        m_bytes -= found->second.Bytes();
        try {
            use(found->second);
        } catch (const std::bad_alloc&) {  // the message is lost, and no more
        }
        m_bytes += found->second.Bytes();
        if (m_bytes > kAllDialogueBytes) {
            Evict();
        }
        return found->second.sink;
    }

    void Keep(const std::string& device) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        ++m_devices[device].keepers;
    }

    std::shared_ptr<IDeviceTraceSink> Leave(const std::string& device, bool leaveBehind) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        const auto found = m_devices.find(device);
        if (--found->second.keepers != 0) {
            return nullptr;
        }
        std::shared_ptr<IDeviceTraceSink> sink = std::move(found->second.sink);
        g_tracedDevices.fetch_sub(sink != nullptr ? 1 : 0, std::memory_order_relaxed);
        if (leaveBehind) {
            found->second.EndEpisode();
            ForgetOldestLeftBehind();
        } else {
            m_bytes -= found->second.Bytes();
            m_devices.erase(found);
        }
        return sink;
    }

private:
    using Devices = std::map<std::string, TracedDevice>;

    // Whole dialogues go, those of devices that are well ahead of others. Without memory for that the next message
    // tries again.
    void Evict() noexcept {
        std::vector<TracedDevice*> oldest;
        try {
            for (auto& [code, device] : m_devices) {
                oldest.push_back(&device);
            }
        } catch (const std::bad_alloc&) {
            return;
        }
        std::sort(oldest.begin(), oldest.end(), [](const TracedDevice* a, const TracedDevice* b) {
            return std::pair(a->failing, a->lastMs) < std::pair(b->failing, b->lastMs);
        });
        for (TracedDevice* const device : oldest) {
            if (m_bytes <= kRoomAfterEviction) {
                return;
            }
            if (device->Bytes() != 0) {
                m_bytes -= device->Bytes();
                device->dropped += device->recent.Entries().size() + device->episode.Entries().size();
                device->recent.Clear();
                device->episode.Clear();
                g_droppedDialogues.fetch_add(1, std::memory_order_relaxed);
            }
        }
    }

    void ForgetOldestLeftBehind() {
        std::size_t count = 0;
        auto oldest = m_devices.end();
        for (auto at = m_devices.begin(); at != m_devices.end(); ++at) {
            if (at->second.keepers == 0) {
                ++count;
                oldest = oldest == m_devices.end() || at->second.lastMs < oldest->second.lastMs ? at : oldest;
            }
        }
        if (count > kMostDialoguesWithoutDevice) {
            m_bytes -= oldest->second.Bytes();
            m_devices.erase(oldest);
        }
    }

    std::mutex m_mutex;       // nothing is called while it is held
    Devices m_devices;        // Guarded by m_mutex.
    std::size_t m_bytes = 0;  // of all dialogues. Guarded by m_mutex.
};

// Where what is no text begins; the size when all of it is.
std::size_t TextEnd(std::string_view text) {
    const auto binary = [](unsigned char c) { return (c < ' ' && c != '\r' && c != '\n' && c != '\t') || c == 0x7F; };
    const auto odd = std::find_if(text.begin(), text.end(), binary);
    if (odd == text.end()) {
        return text.size();
    }
    const std::size_t heads = text.find("\r\n\r\n");
    const auto at = static_cast<std::size_t>(odd - text.begin());
    return heads != std::string_view::npos && heads + 4 <= at ? heads + 4 : at;
}

DialogueEntry MakeEntry(const GvxDialogueMessage& message) {
    const std::string_view whole(message.pszText, message.nLength);
    const std::string_view text = whole.substr(0, TextEnd(whole.substr(0, kLookedAtBytes)));
    DialogueEntry entry;
    entry.wallUs = CurrentClock().WallMicroseconds();
    entry.protocol = std::string(message.pszProtocol).substr(0, kMostProtocolBytes);
    entry.toDevice = message.bToDevice;
    entry.local = message.local;
    entry.peer = message.peer;
    entry.leftOut = message.nLeftOut + whole.size() - text.size();
    const std::string clean = RedactedText(text);
    entry.leftOut += clean.size() - std::min(clean.size(), kMessageTextBytes);
    entry.text = clean.substr(0, kMessageTextBytes);
    return entry;
}

enum class Happened { Failing, Well, Error };

void Note(const std::string& device, const std::string& text, Happened what) noexcept {
    try {
        DialogueEntry entry;
        entry.wallUs = CurrentClock().WallMicroseconds();
        entry.text = RedactedText(std::string_view(text).substr(0, kMessageTextBytes));
        const auto sink = TraceTable::Instance().With(device, [&](TracedDevice& traced) {
            const bool wasFailing = traced.failing;
            if (what != Happened::Well) {
                traced.BeginEpisode();
            }
            traced.Add(entry);
            if (what == Happened::Well || (what == Happened::Error && !wasFailing)) {
                traced.EndEpisode();
            }
        });
        if (sink != nullptr) {
            sink->OnMessage(entry);
        }
    } catch (const std::exception&) {
    }
}

std::size_t HeadOf(const GvxTracedPacket& packet) {
    if (packet.bControl) {
        return std::min(packet.nSize, kControlHead);
    }
    std::size_t head = kRtpHead;
    if (packet.nSize >= kRtpHead) {
        head += static_cast<std::size_t>(packet.pData[0] & 0x0F) * 4;
        const bool extended = (packet.pData[0] & 0x10) != 0 && packet.nSize >= head + 4;
        if (extended) {
            const auto words = static_cast<std::size_t>(packet.pData[head + 2] << 8 | packet.pData[head + 3]);
            head += 4 + words * 4;
        }
    }
    return std::min({packet.nSize, head + kPayloadHead, kControlHead});
}

}  // namespace

DeviceTraceKeeper::DeviceTraceKeeper(std::string device) : m_device(std::move(device)) {
    TraceTable::Instance().Keep(m_device);
}

DeviceTraceKeeper::~DeviceTraceKeeper() {
    const std::shared_ptr<IDeviceTraceSink> sink = TraceTable::Instance().Leave(m_device, m_leaveBehind);
    if (sink != nullptr) {
        sink->OnDeviceGone();
    }
}

void NoteDialogueState(const std::string& device, bool failing, const std::string& text) noexcept {
    Note(device, text, failing ? Happened::Failing : Happened::Well);
}

void NoteDialogueError(const std::string& device, const std::string& text) noexcept {
    Note(device, text, Happened::Error);
}

bool FindDialogue(const std::string& device, KeptDialogue& kept) {
    bool isThere = false;
    TraceTable::Instance().With(device, [&](const TracedDevice& traced) {
        kept = traced.Kept();
        isThere = true;
    });
    return isThere;
}

std::uint64_t DroppedDialogues() noexcept {
    return g_droppedDialogues.load(std::memory_order_relaxed);
}

bool BeginDeviceTrace(const std::string& device, const std::shared_ptr<IDeviceTraceSink>& sink, KeptDialogue& kept) {
    bool begun = false;
    TraceTable::Instance().With(device, [&](TracedDevice& traced) {
        if (traced.keepers != 0 && traced.sink == nullptr) {
            kept = traced.Kept();
            traced.sink = sink;
            g_tracedDevices.fetch_add(1, std::memory_order_relaxed);
            begun = true;
        }
    });
    return begun;
}

void EndDeviceTrace(const std::string& device, const IDeviceTraceSink* sink) noexcept {
    std::shared_ptr<IDeviceTraceSink> ended;  // goes without the lock
    TraceTable::Instance().With(device, [&](TracedDevice& traced) {
        if (traced.sink.get() == sink) {
            ended = std::move(traced.sink);
        }
    });
    g_tracedDevices.fetch_sub(ended != nullptr ? 1 : 0, std::memory_order_relaxed);
}

}  // namespace gvx

GvxTraceEnd GvxMakeTraceEnd(const std::string& address, std::uint16_t port) {
    GvxTraceEnd end;
    in6_addr parsed{};
    end.bIpv6 = ::inet_pton(AF_INET, address.c_str(), &parsed) != 1;
    if (!end.bIpv6 || ::inet_pton(AF_INET6, address.c_str(), &parsed) == 1) {
        std::copy_n(parsed.s6_addr, end.address.size(), end.address.begin());
        end.usPort = port;
    } else {
        end.bIpv6 = false;
    }
    return end;
}

GvxTraceEnd GvxTraceEndOfSocket(int handle, bool peer) {
    sockaddr_storage address{};
    socklen_t size = sizeof(address);
    auto* const plain = reinterpret_cast<sockaddr*>(&address);
    GvxTraceEnd end;
    if ((peer ? ::getpeername(handle, plain, &size) : ::getsockname(handle, plain, &size)) != 0) {
        return end;
    }
    if (address.ss_family == AF_INET) {
        const auto& v4 = reinterpret_cast<const sockaddr_in&>(address);
        std::copy_n(reinterpret_cast<const std::uint8_t*>(&v4.sin_addr), sizeof(v4.sin_addr), end.address.begin());
        end.usPort = ntohs(v4.sin_port);
    } else if (address.ss_family == AF_INET6) {
        const auto& v6 = reinterpret_cast<const sockaddr_in6&>(address);
        std::copy_n(v6.sin6_addr.s6_addr, end.address.size(), end.address.begin());
        end.bIpv6 = true;
        end.usPort = ntohs(v6.sin6_port);
    }
    return end;
}

std::string GvxTraceEndText(const GvxTraceEnd& end) {
    char text[INET6_ADDRSTRLEN] = {};
    const bool known = end.usPort != 0 ||
                       std::any_of(end.address.begin(), end.address.end(), [](std::uint8_t byte) { return byte != 0; });
    if (!known || ::inet_ntop(end.bIpv6 ? AF_INET6 : AF_INET, end.address.data(), text, sizeof(text)) == nullptr) {
        return {};
    }
    const std::string address = end.bIpv6 ? "[" + std::string(text) + "]" : text;
    return address + ":" + std::to_string(end.usPort);
}

void GvxReportDialogue(const std::string& device, const GvxDialogueMessage& message) noexcept {
    try {
        if (message.pszText == nullptr || message.pszProtocol == nullptr || device.empty()) {
            return;
        }
        const gvx::DialogueEntry entry = gvx::MakeEntry(message);
        const auto sink =
            gvx::TraceTable::Instance().With(device, [&entry](gvx::TracedDevice& traced) { traced.Add(entry); });
        if (sink != nullptr) {
            sink->OnMessage(entry);
        }
    } catch (const std::exception&) {
    }
}

bool GvxIsAnyDeviceTraced() noexcept {
    return gvx::g_tracedDevices.load(std::memory_order_relaxed) != 0;
}

void GvxReportTracedPacket(const std::string& device, const GvxTracedPacket& packet) noexcept {
    const auto sink = gvx::TraceTable::Instance().With(device, [](const gvx::TracedDevice&) {});
    if (sink != nullptr && packet.pData != nullptr) {
        sink->OnPacket(packet, gvx::HeadOf(packet));
    }
}
