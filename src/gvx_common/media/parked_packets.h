#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include <sys/uio.h>

namespace gvx {

// Packets of one stream that found no room in its socket, in their order, each with its length and the moment at which
// it came. Holds memory only while something waits. What all objects of the process hold together is limited to
// kStreamsInTotal times the limit of one. One thread at a time for an object.
class ParkedPackets {
public:
    static constexpr std::size_t kStreamsInTotal = 64;
    static constexpr std::size_t kLeastLimit = 16384;  // a limit below it has room for nothing

    ParkedPackets();
    ~ParkedPackets();
    ParkedPackets(const ParkedPackets&) = delete;
    ParkedPackets& operator=(const ParkedPackets&) = delete;

    bool IsEmpty() const { return m_count == 0; }
    std::size_t Count() const { return m_count; }

    // Puts a copy at the end; now is monotonic milliseconds. False when it would pass the limit, in bytes, of this
    // object or of all, when there is no memory, or for a packet that is longer than any block of media.
    bool Add(const iovec& packet, std::int64_t now, std::size_t limit);

    // The packets at the front, room at most, in place: valid until the next call that changes something. How many.
    std::size_t Front(iovec* packets, std::size_t room) const;

    // Takes that many packets away from the front.
    void Remove(std::size_t count);

    // Takes those away that came before that moment. How many.
    std::size_t RemoveOlderThan(std::int64_t moment);

    void Clear() { Remove(m_count); }

    // Bytes that all objects of the process hold now. Any thread.
    static std::size_t BytesOfAll();

private:
    struct Piece;
    struct Head;

    bool AddPiece(std::size_t limit);
    void RemoveFront();
    const Head& FrontHead() const;

    std::unique_ptr<Piece> m_first;
    Piece* m_last = nullptr;
    std::size_t m_count = 0;
    std::size_t m_bytes = 0;  // of the pieces
};

}  // namespace gvx
