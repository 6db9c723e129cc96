#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace gvx {

// Takes packets in order.
class IRtpPacketSink {
public:
    virtual ~IRtpPacketSink() = default;
    // lostBefore: how many packets before this one are given up. The bytes are valid during the call.
    virtual void OnOrderedPacket(const std::uint8_t* data, std::size_t size, std::uint32_t lostBefore,
                                 std::int64_t arrivalUs) = 0;
};

struct RtpReorderStatistics {
    std::uint64_t duplicates = 0;
    std::uint64_t late = 0;       // came after they were given up
    std::uint64_t reordered = 0;  // came early and waited
    std::uint64_t lost = 0;       // given up
};

// Puts packets in order within a bound of packets and of age. One that is next goes on at once, without a copy; one
// that is early is copied and waits until those before it have come or the bound is reached, and then the gap is given
// up. The copies' memory is kept and reused. One thread.
class RtpReorder {
public:
    static constexpr std::size_t kMostPackets = 256;
    static constexpr std::size_t kMostBytes = 1u << 20;  // of waiting packets

    // packets: how far ahead of a gap packets may wait, 1 to kMostPackets. ageUs: how long.
    RtpReorder(IRtpPacketSink& sink, std::size_t packets, std::int64_t ageUs);

    // Begins anew at that number; what waits is forgotten.
    void Start(std::int64_t first);

    // A packet with its number continued past 16 bits.
    void Push(std::int64_t number, const std::uint8_t* data, std::size_t size, std::int64_t nowUs);

    // Gives up the gaps before packets that have waited for that long.
    void OnTime(std::int64_t nowUs);
    // When OnTime is needed, in monotonic microseconds; -1 while nothing waits.
    std::int64_t DueUs() const { return m_waiting == 0 ? -1 : m_oldestUs + m_ageUs; }

    // Lets go of everything that waits, in order.
    void Flush();

    const RtpReorderStatistics& GetStatistics() const { return m_statistics; }

private:
    struct Slot {
        std::vector<std::uint8_t> bytes;
        std::int64_t arrivalUs = 0;
        bool used = false;
    };

    static std::size_t SlotOf(std::int64_t number) { return static_cast<std::size_t>(number) % kMostPackets; }
    std::int64_t FirstWaiting() const;
    void Deliver(const std::uint8_t* data, std::size_t size, std::int64_t arrivalUs);
    void DeliverRun();
    void GiveUpTo(std::int64_t number);
    void FindOldest();
    void Keep(std::int64_t number, const std::uint8_t* data, std::size_t size, std::int64_t nowUs);

    IRtpPacketSink& m_sink;
    const std::int64_t m_packets;
    const std::int64_t m_ageUs;
    std::array<Slot, kMostPackets> m_slots;
    std::vector<std::vector<std::uint8_t>> m_spare;  // memory of slots that are free
    std::size_t m_waiting = 0;
    std::size_t m_waitingBytes = 0;
    std::int64_t m_oldestUs = 0;  // arrival of the one that waits longest
    std::int64_t m_next = 0;
    std::uint32_t m_lostBefore = 0;  // to be told with the next packet
    // Whether each of the last 64 numbers before m_next was delivered; bit 0 is the last.
    std::uint64_t m_delivered = ~std::uint64_t{0};
    RtpReorderStatistics m_statistics;
};

}  // namespace gvx
