#include "gateway/admin/pcapng.h"

#include <algorithm>
#include <cstring>

namespace gvx {

namespace {

// Blocks and options, in the byte order of this host, as the first block tells.
constexpr std::uint32_t kSectionBlock = 0x0A0D0D0A;
constexpr std::uint32_t kByteOrderMagic = 0x1A2B3C4D;
constexpr std::uint32_t kInterfaceBlock = 1;
constexpr std::uint32_t kStatisticsBlock = 5;
constexpr std::uint32_t kPacketBlock = 6;
constexpr std::uint16_t kLinkUpperPdu = 252;
constexpr std::uint16_t kOptionComment = 1;
constexpr std::uint16_t kOptionInterfaceName = 2;
constexpr std::uint16_t kOptionApplication = 4;
constexpr std::uint16_t kOptionFlags = 2;
constexpr std::uint16_t kOptionReceived = 4;
constexpr std::uint16_t kOptionDropped = 5;
constexpr std::uint32_t kInbound = 1;
constexpr std::uint32_t kOutbound = 2;

// Tags in front of a message, big-endian.
constexpr std::uint16_t kTagDissector = 12;
constexpr std::uint16_t kTagIpv4From = 20;
constexpr std::uint16_t kTagIpv4To = 21;
constexpr std::uint16_t kTagIpv6From = 22;
constexpr std::uint16_t kTagIpv6To = 23;
constexpr std::uint16_t kTagPortType = 24;
constexpr std::uint16_t kTagFromPort = 25;
constexpr std::uint16_t kTagToPort = 26;
constexpr std::uint32_t kPortTypeTcp = 2;
constexpr std::uint32_t kPortTypeUdp = 3;

constexpr std::size_t kBlockOverhead = 12;  // type, and the length in front and behind
constexpr std::size_t kPacketHead = 20;
constexpr std::size_t kHead = 4;  // of a tag or an option

std::size_t Padded(std::size_t size) {
    return (size + 3) & ~std::size_t{3};
}

bool IsKnown(const GvxTraceEnd& end) {
    return std::any_of(end.address.begin(), end.address.end(), [](std::uint8_t byte) { return byte != 0; });
}

std::size_t AddressBytes(const GvxTraceEnd& end) {
    return end.bIpv6 ? 16 : 4;
}

// Adds to a vector or a string.
template <typename Bytes>
class Writer {
public:
    explicit Writer(Bytes& bytes) : m_bytes(bytes) {}

    void Raw(const void* data, std::size_t size) {
        const auto* const from = static_cast<const char*>(data);
        m_bytes.insert(m_bytes.end(), from, from + size);
    }
    template <typename Number>
    void Put(Number number) {
        Raw(&number, sizeof(number));
    }
    void Pad(std::size_t size) { m_bytes.insert(m_bytes.end(), Padded(size) - size, '\0'); }

    void Option(std::uint16_t code, const void* data, std::size_t size) {
        Put(code);
        Put(static_cast<std::uint16_t>(size));
        Raw(data, size);
        Pad(size);
    }
    void Text(std::uint16_t code, std::string_view text) { Option(code, text.data(), text.size()); }
    void EndOptions() { Put(std::uint32_t{0}); }

    void Tag(std::uint16_t tag, const void* data, std::size_t size) {
        BigEndian16(tag);
        BigEndian16(static_cast<std::uint16_t>(Padded(size)));
        Raw(data, size);
        Pad(size);
    }
    void NumberTag(std::uint16_t tag, std::uint32_t number) {
        BigEndian16(tag);
        BigEndian16(4);
        BigEndian16(static_cast<std::uint16_t>(number >> 16));
        BigEndian16(static_cast<std::uint16_t>(number));
    }

private:
    void BigEndian16(std::uint16_t number) {
        const char bytes[] = {static_cast<char>(number >> 8), static_cast<char>(number)};
        Raw(bytes, sizeof(bytes));
    }

    Bytes& m_bytes;
};

std::size_t TagBytes(const PcapngPacket& packet) {
    std::size_t size = kHead + Padded(std::strlen(packet.dissector)) + (kHead + 4) + kHead;
    for (const GvxTraceEnd* end : {&packet.from, &packet.to}) {
        size += IsKnown(*end) ? kHead + AddressBytes(*end) + kHead + 4 : 0;
    }
    return size;
}

template <typename Bytes>
void PutEnd(Writer<Bytes>& out, const GvxTraceEnd& end, std::uint16_t v4, std::uint16_t v6, std::uint16_t port) {
    if (IsKnown(end)) {
        out.Tag(end.bIpv6 ? v6 : v4, end.address.data(), AddressBytes(end));
        out.NumberTag(port, end.usPort);
    }
}

// A comment is no longer than its option can say.
std::string_view Comment(std::string_view text) {
    return text.substr(0, 1024);
}

std::string Block(std::uint32_t type, const std::string& body) {
    std::string block;
    Writer<std::string> out(block);
    const auto size = static_cast<std::uint32_t>(body.size() + kBlockOverhead);
    out.Put(type);
    out.Put(size);
    out.Raw(body.data(), body.size());
    out.Put(size);
    return block;
}

}  // namespace

std::string PcapngHead(const std::string& interface, const std::string& application, const std::string& comment) {
    std::string section;
    Writer<std::string> head(section);
    head.Put(kByteOrderMagic);
    head.Put(std::uint16_t{1});
    head.Put(std::uint16_t{0});
    head.Put(std::int64_t{-1});  // the section's length is not told
    head.Text(kOptionApplication, application);
    head.Text(kOptionComment, Comment(comment));
    head.EndOptions();
    std::string device;
    Writer<std::string> out(device);
    out.Put(kLinkUpperPdu);
    out.Put(std::uint16_t{0});
    out.Put(std::uint32_t{0});  // packets have no common limit
    out.Text(kOptionInterfaceName, interface);
    out.EndOptions();
    return Block(kSectionBlock, section) + Block(kInterfaceBlock, device);
}

std::size_t PcapngPacketBytes(const PcapngPacket& packet) {
    const std::size_t comment = Comment(packet.comment).size();
    return kBlockOverhead + kPacketHead + Padded(TagBytes(packet) + packet.kept) +
           (comment == 0 ? 0 : kHead + Padded(comment)) + (kHead + 4) + kHead;
}

void AppendPcapngPacket(const PcapngPacket& packet, std::vector<char>& bytes) {
    Writer<std::vector<char>> out(bytes);
    const auto size = static_cast<std::uint32_t>(PcapngPacketBytes(packet));
    const std::size_t tags = TagBytes(packet);
    const auto time = static_cast<std::uint64_t>(packet.wallUs);
    out.Put(kPacketBlock);
    out.Put(size);
    out.Put(std::uint32_t{0});
    out.Put(static_cast<std::uint32_t>(time >> 32));
    out.Put(static_cast<std::uint32_t>(time));
    out.Put(static_cast<std::uint32_t>(tags + packet.kept));
    out.Put(static_cast<std::uint32_t>(tags + std::clamp<std::size_t>(packet.whole, packet.kept, UINT32_MAX - tags)));
    out.Tag(kTagDissector, packet.dissector, std::strlen(packet.dissector));
    PutEnd(out, packet.from, kTagIpv4From, kTagIpv6From, kTagFromPort);
    PutEnd(out, packet.to, kTagIpv4To, kTagIpv6To, kTagToPort);
    out.NumberTag(kTagPortType, packet.udp ? kPortTypeUdp : kPortTypeTcp);
    out.Put(std::uint32_t{0});  // no further tag
    out.Raw(packet.data, packet.kept);
    out.Pad(packet.kept);
    if (!packet.comment.empty()) {
        out.Text(kOptionComment, Comment(packet.comment));
    }
    const std::uint32_t flags = packet.outbound ? kOutbound : kInbound;
    out.Option(kOptionFlags, &flags, sizeof(flags));
    out.EndOptions();
    out.Put(size);
}

std::string PcapngEnd(std::int64_t wallUs, std::uint64_t came, std::uint64_t lost, const std::string& comment) {
    std::string body;
    Writer<std::string> out(body);
    const auto time = static_cast<std::uint64_t>(wallUs);
    out.Put(std::uint32_t{0});
    out.Put(static_cast<std::uint32_t>(time >> 32));
    out.Put(static_cast<std::uint32_t>(time));
    out.Option(kOptionReceived, &came, sizeof(came));
    out.Option(kOptionDropped, &lost, sizeof(lost));
    out.Text(kOptionComment, Comment(comment));
    out.EndOptions();
    return Block(kStatisticsBlock, body);
}

std::size_t PcapngFitting(const std::vector<char>& bytes, std::size_t room) {
    std::size_t fitting = 0;
    while (fitting < bytes.size()) {
        std::uint32_t size = 0;
        std::memcpy(&size, bytes.data() + fitting + 4, sizeof(size));
        if (fitting + size > room) {
            break;
        }
        fitting += size;
    }
    return fitting;
}

}  // namespace gvx
