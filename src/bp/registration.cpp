#include "bp/registration.h"

#include "base/json_io.h"
#include "bp/cmd.h"
#include "bp/frame_reader.h"
#include "nss/nss_msg.h"
#include "nss/nss_msg_type.h"

#include <json/value.h>

#include <algorithm>
#include <atomic>
#include <iterator>
#include <new>

namespace BP {

namespace {

struct ElementRow {
    const char* name;
    int code;
};

constexpr ElementRow kElements[] = {
    {"SCU", 10105}, {"OMU", 60105}, {"MU", 30105}, {"IMGU", 240105}, {"GVX", 40105},
};
constexpr int kUnidentified = 80105;

const ElementRow* FindElement(const std::string& linkID) {
    const auto* const found =
        std::find_if(std::begin(kElements), std::end(kElements),
                     [&linkID](const ElementRow& row) { return linkID.find(row.name) != std::string::npos; });
    return found != std::end(kElements) ? found : nullptr;
}

constexpr std::size_t kMaxIdentifierChars = 40;

std::uint32_t NextControlSeq() {
    static std::atomic<std::uint32_t> counter{0};
    return ++counter;
}

MessageBlockPtr Marked(MessageBlockPtr block) {
    if (block != nullptr) {
        block->msg_type(ACE_Message_Block::MB_PROTO);
    }
    return block;
}

MessageBlockPtr Encode(const CNssMsgBody& message) {
    MessageBlockPtr block(new (std::nothrow) ACE_Message_Block);
    return block != nullptr && message.encode(block.get()) == 0 ? Marked(std::move(block)) : nullptr;
}

MessageBlockPtr MakeRegistration(const NssMsgHeader& head, const std::string& localID) {
    Json::Value body;
    body["LinkID"] = localID;
    const std::string text = gvx::WriteJson(body);
    const std::string transID(TransactionOf(head));
    CNssMsgBody message(head.usiMsgType, head.uiSeqID, transID.c_str(), head.uiRspCode, head.uiTraceID,
                        NSS_TAG_JSON_CONTENT);
    return message.SetValue(text.c_str(), static_cast<unsigned int>(text.size())) == 0 ? Encode(message) : nullptr;
}

}  // namespace

bool IsLinkIdentifier(const std::string& text) {
    const auto printable = [](char c) { return c > ' ' && c <= '~'; };
    return !text.empty() && text.size() <= kMaxIdentifierChars && text.find('#') != std::string::npos &&
           std::all_of(text.begin(), text.end(), printable);
}

int ElementTypeOf(const std::string& linkID) {
    const ElementRow* const row = FindElement(linkID);
    return row != nullptr ? row->code : kUnidentified;
}

const char* ElementNameOf(const std::string& linkID) {
    const ElementRow* const row = FindElement(linkID);
    return row != nullptr ? row->name : nullptr;
}

MessageBlockPtr MakeRegisterRequest(const std::string& localID) {
    const std::string transID = CMKTransID::GenerateTransID();
    NssMsgHeader head = {};
    head.usiMsgType = NSS_BP_REGISTER_REQ;
    head.uiSeqID = NextControlSeq();
    transID.copy(head.szTransactionNo, sizeof(head.szTransactionNo) - 1);
    return MakeRegistration(head, localID);
}

MessageBlockPtr MakeRegisterResponse(const ACE_Message_Block* request, const std::string& localID,
                                     std::uint32_t rspCode) {
    NssMsgHeader head;
    if (!ReadFrameHead(request, head)) {
        return nullptr;
    }
    head.usiMsgType = static_cast<std::uint16_t>(NSS_BP_REGISTER_RSP);
    head.uiRspCode = rspCode;
    return MakeRegistration(head, localID);
}

MessageBlockPtr MakeKeepAliveRequest() {
    NssMsgHeader head = {};
    head.usiProtocolVersion = kNssProtocolVersion;
    head.usiMsgType = NSS_KEEPALIVE_REQ;
    head.uiSeqID = NextControlSeq();
    return Marked(MakeBareFrame(head));
}

MessageBlockPtr MakeKeepAliveResponse(const ACE_Message_Block* request) {
    NssMsgHeader head;
    if (!ReadFrameHead(request, head)) {
        return nullptr;
    }
    head.usiMsgType = static_cast<std::uint16_t>(NSS_KEEPALIVE_RSP);
    head.uiRspCode = 0;
    return Marked(MakeBareFrame(head));
}

bool IsControlFrame(const ACE_Message_Block* block) {
    return block->msg_type() == ACE_Message_Block::MB_PROTO;
}

bool ReadRegistration(const ACE_Message_Block* frame, std::string& linkID, std::string* fault) {
    NssBodyView body;
    NssBodyView item;
    Json::Value value;
    if (!NssBody(frame, body) || !NssFindItem(body.data, body.length, NSS_TAG_JSON_CONTENT, item)) {
        *fault = "no JSON item in the registration";
        return false;
    }
    std::string syntax;
    if (!gvx::ParseJson(item.data, item.length, value, &syntax)) {
        *fault = "the registration is no JSON text: " + syntax;
        return false;
    }
    linkID = gvx::JsonText(value, "LinkID");
    if (!IsLinkIdentifier(linkID)) {
        *fault = "the registration names no identifier of 1 to 40 printable characters with a '#'";
        return false;
    }
    return true;
}

}  // namespace BP
