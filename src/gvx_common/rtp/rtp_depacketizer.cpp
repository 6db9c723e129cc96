#include "gvx_common/rtp/rtp_depacketizer.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace gvx {

const char* RtpDamageName(RtpDamage damage) {
    switch (damage) {
        case RtpDamage::None:
            return "none";
        case RtpDamage::LostPacket:
            return "lost packet";
        case RtpDamage::MissingStart:
            return "missing start";
        case RtpDamage::MissingEnd:
            return "missing end";
        case RtpDamage::ForbiddenType:
            return "forbidden type";
        case RtpDamage::Malformed:
            return "malformed";
        case RtpDamage::TooLong:
            return "too long";
    }
    return "unknown";
}

void RtpDepacketizer::Open(const RtpView& packet, std::int64_t arrivalUs) {
    m_unit = RtpAccessUnit{};
    m_unit.rtpTime = packet.timestamp;
    m_unit.ssrc = packet.ssrc;
    m_unit.payloadType = packet.payloadType;
    m_unit.arrivalUs = arrivalUs;
    m_size = 0;
    m_refused = false;
    m_open = true;
}

bool RtpDepacketizer::Append(const std::uint8_t* bytes, std::size_t size) {
    if (m_refused) {
        return false;
    }
    if (size > m_capacity - m_size && !Grow(m_size + size)) {
        m_refused = true;
        Damage(RtpDamage::TooLong);
        return false;
    }
    if (size != 0) {
        std::memcpy(m_buffer.get() + m_size, bytes, size);
        m_size += size;
    }
    return true;
}

bool RtpDepacketizer::Grow(std::size_t least) {
    constexpr std::size_t kFirst = 64 * 1024;
    if (least > m_maxBytes) {
        return false;
    }
    const std::size_t capacity = std::min(m_maxBytes, std::max({least, kFirst, 2 * m_capacity}));
    std::unique_ptr<std::uint8_t[]> larger(new (std::nothrow) std::uint8_t[capacity]);
    if (larger == nullptr) {
        return false;
    }
    if (m_size != 0) {
        std::memcpy(larger.get(), m_buffer.get(), m_size);
    }
    m_buffer = std::move(larger);
    m_capacity = capacity;
    return true;
}

void RtpDepacketizer::Damage(RtpDamage damage) {
    if (m_unit.damage == RtpDamage::None) {
        m_unit.damage = damage;
    }
}

void RtpDepacketizer::HandOver() {
    m_open = false;
    m_unit.data = m_buffer.get();
    m_unit.size = m_size;
    ++m_statistics.accessUnits;
    m_statistics.damaged += m_unit.IsDamaged();
    m_statistics.bytes += m_size;
    m_sink.OnAccessUnit(m_unit);
}

}  // namespace gvx
