#include "gateway/admin/nss_trace.h"

#include "base/redact.h"
#include "nss/nss_msg.h"

#include <algorithm>
#include <cstring>
#include <string_view>
#include <vector>

#include <arpa/inet.h>

namespace gvx {

namespace {

constexpr std::size_t kTelling = 4;  // characters of a code that hardly stand for anything else

bool IsOneOf(std::string_view characters, char c) {
    return characters.find(c) != std::string_view::npos;
}

// Whether the text from begin to end is the whole of a value: of an XML element, of a JSON text, or of a field of a
// structure, which zeros fill. A short code counts only as the value of a name that ends in "Code".
bool IsWholeValue(std::string_view body, std::size_t begin, std::size_t end) {
    const char before = begin == 0 ? '\0' : body[begin - 1];
    const char after = end == body.size() ? '\0' : body[end];
    const bool telling = end - begin >= kTelling;
    if (after == '\0' && before != '>' && before != '"') {
        return telling && (begin == 0 || static_cast<unsigned char>(before) < ' ');
    }
    if (!(before == '>' && after == '<') && !(before == '"' && after == '"')) {
        return false;
    }
    std::size_t name = begin;
    while (name > 0 && IsOneOf(">\": ", body[name - 1])) {
        --name;
    }
    return telling || (name >= 4 && body.substr(name - 4, 4) == "Code");
}

bool IsText(std::string_view bytes) {
    return std::none_of(bytes.begin(), bytes.end(),
                        [](unsigned char c) { return (c < ' ' && c != '\r' && c != '\n' && c != '\t') || c == 0x7F; });
}

struct Item {
    std::uint16_t tag = 0;
    std::string_view value;
};

// False when the body is no row of items.
bool CutItems(std::string_view body, std::vector<Item>& items) {
    while (!body.empty()) {
        std::uint16_t tag = 0;
        std::uint32_t length = 0;
        if (body.size() < kNssTlvHeadBytes) {
            return false;
        }
        std::memcpy(&tag, body.data(), sizeof(tag));
        std::memcpy(&length, body.data() + sizeof(tag), sizeof(length));
        tag = ntohs(tag);
        length = ntohl(length);
        if (tag < NSS_TAG_XML_CONTENT || tag >= NSS_TAG_INVALID || length > body.size() - kNssTlvHeadBytes) {
            return false;
        }
        items.push_back({tag, body.substr(kNssTlvHeadBytes, length)});
        body.remove_prefix(kNssTlvHeadBytes + length);
    }
    return true;
}

void AppendItem(const Item& item, std::string& body, std::string& note) {
    std::string value;
    if (IsText(item.value)) {
        value = RedactedText(item.value);
        note = value != item.value ? "Secrets were taken out of the body." : note;
    } else {
        value.assign(item.value.size(), '\0');
        note = "What is no text was replaced by zeros.";
    }
    const std::uint16_t tag = htons(item.tag);
    const std::uint32_t length = htonl(static_cast<std::uint32_t>(value.size()));
    body.append(reinterpret_cast<const char*>(&tag), sizeof(tag));
    body.append(reinterpret_cast<const char*>(&length), sizeof(length));
    body += value;
}

}  // namespace

bool ConcernsDevice(const char* frame, std::size_t size, const std::string& device) {
    if (size <= kNssHeaderBytes || device.empty()) {
        return false;
    }
    const std::string_view body(frame + kNssHeaderBytes, size - kNssHeaderBytes);
    for (std::size_t at = body.find(device); at != std::string_view::npos; at = body.find(device, at + 1)) {
        if (IsWholeValue(body, at, at + device.size())) {
            return true;
        }
    }
    return false;
}

std::string TransactionOfFrame(const char* frame, std::size_t size) {
    if (size < kNssHeaderBytes) {
        return {};
    }
    const char* const text = frame + offsetof(NssMsgHeader, szTransactionNo);
    return {text, ::strnlen(text, sizeof(NssMsgHeader::szTransactionNo))};
}

std::string FrameWithoutSecrets(const char* frame, std::size_t size, std::string& note) {
    note.clear();
    std::string clean(frame, std::min(size, kNssHeaderBytes));
    if (size <= kNssHeaderBytes) {
        return clean;
    }
    const std::string_view body(frame + kNssHeaderBytes, size - kNssHeaderBytes);
    if (body.size() > kMostFrameBody) {
        note = "The body was left out for its size.";
        return clean;
    }
    std::vector<Item> items;
    std::string cleanBody;
    if (CutItems(body, items)) {
        for (const Item& item : items) {
            AppendItem(item, cleanBody, note);
        }
    } else {
        cleanBody.assign(body.size(), '\0');
        note = "The body is a structure, replaced by zeros.";
    }
    const std::uint32_t length = htonl(static_cast<std::uint32_t>(kNssHeaderBytes + cleanBody.size()));
    std::memcpy(clean.data() + offsetof(NssMsgHeader, uiPacketLength), &length, sizeof(length));
    return clean + cleanBody;
}

}  // namespace gvx
