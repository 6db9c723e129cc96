#include "gvxctl/tlv_tree.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

namespace gvxctl {
namespace {

constexpr std::size_t kMaxItems = 4096;
constexpr int kLayers = 3;

struct TypeName {
    std::uint32_t type;
    const char* name;
};

constexpr std::uint32_t kCommon = 1;
constexpr std::uint32_t kRule = 3;

constexpr TypeName kLayerOneAndTwo[] = {{kTlvMetadata, "METADATA_TYPE"},
                                        {kTlvHeartbeat, "HEART_BEART_TYPE"},
                                        {kCommon, "COMMON"},
                                        {2, "TARGET"},
                                        {kRule, "RULE"}};

constexpr std::uint32_t kPlateChar = 0x0A000008;
constexpr std::uint32_t kLaneId = 0x07000002;
constexpr std::uint32_t kFacePicTime = 0x08000015;

constexpr TypeName kLayerThree[] = {{0x04000013, "FACE_SCORE"},
                                    {0x04000014, "FACE_ANGLE"},
                                    {0x06000030, "OBJ_STATUS"},
                                    {0x06000031, "OBJ_TYPE"},
                                    {kLaneId, "LANE_ID"},
                                    {0x07000003, "VEHICLE_TYPE_TV"},
                                    {0x07000004, "VEHICLE_COLOR"},
                                    {0x07000006, "PLATE_TYPE"},
                                    {0x07000016, "FACE_ID"},
                                    {0x07000018, "FACE_PANOPIC_SIZE"},
                                    {0x07000019, "FACE_FACEPIC_SIZE"},
                                    {0x07000032, "OBJ_ID"},
                                    {0x07000040, "RULE_TYPE"},
                                    {0x07000041, "RULE_LINE_DIR"},
                                    {0x07000061, "PLATE_CONFIDENCE"},
                                    {0x07000062, "PLATE_COLOR"},
                                    {0x07000063, "PLATE_MOVE_DIR"},
                                    {0x07000067, "PLATE_SNAPSHOT_TYPE"},
                                    {0x07000068, "PIC_SNAPSHOT_TIME"},
                                    {0x07000075, "VEHICLE_SPEED"},
                                    {kFacePicTime, "FACE_PIC_TIME"},
                                    {0x09000001, "PTS"},
                                    {0x09000082, "GLOBAL_OBJID"},
                                    {kPlateChar, "PLATE_CHAR"},
                                    {0x0A000009, "PLATE_PIC"},
                                    {0x0A00000A, "PANORAMA_PIC"},
                                    {0x0A000012, "FACE_PIC"},
                                    {0x0A000017, "FACE_PANORAMA"},
                                    {0x0A000069, "VEHICLE_PIC"},
                                    {0x0B000005, "VEHICLE_POS"},
                                    {0x0B000007, "PLATE_POS"},
                                    {0x0B000011, "FACE_POS"},
                                    {0x0B000020, "VEHICLE_POS_ABS"},
                                    {0x0B000021, "VEHICLE_POS_COM"},
                                    {0x0B000026, "PLATE_POS_ABS"},
                                    {0x0B000027, "PLATE_POS_COM"},
                                    {0x0B000033, "OBJ_POS"},
                                    {0x0B000064, "PLATE_CHAR_POS"},
                                    {0x0B000065, "PLATE_FACE_POS"},
                                    {0x0C000034, "OBJ_SPEED"},
                                    {0x0D000042, "RULE_LINE_POS"},
                                    {0x0E000043, "RULE_AREA_POS"},
                                    {0x0F000035, "OBJ_UPHALF_COLOR"},
                                    {0x0F000036, "OBJ_DOWNHALF_COLOR"}};

// The top byte of a type of layer three tells what its value is.
enum ValueKind : std::uint32_t { kBytes = 0x0A, kRectangle = 0x0B, kLastNumber = 0x09, kFirstNumber = 0x04 };

std::uint32_t ValueKindOf(std::uint32_t type) {
    return type >> 24;
}

std::uint32_t Little32(const std::uint8_t* data) {
    return static_cast<std::uint32_t>(data[0]) | static_cast<std::uint32_t>(data[1]) << 8 |
           static_cast<std::uint32_t>(data[2]) << 16 | static_cast<std::uint32_t>(data[3]) << 24;
}

unsigned int Little16(const std::uint8_t* data) {
    return static_cast<unsigned int>(data[0]) | static_cast<unsigned int>(data[1]) << 8;
}

const char* FindName(std::uint32_t type) {
    for (const TypeName& row : kLayerOneAndTwo) {
        if (row.type == type) {
            return row.name;
        }
    }
    const auto* const found = std::find_if(std::begin(kLayerThree), std::end(kLayerThree),
                                           [type](const TypeName& row) { return row.type == type; });
    return found == std::end(kLayerThree) ? nullptr : found->name;
}

// Takes the items of one layer apart, and those within them.
class Parser {
public:
    bool ParseLayer(const std::uint8_t* data, std::size_t length, int layer, std::vector<TlvItem>& items);
    const std::string& Reason() const { return m_reason; }

private:
    bool ParseItem(const std::uint8_t* data, std::size_t left, TlvItem& item);
    bool Fail(const std::string& reason) {
        m_reason = reason;
        return false;
    }

    std::size_t m_count = 0;
    std::string m_reason;
};

bool Parser::ParseItem(const std::uint8_t* data, std::size_t left, TlvItem& item) {
    if (++m_count > kMaxItems) {
        return Fail("more than " + std::to_string(kMaxItems) + " items");
    }
    if (left < kTlvHeadBytes) {
        return Fail(std::to_string(left) + " bytes are left over, too few for an item");
    }
    item.type = Little32(data);
    item.length = Little32(data + 4);
    item.value = data + kTlvHeadBytes;
    if (item.length > left - kTlvHeadBytes) {
        return Fail(TlvTypeName(item.type) + " has " + std::to_string(item.length) + " bytes, and only " +
                    std::to_string(left - kTlvHeadBytes) + " are there");
    }
    return true;
}

bool Parser::ParseLayer(const std::uint8_t* data, std::size_t length, int layer, std::vector<TlvItem>& items) {
    for (std::size_t at = 0; at < length;) {
        TlvItem item;
        if (!ParseItem(data + at, length - at, item)) {
            return false;
        }
        at += kTlvHeadBytes + item.length;
        const bool isLayer = layer < kLayers && item.type >= kCommon && item.type <= kRule;
        if (isLayer && !ParseLayer(item.value, item.length, layer + 1, item.items)) {
            return false;
        }
        items.push_back(std::move(item));
    }
    return true;
}

bool HasLeaf(const TlvItem& message, std::uint32_t type) {
    for (const TlvItem& layer : message.items) {
        const auto found = std::find_if(layer.items.begin(), layer.items.end(),
                                        [type](const TlvItem& leaf) { return leaf.type == type && leaf.length != 0; });
        if (found != layer.items.end()) {
            return true;
        }
    }
    return false;
}

std::string Hexadecimal(const TlvItem& item) {
    constexpr std::size_t kShown = 16;
    std::string text = std::to_string(item.length) + " bytes";
    char digits[4];
    for (std::size_t i = 0; i < std::min(item.length, kShown); ++i) {
        std::snprintf(digits, sizeof digits, " %02x", item.value[i]);
        text += digits;
    }
    return item.length > kShown ? text + " ..." : text;
}

// Characters that are no plain ASCII as \xNN, so that no terminal takes them for a command.
std::string Quoted(const TlvItem& item) {
    constexpr std::size_t kShown = 256;
    std::string text = "\"";
    for (std::size_t i = 0; i < std::min(item.length, kShown); ++i) {
        const std::uint8_t c = item.value[i];
        char escaped[8];
        if (c >= 0x20 && c < 0x7F && c != '"' && c != '\\') {
            text += static_cast<char>(c);
        } else {
            std::snprintf(escaped, sizeof escaped, "\\x%02x", c);
            text += escaped;
        }
    }
    return text + (item.length > kShown ? "\"..." : "\"");
}

std::string Number(const TlvItem& item) {
    switch (item.length) {
        case 1:
            return std::to_string(item.value[0]);
        case 2:
            return std::to_string(static_cast<std::int16_t>(Little16(item.value)));
        case 4:
            return std::to_string(static_cast<std::int32_t>(Little32(item.value)));
        case 8:
            return std::to_string(static_cast<std::uint64_t>(Little32(item.value + 4)) << 32 | Little32(item.value));
        default:
            return Hexadecimal(item);
    }
}

std::string Rectangle(const TlvItem& item) {
    return "x " + std::to_string(Little16(item.value)) + ", y " + std::to_string(Little16(item.value + 2)) + ", " +
           std::to_string(Little16(item.value + 4)) + " x " + std::to_string(Little16(item.value + 6));
}

}  // namespace

bool ReadMessageHead(const std::uint8_t* data, std::size_t length, std::size_t& messageBytes) {
    if (length < kTlvHeadBytes || (Little32(data) != kTlvMetadata && Little32(data) != kTlvHeartbeat)) {
        return false;
    }
    messageBytes = kTlvHeadBytes + Little32(data + 4);
    return true;
}

bool ParseMetadata(const std::uint8_t* data, std::size_t length, TlvItem& message, std::string& reason) {
    std::size_t messageBytes = 0;
    if (!ReadMessageHead(data, length, messageBytes) || messageBytes != length) {
        reason = "it is not one item of layer one";
        return false;
    }
    message = TlvItem{Little32(data), data + kTlvHeadBytes, length - kTlvHeadBytes, {}};
    Parser parser;
    if (message.type == kTlvMetadata && !parser.ParseLayer(message.value, message.length, 2, message.items)) {
        reason = parser.Reason();
        return false;
    }
    return true;
}

MetadataKind KindOf(const TlvItem& message) {
    if (message.type == kTlvHeartbeat) {
        return MetadataKind::Heartbeat;
    }
    if (HasLeaf(message, kFacePicTime)) {
        return MetadataKind::Face;
    }
    if (HasLeaf(message, kPlateChar)) {
        return MetadataKind::Plate;
    }
    return HasLeaf(message, kLaneId) ? MetadataKind::Vehicle : MetadataKind::Other;
}

const char* MetadataKindName(MetadataKind kind) {
    static const char* const names[] = {"plate", "vehicle", "face", "heartbeat", "other"};
    return names[static_cast<std::size_t>(kind)];
}

std::string TlvTypeName(std::uint32_t type) {
    if (const char* name = FindName(type)) {
        return name;
    }
    char digits[16];
    std::snprintf(digits, sizeof digits, "0x%08X", type);
    return digits;
}

bool IsPicture(std::uint32_t type) {
    return ValueKindOf(type) == kBytes && type != kPlateChar;
}

std::string DescribeValue(const TlvItem& item) {
    const std::uint32_t kind = ValueKindOf(item.type);
    if (item.type == kPlateChar) {
        return Quoted(item);
    }
    if (IsPicture(item.type)) {
        return std::to_string(item.length) + " bytes";
    }
    if (kind >= kFirstNumber && kind <= kLastNumber) {
        return Number(item);
    }
    return kind == kRectangle && item.length == 8 ? Rectangle(item) : Hexadecimal(item);
}

}  // namespace gvxctl
