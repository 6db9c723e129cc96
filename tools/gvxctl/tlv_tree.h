#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// Metadata messages from outside: items of a 4-byte type, a 4-byte length and a value, little-endian, in three layers.
// A message is one item of layer one. Nothing is read beyond what arrived. Any thread.
namespace gvxctl {

constexpr std::size_t kTlvHeadBytes = 8;

// Types that the tool looks for; the names of all others are in the table behind TlvTypeName.
constexpr std::uint32_t kTlvMetadata = 0x4154454D;   // "META"
constexpr std::uint32_t kTlvHeartbeat = 0x54425448;  // "HTBT"

// One item. Its value points into the message that was taken apart.
struct TlvItem {
    std::uint32_t type = 0;
    const std::uint8_t* value = nullptr;
    std::size_t length = 0;
    std::vector<TlvItem> items;  // of layers one and two
};

enum class MetadataKind { Plate, Vehicle, Face, Heartbeat, Other };

// The first head of a message. False when the bytes are too few or of no type of layer one.
bool ReadMessageHead(const std::uint8_t* data, std::size_t length, std::size_t& messageBytes);

// Takes a whole message apart. False with a reason when a length leads beyond its layer, bytes are left over, the
// message is not one item of layer one, or it has more than 4096 items.
bool ParseMetadata(const std::uint8_t* data, std::size_t length, TlvItem& message, std::string& reason);

MetadataKind KindOf(const TlvItem& message);
const char* MetadataKindName(MetadataKind kind);

// The type's name, or its number in hexadecimal.
std::string TlvTypeName(std::uint32_t type);
bool IsPicture(std::uint32_t type);

// The value of a layer-three item for people: a number, a text in quotes, a rectangle, or the size of a picture.
std::string DescribeValue(const TlvItem& item);

}  // namespace gvxctl
