// The body of a request in each of its three forms (XML item, JSON item, raw structure), read as the gateway reads it.
// The first byte of the input says what stands ahead of the rest: the head of a frame, and the head of an item of which
// tag and length. An input that begins otherwise is a frame as it stands.

#include "base/cbb_xml.h"
#include "base/json_io.h"
#include "bp/cmd.h"
#include "bp/message_block_ptr.h"
#include "gateway/messages/request_body.h"
#include "gvx_common/forms/request_table.h"
#include "nss/nss_msg.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include <arpa/inet.h>

namespace {

enum Form : std::uint8_t { kXml = 'X', kJson = 'J', kStructure = 'S' };

void Require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

template <typename Message>
BP::MessageBlockPtr Encoded(Message& message) {
    BP::MessageBlockPtr block(new ACE_Message_Block);
    Require(message.encode(block.get()) == 0);
    return block;
}

BP::MessageBlockPtr RawFrame(const std::string& bytes) {
    BP::MessageBlockPtr block = BP::MakeMessageBlock(bytes.size());
    Require(block != nullptr && block->copy(bytes.data(), bytes.size()) == 0);
    return block;
}

BP::MessageBlockPtr FrameOf(std::uint8_t form, const std::string& rest) {
    const auto length = static_cast<unsigned int>(rest.size());
    if (form == kXml) {
        CNssXMLMsg message(0x0109, 7, "trans", 0, 3);
        Require(message.SetXML(rest.data(), length) == 0);
        return Encoded(message);
    }
    if (form == kJson) {
        CNssMsgBody message(0x0501, 7, "trans", 0, 3, NSS_TAG_JSON_CONTENT);
        Require(message.SetValue(rest.data(), length) == 0);
        return Encoded(message);
    }
    if (form == kStructure) {
        NssMsgHeader head = CNssMsgBase(0x0C76, 7, "trans", 0, 3).GetHeader();
        head.uiPacketLength = static_cast<std::uint32_t>(kNssHeaderBytes + rest.size());
        NssSwapHeader(head);
        return RawFrame(std::string(reinterpret_cast<const char*>(&head), sizeof(head)) + rest);
    }
    return RawFrame(static_cast<char>(form) + rest);
}

bool Inside(const NssBodyView& inner, const char* begin, std::size_t length) {
    return inner.data >= begin && inner.length <= length &&
           static_cast<std::size_t>(inner.data - begin) <= length - inner.length;
}

void ReadItems(const ACE_Message_Block& frame, std::uint8_t form, const std::string& rest) {
    CNssMsgBase head;
    NssBodyView body;
    const bool whole = head.decode(&frame) == 0;
    const bool hasBody = NssBody(&frame, body);
    Require(!whole || (hasBody && body.length + kNssHeaderBytes == head.GetHeader().uiPacketLength));
    if (!hasBody) {
        return;
    }
    Require(Inside(body, frame.rd_ptr(), frame.length()));
    for (std::uint16_t tag = 0; tag <= NSS_TAG_INVALID; ++tag) {
        NssBodyView item;
        if (NssFindItem(body.data, body.length, tag, item)) {
            Require(Inside(item, body.data, body.length));
        }
    }
    const std::uint16_t own = form == kXml ? NSS_TAG_XML_CONTENT : NSS_TAG_JSON_CONTENT;
    NssBodyView item;
    if (form == kXml || form == kJson) {
        Require(NssFindItem(body.data, body.length, own, item) && std::string(item.data, item.length) == rest);
    } else if (form == kStructure) {
        Require(std::string(body.data, body.length) == rest);
    }
}

void ReadAsGateway(BP::CCmd& cmd) {
    const gvx::RequestTarget target = gvx::ReadRequestTarget(*cmd.GetMsgBlock());
    Require(target.malformed == !target.reason.empty());
    Require(target.device.empty() || gvx::IsCode(target.device));
    if (const std::unique_ptr<CBB::CXml> xml = gvx::ReadXmlContent(cmd)) {
        // What the target names and what the work reads must be one device.
        const std::string device = gvx::XmlText(*xml, "DevCode");
        Require(target.malformed || target.device == device);
        for (const char* name : {"PluginName", "Extend", "LensList", "ServiceID"}) {
            long long number = 0;
            gvx::ReadNumber(gvx::XmlText(*xml, name), -1, 65535, number);
            Require(number >= -1 && number <= 65535);
        }
    }
    Json::Value json;
    const bool good = gvx::ReadJsonObject(cmd, json);
    Json::Value again;
    // Readers are kept from text to text: what one left behind must not change the next.
    Require(gvx::ReadJsonObject(cmd, again) == good && (!good || again == json));
    if (good) {
        NssBodyView body;
        NssBodyView item;
        const bool isXml = NssBody(cmd.GetMsgBlock(), body) &&
                           NssFindItem(body.data, body.length, NSS_TAG_XML_CONTENT, item);
        Require(isXml || target.malformed || target.device == gvx::JsonText(json, "DevCode"));
        gvx::JsonInt(json, "StreamType");
        gvx::JsonBool(json, "Audio");
        for (const gvx::RequestRow& row : gvx::AllRequests()) {
            std::string fault;
            Require(gvx::ReadRecord(row.request(), json, nullptr, fault) == fault.empty());
            gvx::UnknownMember(row.request(), json);
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const std::string rest(reinterpret_cast<const char*>(data) + 1, size - 1);
    BP::CCmd cmd;
    cmd.SetMsgBlock(FrameOf(data[0], rest).release());
    ReadItems(*cmd.GetMsgBlock(), data[0], rest);
    if (cmd.GetMsgBlock()->length() >= kNssHeaderBytes) {
        ReadAsGateway(cmd);
    }
    return 0;
}
