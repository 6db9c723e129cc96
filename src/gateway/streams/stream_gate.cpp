#include "gateway/streams/stream_gate.h"

#include "base/zvs_error.h"
#include "gateway/streams/stream_gate_slot.h"

#include <chrono>
#include <thread>

namespace gvx {

using State = StreamGateSlot::State;

StreamGate::StreamGate() : m_slot(StreamGateSlot::Take()) {}

StreamGate::~StreamGate() {
    if (m_slot != nullptr) {
        Close();
        StreamGateSlot::GiveBack(m_slot);
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
    StreamGateSlot* slot = StreamGateSlot::Find(data->pUserInfo, use);
    return slot == nullptr ? int{ZVS_GVX_OPEN_SOCKET_ERROR} : slot->Pass(use, data, streamType);
}

}  // namespace gvx
