#include "gvx_common/rtp/rtcp_packet.h"

#include "gvx_common/rtp/rtp_view.h"

#include <algorithm>
#include <cstring>

namespace gvx {

namespace {

constexpr std::size_t kHead = 8;  // common head and the SSRC behind it
constexpr std::size_t kSenderInfo = 20;
constexpr std::size_t kReportBlock = 24;
constexpr unsigned int kPictureLossFormat = 1;
constexpr std::uint8_t kCnameItem = 1;
constexpr std::int64_t kNtpSecondsAt1970 = 2208988800;

std::uint64_t LoadBe64(const std::uint8_t* at) {
    return static_cast<std::uint64_t>(LoadBe32(at)) << 32 | LoadBe32(at + 4);
}

RtcpReportBlock LoadBlock(const std::uint8_t* at) {
    RtcpReportBlock block;
    block.ssrc = LoadBe32(at);
    block.fractionLost = at[4];
    const std::uint32_t lost = LoadBe32(at + 4) & 0xFFFFFF;
    block.cumulativeLost = static_cast<std::int32_t>(lost) - ((lost & 0x800000) != 0 ? 0x1000000 : 0);
    block.highestSeq = LoadBe32(at + 8);
    block.jitter = LoadBe32(at + 12);
    block.lastSenderReport = LoadBe32(at + 16);
    block.delaySinceLast = LoadBe32(at + 20);
    return block;
}

void StoreBlock(std::uint8_t* at, const RtcpReportBlock& block) {
    StoreBe32(at, block.ssrc);
    // 24 bits, at the ends of their range where more was lost (A.3).
    const std::int32_t lost = std::clamp(block.cumulativeLost, -0x800000, 0x7FFFFF);
    StoreBe32(at + 4,
              static_cast<std::uint32_t>(block.fractionLost) << 24 | (static_cast<std::uint32_t>(lost) & 0xFFFFFF));
    StoreBe32(at + 8, block.highestSeq);
    StoreBe32(at + 12, block.jitter);
    StoreBe32(at + 16, block.lastSenderReport);
    StoreBe32(at + 20, block.delaySinceLast);
}

struct Part {
    const std::uint8_t* data;
    std::size_t size;  // padding taken off
    std::uint8_t type;
    unsigned int count;
};

// The packet at the start of the rest; its whole length, or 0 when it contradicts itself.
std::size_t ReadPart(const std::uint8_t* data, std::size_t size, Part& part) {
    if (size < 4 || data[0] >> 6 != 2) {
        return 0;
    }
    const std::size_t length = 4u + 4u * LoadBe16(data + 2);
    if (length > size) {
        return 0;
    }
    std::size_t padding = 0;
    if ((data[0] & 0x20) != 0) {
        padding = data[length - 1];
        if (length != size || padding == 0 || padding % 4 != 0 || padding > length - 4) {
            return 0;
        }
    }
    part = Part{data, length - padding, data[1], data[0] & 0x1Fu};
    std::size_t least = 4;
    if (part.type == RTCP_SENDER_REPORT) {
        least = kHead + kSenderInfo + part.count * kReportBlock;
    } else if (part.type == RTCP_RECEIVER_REPORT) {
        least = kHead + part.count * kReportBlock;
    } else if (part.type == RTCP_BYE) {
        least = 4 + 4 * part.count;
    } else if (part.type == RTCP_TRANSPORT_FEEDBACK || part.type == RTCP_PAYLOAD_FEEDBACK) {
        least = kHead + 4;
    }
    return part.size >= least ? length : 0;
}

// Chunks of an SSRC and items, each chunk padded with zeros to four bytes (6.5). Ends quietly at what does not fit.
void VisitDescriptions(const Part& part, IRtcpVisitor& visitor) {
    std::size_t at = 4;
    for (unsigned int chunk = 0; chunk < part.count && at + 4 <= part.size; ++chunk) {
        const std::uint32_t ssrc = LoadBe32(part.data + at);
        at += 4;
        while (at < part.size && part.data[at] != 0) {
            if (at + 2 > part.size || at + 2 + part.data[at + 1] > part.size) {
                return;
            }
            if (part.data[at] == kCnameItem) {
                visitor.OnCname(ssrc, reinterpret_cast<const char*>(part.data + at + 2), part.data[at + 1]);
            }
            at += 2u + part.data[at + 1];
        }
        at = (at + 4) / 4 * 4;  // one zero at least
    }
}

void VisitPart(const Part& part, IRtcpVisitor& visitor) {
    const std::uint8_t* data = part.data;
    std::size_t blocksAt = kHead;
    switch (part.type) {
        case RTCP_SENDER_REPORT: {
            RtcpSenderInfo info;
            info.ssrc = LoadBe32(data + 4);
            info.ntpTime = LoadBe64(data + 8);
            info.rtpTime = LoadBe32(data + 16);
            info.packets = LoadBe32(data + 20);
            info.octets = LoadBe32(data + 24);
            visitor.OnSenderReport(info);
            blocksAt += kSenderInfo;
            [[fallthrough]];
        }
        case RTCP_RECEIVER_REPORT:
            for (unsigned int i = 0; i < part.count; ++i) {
                visitor.OnReportBlock(LoadBe32(data + 4), LoadBlock(data + blocksAt + i * kReportBlock));
            }
            break;
        case RTCP_SOURCE_DESCRIPTION:
            VisitDescriptions(part, visitor);
            break;
        case RTCP_BYE:
            for (unsigned int i = 0; i < part.count; ++i) {
                visitor.OnBye(LoadBe32(data + 4 + 4 * i));
            }
            break;
        case RTCP_PAYLOAD_FEEDBACK:
            if (part.count == kPictureLossFormat) {
                visitor.OnPictureLoss(LoadBe32(data + 4), LoadBe32(data + 8));
            }
            break;
        default:
            break;
    }
}

}  // namespace

std::uint64_t NtpOfWallUs(std::int64_t wallUs) {
    const auto us = static_cast<std::uint64_t>(wallUs + kNtpSecondsAt1970 * 1000000);
    return us / 1000000 << 32 | ((us % 1000000 << 32) + 500000) / 1000000;
}

std::int64_t WallUsOfNtp(std::uint64_t ntpTime) {
    const auto seconds = static_cast<std::int64_t>(ntpTime >> 32) - kNtpSecondsAt1970;
    return seconds * 1000000 + static_cast<std::int64_t>(((ntpTime & 0xFFFFFFFF) * 1000000 + 0x80000000) >> 32);
}

bool ParseRtcp(const std::uint8_t* data, std::size_t size, IRtcpVisitor& visitor) {
    Part part{};
    if (data == nullptr || size == 0) {
        return false;
    }
    for (std::size_t at = 0; at != size;) {
        const std::size_t length = ReadPart(data + at, size - at, part);
        const bool mayLead = part.type == RTCP_SENDER_REPORT || part.type == RTCP_RECEIVER_REPORT ||
                             part.type == RTCP_TRANSPORT_FEEDBACK || part.type == RTCP_PAYLOAD_FEEDBACK;
        if (length == 0 || (at == 0 && !mayLead)) {
            return false;
        }
        at += length;
    }
    for (std::size_t at = 0; at != size;) {
        at += ReadPart(data + at, size - at, part);
        VisitPart(part, visitor);
    }
    return true;
}

// Room for a packet of so many bytes, its common head written; null when there is none.
std::uint8_t* RtcpBuilder::Begin(std::uint8_t type, unsigned int count, std::size_t size) {
    if (size > kRoom - m_size) {
        return nullptr;
    }
    std::uint8_t* const at = m_bytes.data() + m_size;
    std::memset(at, 0, size);
    at[0] = static_cast<std::uint8_t>(0x80 | count);
    at[1] = type;
    StoreBe16(at + 2, static_cast<std::uint32_t>(size / 4 - 1));
    m_size += size;
    return at;
}

bool RtcpBuilder::AddSenderReport(const RtcpSenderInfo& info, const RtcpReportBlock* block) {
    const std::size_t blocks = block != nullptr ? kReportBlock : 0;
    std::uint8_t* const at = Begin(RTCP_SENDER_REPORT, block != nullptr, kHead + kSenderInfo + blocks);
    if (at == nullptr) {
        return false;
    }
    StoreBe32(at + 4, info.ssrc);
    StoreBe32(at + 8, static_cast<std::uint32_t>(info.ntpTime >> 32));
    StoreBe32(at + 12, static_cast<std::uint32_t>(info.ntpTime));
    StoreBe32(at + 16, info.rtpTime);
    StoreBe32(at + 20, info.packets);
    StoreBe32(at + 24, info.octets);
    if (block != nullptr) {
        StoreBlock(at + kHead + kSenderInfo, *block);
    }
    return true;
}

bool RtcpBuilder::AddReceiverReport(std::uint32_t ssrc, const RtcpReportBlock* block) {
    std::uint8_t* const at =
        Begin(RTCP_RECEIVER_REPORT, block != nullptr, kHead + (block != nullptr ? kReportBlock : 0));
    if (at == nullptr) {
        return false;
    }
    StoreBe32(at + 4, ssrc);
    if (block != nullptr) {
        StoreBlock(at + kHead, *block);
    }
    return true;
}

bool RtcpBuilder::AddCname(std::uint32_t ssrc, const std::string& name) {
    if (name.size() > 255) {
        return false;
    }
    // A zero ends the items, and the chunk is padded.
    std::uint8_t* const at = Begin(RTCP_SOURCE_DESCRIPTION, 1, kHead + (2 + name.size() + 4) / 4 * 4);
    if (at == nullptr) {
        return false;
    }
    StoreBe32(at + 4, ssrc);
    at[8] = kCnameItem;
    at[9] = static_cast<std::uint8_t>(name.size());
    std::copy(name.begin(), name.end(), at + 10);
    return true;
}

bool RtcpBuilder::AddBye(std::uint32_t ssrc) {
    std::uint8_t* const at = Begin(RTCP_BYE, 1, kHead);
    if (at != nullptr) {
        StoreBe32(at + 4, ssrc);
    }
    return at != nullptr;
}

bool RtcpBuilder::AddPictureLoss(std::uint32_t sender, std::uint32_t media) {
    std::uint8_t* const at = Begin(RTCP_PAYLOAD_FEEDBACK, kPictureLossFormat, kHead + 4);
    if (at != nullptr) {
        StoreBe32(at + 4, sender);
        StoreBe32(at + 8, media);
    }
    return at != nullptr;
}

}  // namespace gvx
