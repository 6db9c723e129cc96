#include "gateway/streams/stream_gate_slot.h"

#include "base/zvs_error.h"
#include "gateway/streams/stream_gate.h"
#include "gvx_common/media/media_send_stream.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <deque>

namespace gvx {

namespace {

// A plug-in whose StartStream waits for its own first packet would otherwise never return.
constexpr std::chrono::milliseconds kHoldLimit(500);

constexpr unsigned kStateBits = 2;
constexpr unsigned kIndexBits = 16;
static_assert(StreamGate::kMaxGates == std::size_t{1} << kIndexBits, "user information holds the index of a slot");
static_assert(sizeof(void*) == sizeof(std::uint64_t), "user information holds an index and a use");

using State = StreamGateSlot::State;

std::uint64_t Word(std::uint64_t use, State state) {
    return use << kStateBits | static_cast<std::uint64_t>(state);
}

struct Slots {
    std::array<std::atomic<StreamGateSlot*>, StreamGate::kMaxGates> all{};  // written once each, under mutex
    std::mutex mutex;
    std::size_t count = 0;              // Guarded by mutex.
    std::deque<StreamGateSlot*> free;  // Guarded by mutex; longest free first.
};

// Never destroyed: a plug-in's thread may outlive every static object.
Slots& AllSlots() {
    static Slots* slots = new Slots;
    return *slots;
}

}  // namespace

// A slot in which a call still is stays free and is passed over.
StreamGateSlot* StreamGateSlot::Take() {
    Slots& slots = AllSlots();
    const std::lock_guard<std::mutex> lock(slots.mutex);
    StreamGateSlot* slot = nullptr;
    const auto found = std::find_if(slots.free.begin(), slots.free.end(),
                                    [](const StreamGateSlot* candidate) { return candidate->IsEmpty(); });
    if (found != slots.free.end()) {
        slot = *found;
        slots.free.erase(found);
    } else if (slots.count < StreamGate::kMaxGates) {
        slot = new StreamGateSlot(slots.count);
        slots.all[slots.count++].store(slot, std::memory_order_release);
    }
    if (slot != nullptr) {
        slot->BeginUse();
    }
    return slot;
}

void StreamGateSlot::GiveBack(StreamGateSlot* slot) {
    Slots& slots = AllSlots();
    const std::lock_guard<std::mutex> lock(slots.mutex);
    slots.free.push_back(slot);
}

StreamGateSlot* StreamGateSlot::Find(const void* userInfo, std::uint64_t& use) {
    const auto number = reinterpret_cast<std::uintptr_t>(userInfo);
    use = number >> kIndexBits;
    return AllSlots().all[number % StreamGate::kMaxGates].load(std::memory_order_acquire);
}

void StreamGateSlot::BeginUse() {
    m_target = nullptr;
    m_metadataTarget = nullptr;
    m_metadataPackets.store(0, std::memory_order_relaxed);
    m_audio = true;
    m_starter = std::this_thread::get_id();
    m_useAndState.store(Word((m_useAndState.load() >> kStateBits) + 1, State::Held));
}

void* StreamGateSlot::UserInfo() const {
    return reinterpret_cast<void*>((m_useAndState.load() >> kStateBits) << kIndexBits | m_index);
}

void StreamGateSlot::SetTarget(CMediaSendStream* target, bool audio) {
    m_target = target;
    m_audio = audio;
}

void StreamGateSlot::Change(State state) {
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_useAndState.store(Word(m_useAndState.load() >> kStateBits, state));
    }
    m_changed.notify_all();
}

// The count goes up before the word is read, and closing writes the word before it reads the count: one of the two
// always sees the other.
int StreamGateSlot::Pass(std::uint64_t use, MEDIA_DATA* data, STREAM_TYPE_EX* streamType) {
    m_inside.fetch_add(1);
    if (m_useAndState.load() == Word(use, State::Held)) {
        WaitWhileHeld(Word(use, State::Held));
    }
    const std::uint64_t now = m_useAndState.load();
    int result = ZVS_GVX_OPEN_SOCKET_ERROR;
    if (now == Word(use, State::Open) || now == Word(use, State::Held)) {
        result = Forward(data, streamType);
    }
    m_inside.fetch_sub(1);
    return result;
}

int StreamGateSlot::Forward(MEDIA_DATA* data, STREAM_TYPE_EX* streamType) {
    if (!m_audio && data->nVideoSize == 0 && data->nAudioSize != 0) {
        return ZVS_SUCCEED;
    }
    if (data->nVideoSize == 0 && data->nAudioSize == 0 && data->nMetaDataSize != 0) {
        return ForwardMetadata(data, streamType);
    }
    return ForwardTo(m_target, data, streamType);
}

int StreamGateSlot::ForwardMetadata(MEDIA_DATA* data, STREAM_TYPE_EX* streamType) {
    if (m_metadataTarget == nullptr) {
        return ZVS_SUCCEED;
    }
    const int result = ForwardTo(m_metadataTarget, data, streamType);
    if (result == ZVS_SUCCEED) {
        m_metadataPackets.fetch_add(1, std::memory_order_relaxed);
    }
    return result;
}

int StreamGateSlot::ForwardTo(CMediaSendStream* target, MEDIA_DATA* data, STREAM_TYPE_EX* streamType) {
    void* const userInfo = data->pUserInfo;
    data->pUserInfo = target;
    const int result = SendMediaOverSocket(data, streamType);
    data->pUserInfo = userInfo;  // the plug-in's record serves for the next packet too
    return result;
}

void StreamGateSlot::WaitWhileHeld(std::uint64_t held) {
    if (std::this_thread::get_id() == m_starter) {
        return;
    }
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait_for(lock, kHoldLimit, [this, held] { return m_useAndState.load() != held; });
}

}  // namespace gvx
