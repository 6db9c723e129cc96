#include "gvx_common/rtp/rtp_reorder.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace gvx {

RtpReorder::RtpReorder(IRtpPacketSink& sink, std::size_t packets, std::int64_t ageUs)
    : m_sink(sink),
      m_packets(static_cast<std::int64_t>(std::clamp<std::size_t>(packets, 1, kMostPackets - 1))),
      m_ageUs(ageUs) {}

void RtpReorder::Start(std::int64_t first) {
    for (std::int64_t number = m_next; m_waiting != 0; ++number) {
        Slot& slot = m_slots[SlotOf(number)];
        m_waiting -= slot.used;
        slot.used = false;
    }
    m_waitingBytes = 0;
    m_next = first;
    m_lostBefore = 0;
    m_delivered = 0;
}

void RtpReorder::Push(std::int64_t number, const std::uint8_t* data, std::size_t size, std::int64_t nowUs) {
    if (number < m_next) {
        const std::int64_t back = m_next - number - 1;
        const bool delivered = back < 64 && (m_delivered >> back & 1) != 0;
        ++(delivered ? m_statistics.duplicates : m_statistics.late);
        return;
    }
    if (number == m_next) {
        Deliver(data, size, nowUs);
    } else {
        if (m_waiting != 0 && number - m_next < static_cast<std::int64_t>(kMostPackets) &&
            m_slots[SlotOf(number)].used) {
            ++m_statistics.duplicates;
            return;
        }
        // Older gaps are given up until the packet is near enough.
        while (m_waiting != 0 && number - m_next > m_packets) {
            GiveUpTo(FirstWaiting());
        }
        if (number - m_next > m_packets) {
            GiveUpTo(number - m_packets);
        }
        if (number == m_next) {
            Deliver(data, size, nowUs);
        } else {
            Keep(number, data, size, nowUs);
        }
    }
    DeliverRun();
    while (m_waitingBytes > kMostBytes) {
        GiveUpTo(FirstWaiting());
    }
    OnTime(nowUs);
}

void RtpReorder::OnTime(std::int64_t nowUs) {
    while (m_waiting != 0 && nowUs >= DueUs()) {
        GiveUpTo(FirstWaiting());
    }
}

void RtpReorder::Flush() {
    while (m_waiting != 0) {
        GiveUpTo(FirstWaiting());
    }
}

std::int64_t RtpReorder::FirstWaiting() const {
    std::int64_t number = m_next;
    while (!m_slots[SlotOf(number)].used) {
        ++number;
    }
    return number;
}

void RtpReorder::Deliver(const std::uint8_t* data, std::size_t size, std::int64_t arrivalUs) {
    ++m_next;
    m_delivered = m_delivered << 1 | 1;
    m_sink.OnOrderedPacket(data, size, std::exchange(m_lostBefore, 0), arrivalUs);
}

void RtpReorder::DeliverRun() {
    if (m_waiting == 0 || !m_slots[SlotOf(m_next)].used) {
        return;
    }
    while (m_waiting != 0 && m_slots[SlotOf(m_next)].used) {
        Slot& slot = m_slots[SlotOf(m_next)];
        slot.used = false;
        --m_waiting;
        m_waitingBytes -= slot.bytes.size();
        std::vector<std::uint8_t> bytes = std::move(slot.bytes);
        slot.bytes.clear();
        Deliver(bytes.data(), bytes.size(), slot.arrivalUs);
        m_spare.push_back(std::move(bytes));
    }
    FindOldest();
}

void RtpReorder::FindOldest() {
    std::size_t left = m_waiting;
    m_oldestUs = std::numeric_limits<std::int64_t>::max();
    for (std::int64_t number = m_next; left != 0; ++number) {
        const Slot& slot = m_slots[SlotOf(number)];
        if (slot.used) {
            m_oldestUs = std::min(m_oldestUs, slot.arrivalUs);
            --left;
        }
    }
}

// Counts as lost what is missing before that number, and delivers what waited from there on.
void RtpReorder::GiveUpTo(std::int64_t number) {
    const auto lost = static_cast<std::uint64_t>(number - m_next);
    m_lostBefore += static_cast<std::uint32_t>(lost);
    m_statistics.lost += lost;
    m_delivered = lost >= 64 ? 0 : m_delivered << lost;
    m_next = number;
    DeliverRun();
}

void RtpReorder::Keep(std::int64_t number, const std::uint8_t* data, std::size_t size, std::int64_t nowUs) {
    Slot& slot = m_slots[SlotOf(number)];
    if (slot.bytes.capacity() == 0 && !m_spare.empty()) {
        slot.bytes = std::move(m_spare.back());
        m_spare.pop_back();
    }
    slot.bytes.assign(data, data + size);
    slot.arrivalUs = nowUs;
    slot.used = true;
    m_oldestUs = m_waiting == 0 ? nowUs : m_oldestUs;
    ++m_waiting;
    m_waitingBytes += size;
    ++m_statistics.reordered;
}

}  // namespace gvx
