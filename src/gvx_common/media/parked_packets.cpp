#include "gvx_common/media/parked_packets.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <new>
#include <utility>

namespace gvx {

namespace {

// A dozen packets. Few bytes are left over at its end, and few for a stream of which little waits.
constexpr std::size_t kPieceBytes = ParkedPackets::kLeastLimit;

std::atomic<std::size_t> bytesOfAll{0};

}  // namespace

struct ParkedPackets::Head {
    std::int64_t came;
    std::size_t size;
};

// A chain of pieces, each filled from its front to its end and read in the same way.
struct ParkedPackets::Piece {
    std::unique_ptr<Piece> next;
    std::size_t begin = 0;
    std::size_t end = 0;
    alignas(Head) char bytes[kPieceBytes - 3 * sizeof(std::size_t)];

    static std::size_t RoomFor(std::size_t size) {
        return (sizeof(Head) + size + alignof(Head) - 1) / alignof(Head) * alignof(Head);
    }
    const Head& HeadAt(std::size_t at) const { return *reinterpret_cast<const Head*>(bytes + at); }
};

ParkedPackets::ParkedPackets() = default;

ParkedPackets::~ParkedPackets() {
    Clear();
}

bool ParkedPackets::Add(const iovec& packet, std::int64_t now, std::size_t limit) {
    const std::size_t room = Piece::RoomFor(packet.iov_len);
    if (room > sizeof(Piece::bytes)) {
        return false;
    }
    if ((m_last == nullptr || sizeof(m_last->bytes) - m_last->end < room) && !AddPiece(limit)) {
        return false;
    }
    char* const to = m_last->bytes + m_last->end;
    new (to) Head{now, packet.iov_len};
    std::memcpy(to + sizeof(Head), packet.iov_base, packet.iov_len);
    m_last->end += room;
    ++m_count;
    return true;
}

bool ParkedPackets::AddPiece(std::size_t limit) {
    if (m_bytes + sizeof(Piece) > limit) {
        return false;
    }
    if (bytesOfAll.fetch_add(sizeof(Piece), std::memory_order_relaxed) + sizeof(Piece) > limit * kStreamsInTotal) {
        bytesOfAll.fetch_sub(sizeof(Piece), std::memory_order_relaxed);
        return false;
    }
    std::unique_ptr<Piece> piece(new (std::nothrow) Piece);
    if (piece == nullptr) {
        bytesOfAll.fetch_sub(sizeof(Piece), std::memory_order_relaxed);
        return false;
    }
    m_bytes += sizeof(Piece);
    std::unique_ptr<Piece>& place = m_last == nullptr ? m_first : m_last->next;
    m_last = piece.get();
    place = std::move(piece);
    return true;
}

std::size_t ParkedPackets::Front(iovec* packets, std::size_t room) const {
    std::size_t count = 0;
    for (Piece* piece = m_first.get(); piece != nullptr && count < room; piece = piece->next.get()) {
        for (std::size_t at = piece->begin; at < piece->end && count < room;) {
            const Head& head = piece->HeadAt(at);
            packets[count++] = {piece->bytes + at + sizeof(Head), head.size};
            at += Piece::RoomFor(head.size);
        }
    }
    return count;
}

const ParkedPackets::Head& ParkedPackets::FrontHead() const {
    return m_first->HeadAt(m_first->begin);
}

void ParkedPackets::RemoveFront() {
    m_first->begin += Piece::RoomFor(FrontHead().size);
    --m_count;
    if (m_first->begin < m_first->end) {
        return;
    }
    std::unique_ptr<Piece> next = std::move(m_first->next);
    m_first = std::move(next);
    m_last = m_first == nullptr ? nullptr : m_last;
    m_bytes -= sizeof(Piece);
    bytesOfAll.fetch_sub(sizeof(Piece), std::memory_order_relaxed);
}

void ParkedPackets::Remove(std::size_t count) {
    for (; count > 0; --count) {
        RemoveFront();
    }
}

std::size_t ParkedPackets::BytesOfAll() {
    return bytesOfAll.load(std::memory_order_relaxed);
}

std::size_t ParkedPackets::RemoveOlderThan(std::int64_t moment) {
    std::size_t removed = 0;
    for (; m_count > 0 && FrontHead().came < moment; ++removed) {
        RemoveFront();
    }
    return removed;
}

}  // namespace gvx
