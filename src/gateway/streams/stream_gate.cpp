#include "gateway/streams/stream_gate.h"

#include "base/log.h"
#include "base/zvs_error.h"
#include "gateway/alarms/plugin_troubles.h"
#include "gvx_common/media/media_send_stream.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>
#include <thread>

namespace gvx {

namespace {

// A plug-in whose StartStream waits for its own first packet would otherwise never return.
constexpr std::chrono::milliseconds kHoldLimit(500);

constexpr unsigned kStateBits = 2;
constexpr unsigned kIndexBits = 16;
static_assert(StreamGate::kMaxGates == std::size_t{1} << kIndexBits, "user information holds the index of a slot");
static_assert(sizeof(void*) == sizeof(std::uint64_t), "user information holds an index and a use");

enum class State : std::uint64_t { Held, Open, Closed };

std::uint64_t Word(std::uint64_t use, State state) {
    return use << kStateBits | static_cast<std::uint64_t>(state);
}

}  // namespace

// A slot serves one gate after the other; each use has a number of its own, which stands in one word with the state, so
// that a call that comes too late never takes the next use for its own.
class StreamGate::Slot {
public:
    // A free slot in its next use, held; null when there is none.
    static Slot* Take(const std::string& plugin, const std::string& device);
    // Gives a closed slot back.
    static void GiveBack(Slot* slot);
    // The slot of a packet's user information, which may be anything; use is the one that it is meant for.
    static Slot* Find(const void* userInfo, std::uint64_t& use);

    void* UserInfo() const;
    void SetTarget(CMediaSendStream* target, bool audio);
    void SetMetadataTarget(CMediaSendStream* target) { m_metadataTarget = target; }
    std::uint64_t MetadataPackets() const { return m_metadataPackets.load(std::memory_order_relaxed); }
    void Change(State state);
    bool IsEmpty() const { return m_inside.load() == 0; }
    int Pass(std::uint64_t use, MEDIA_DATA* data, STREAM_TYPE_EX* streamType);

private:
    struct Table;

    explicit Slot(std::size_t index) : m_index(index) {}

    static Table& AllSlots();
    int Forward(MEDIA_DATA* data, STREAM_TYPE_EX* streamType);
    void WaitWhileHeld(std::uint64_t held);
    void BeginUse(const std::string& plugin, const std::string& device);
    void NoteLate(std::uint64_t use);

    const std::size_t m_index;
    std::atomic<std::uint64_t> m_useAndState{static_cast<std::uint64_t>(State::Closed)};
    std::atomic<int> m_inside{0};
    std::atomic<std::uint64_t> m_metadataPackets{0};
    // Of the use: written before the plug-in learns its number, read by calls that have it.
    CMediaSendStream* m_target = nullptr;          // not owned
    CMediaSendStream* m_metadataTarget = nullptr;  // not owned
    bool m_audio = true;
    std::thread::id m_starter;
    std::atomic<std::uint64_t> m_lateUse{0};  // the last use of which a late call was told; uses begin with 1
    std::mutex m_mutex;                       // For m_changed and the names.
    std::string m_plugin;                     // Guarded by m_mutex; of the use.
    std::string m_device;                     // Guarded by m_mutex; of the use.
    std::condition_variable m_changed;
};

struct StreamGate::Slot::Table {
    std::array<std::atomic<Slot*>, kMaxGates> all{};  // written once each, under mutex
    std::mutex mutex;
    std::size_t count = 0;   // Guarded by mutex.
    std::deque<Slot*> free;  // Guarded by mutex; longest free first.
};

// Never destroyed: a plug-in's thread may outlive every static object.
StreamGate::Slot::Table& StreamGate::Slot::AllSlots() {
    static Table* slots = new Table;
    return *slots;
}

// A slot in which a call still is stays free and is passed over.
StreamGate::Slot* StreamGate::Slot::Take(const std::string& plugin, const std::string& device) {
    Table& slots = AllSlots();
    const std::lock_guard<std::mutex> lock(slots.mutex);
    Slot* slot = nullptr;
    const auto found =
        std::find_if(slots.free.begin(), slots.free.end(), [](const Slot* candidate) { return candidate->IsEmpty(); });
    if (found != slots.free.end()) {
        slot = *found;
        slots.free.erase(found);
    } else if (slots.count < kMaxGates) {
        slot = new Slot(slots.count);
        slots.all[slots.count++].store(slot, std::memory_order_release);
    }
    if (slot != nullptr) {
        slot->BeginUse(plugin, device);
    }
    return slot;
}

void StreamGate::Slot::GiveBack(Slot* slot) {
    Table& slots = AllSlots();
    const std::lock_guard<std::mutex> lock(slots.mutex);
    slots.free.push_back(slot);
}

StreamGate::Slot* StreamGate::Slot::Find(const void* userInfo, std::uint64_t& use) {
    const auto number = reinterpret_cast<std::uintptr_t>(userInfo);
    use = number >> kIndexBits;
    return AllSlots().all[number % kMaxGates].load(std::memory_order_acquire);
}

void StreamGate::Slot::BeginUse(const std::string& plugin, const std::string& device) {
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_plugin = plugin;
        m_device = device;
    }
    m_target = nullptr;
    m_metadataTarget = nullptr;
    m_metadataPackets.store(0, std::memory_order_relaxed);
    m_audio = true;
    m_starter = std::this_thread::get_id();
    m_useAndState.store(Word((m_useAndState.load() >> kStateBits) + 1, State::Held));
}

void* StreamGate::Slot::UserInfo() const {
    return reinterpret_cast<void*>((m_useAndState.load() >> kStateBits) << kIndexBits | m_index);
}

void StreamGate::Slot::SetTarget(CMediaSendStream* target, bool audio) {
    m_target = target;
    m_audio = audio;
}

void StreamGate::Slot::Change(State state) {
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_useAndState.store(Word(m_useAndState.load() >> kStateBits, state));
    }
    m_changed.notify_all();
}

// The count goes up before the word is read, and closing writes the word before it reads the count: one of the two
// always sees the other.
int StreamGate::Slot::Pass(std::uint64_t use, MEDIA_DATA* data, STREAM_TYPE_EX* streamType) {
    m_inside.fetch_add(1);
    const std::uint64_t found = m_useAndState.load();
    if (found == Word(use, State::Held)) {
        WaitWhileHeld(found);
    } else if (found == Word(use, State::Closed)) {
        NoteLate(use);
    }
    const std::uint64_t now = m_useAndState.load();
    int result = ZVS_GVX_OPEN_SOCKET_ERROR;
    if (now == Word(use, State::Open) || now == Word(use, State::Held)) {
        result = Forward(data, streamType);
    }
    m_inside.fetch_sub(1);
    return result;
}

// A gate is closed when StopStream has returned: no call may begin then.
void StreamGate::Slot::NoteLate(std::uint64_t use) {
    if (m_lateUse.exchange(use) == use) {
        return;
    }
    std::unique_lock<std::mutex> lock(m_mutex);
    const std::string plugin = m_plugin;
    const std::string device = m_device;
    lock.unlock();
    if (PluginTroubles::Instance().Note(PluginTrouble::Kind::CallsLate, plugin, "the send function", device)) {
        GVX_LOG_WARN("Late call", "plug-in %s: it calls the send function of device %s although the stream is over.",
                     plugin.c_str(), device.c_str());
    }
}

int StreamGate::Slot::Forward(MEDIA_DATA* data, STREAM_TYPE_EX* streamType) {
    const bool hasVideo = data->nVideoSize != 0;
    const bool hasAudio = data->nAudioSize != 0;
    const bool isMetadata = !hasVideo && !hasAudio && data->nMetaDataSize != 0;
    CMediaSendStream* const target = isMetadata ? m_metadataTarget : m_target;
    const bool dropped = isMetadata ? target == nullptr : hasAudio && !hasVideo && !m_audio;
    if (dropped) {
        return ZVS_SUCCEED;
    }
    if (target == nullptr || streamType == nullptr) {
        GVX_LOG_ERR("Media send stream", "Socket info is null");
        return ZVS_FAIL;
    }
    const int result = target->Send(*data);
    if (isMetadata && result == ZVS_SUCCEED) {
        m_metadataPackets.fetch_add(1, std::memory_order_relaxed);
    }
    return result;
}

void StreamGate::Slot::WaitWhileHeld(std::uint64_t held) {
    if (std::this_thread::get_id() == m_starter) {
        return;
    }
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait_for(lock, kHoldLimit, [this, held] { return m_useAndState.load() != held; });
}

StreamGate::StreamGate(const std::string& plugin, const std::string& device) : m_slot(Slot::Take(plugin, device)) {}

StreamGate::~StreamGate() {
    if (m_slot != nullptr) {
        Close();
        Slot::GiveBack(m_slot);
    }
}

void* StreamGate::UserInfo() const {
    return m_slot->UserInfo();
}

void StreamGate::SetTarget(CMediaSendStream* target, bool audio) {
    m_slot->SetTarget(target, audio);
}

void StreamGate::SetMetadataTarget(CMediaSendStream* target) {
    m_slot->SetMetadataTarget(target);
}

std::uint64_t StreamGate::MetadataPackets() const {
    return m_slot == nullptr ? 0 : m_slot->MetadataPackets();
}

void StreamGate::Open() {
    m_slot->Change(State::Open);
}

void StreamGate::Close() {
    m_slot->Change(State::Closed);
}

bool StreamGate::WaitEmpty(int limitMs) const {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(limitMs);
    while (!m_slot->IsEmpty()) {
        if (std::chrono::steady_clock::now() >= deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

int StreamGate::Send(MEDIA_DATA* data, STREAM_TYPE_EX* streamType) {
    if (data == nullptr || data->pUserInfo == nullptr) {
        return ZVS_FAIL;
    }
    std::uint64_t use = 0;
    Slot* slot = Slot::Find(data->pUserInfo, use);
    return slot == nullptr ? int{ZVS_GVX_OPEN_SOCKET_ERROR} : slot->Pass(use, data, streamType);
}

}  // namespace gvx
