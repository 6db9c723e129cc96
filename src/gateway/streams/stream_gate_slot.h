#pragma once

#include "gvx_common/records/media_types.h"

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <thread>

class CMediaSendStream;

namespace gvx {

// What is behind a gate. A slot serves one gate after the other; each use has a number of its own, which stands in one
// word with the state, so that a call that comes too late never takes the next use for its own.
class StreamGateSlot {
public:
    enum class State : std::uint64_t { Held, Open, Closed };

    // A free slot in its next use, held; null when there is none.
    static StreamGateSlot* Take();
    // Gives a closed slot back.
    static void GiveBack(StreamGateSlot* slot);
    // The slot of a packet's user information, which may be anything; use is the one that it is meant for.
    static StreamGateSlot* Find(const void* userInfo, std::uint64_t& use);

    void* UserInfo() const;
    void SetTarget(CMediaSendStream* target, bool audio);
    void SetMetadataTarget(CMediaSendStream* target) { m_metadataTarget = target; }
    std::uint64_t MetadataPackets() const { return m_metadataPackets.load(std::memory_order_relaxed); }
    void Change(State state);
    bool IsEmpty() const { return m_inside.load() == 0; }
    int Pass(std::uint64_t use, MEDIA_DATA* data, STREAM_TYPE_EX* streamType);

private:
    explicit StreamGateSlot(std::size_t index) : m_index(index) {}

    int Forward(MEDIA_DATA* data, STREAM_TYPE_EX* streamType);
    int ForwardTo(CMediaSendStream* target, MEDIA_DATA* data, STREAM_TYPE_EX* streamType);
    int ForwardMetadata(MEDIA_DATA* data, STREAM_TYPE_EX* streamType);
    void WaitWhileHeld(std::uint64_t held);
    void BeginUse();

    const std::size_t m_index;
    std::atomic<std::uint64_t> m_useAndState{static_cast<std::uint64_t>(State::Closed)};
    std::atomic<int> m_inside{0};
    std::atomic<std::uint64_t> m_metadataPackets{0};
    // Of the use: written before the plug-in learns its number, read by calls that have it.
    CMediaSendStream* m_target = nullptr;          // not owned
    CMediaSendStream* m_metadataTarget = nullptr;  // not owned
    bool m_audio = true;
    std::thread::id m_starter;
    std::mutex m_mutex;  // For m_changed alone.
    std::condition_variable m_changed;
};

}  // namespace gvx
