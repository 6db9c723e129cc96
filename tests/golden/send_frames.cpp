// Has the connection manager send one frame of each form and prints each as it would enter the link, one line a frame:
//   NAME LINK OPEN-TRANSACTIONS RESULT HEX
// Usage: send_frames HEX, the bytes of the request that the responses answer.

#include "base/cbb_xml.h"
#include "base/zvs_error.h"
#include "bp/dispatcher.h"
#include "bp/message_block_ptr.h"
#include "gvx_common/link/gvx_connection_mgr.h"
#include "nss/nss_msg_header.h"

#include <json/value.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

namespace {

constexpr std::uint32_t kServiceID = 7;
constexpr const char* kScuLink = "SCU#001";
const std::string kStructure("\x00\x01raw\xff\x00\x07", 8);

class Service : public BP::IService {
public:
    std::uint32_t GetServiceID() const override { return kServiceID; }
};

struct {
    std::string link;
    std::size_t openTransactions = 0;
    std::string bytes;
} g_sent;

// The sender waits for the answer to a frame that goes to the SCU: it comes at once, the request's own bytes with the
// type of a response.
int CatchFrame(const std::string& link, ACE_Message_Block* block) {
    g_sent = {link, BP::CTransactionMgr::OpenTransactions(), std::string(block->rd_ptr(), block->length())};
    if (link == kScuLink) {
        constexpr std::size_t kTypeAt = 2;
        block->rd_ptr()[kTypeAt] = static_cast<char>(block->rd_ptr()[kTypeAt] + (kNssResponseOffset >> 8));
        BP::CDispatcher::FrameArrived(kElementSCU, link, block);
        return 0;
    }
    block->release();
    return 0;
}

void Print(const char* name, unsigned int result) {
    std::printf("%s %s %zu %u ", name, g_sent.link.c_str(), g_sent.openTransactions, result);
    for (const char byte : g_sent.bytes) {
        std::printf("%02x", static_cast<unsigned char>(byte));
    }
    std::printf("\n");
    g_sent = {};
}

std::unique_ptr<BP::CCmd> Arrived(const std::string& hex) {
    std::unique_ptr<BP::CCmd> cmd;
    BP::CDispatcher::SetSink([&cmd](std::unique_ptr<BP::CCmd> taken) {
        cmd = std::move(taken);
        return 0;
    });
    BP::MessageBlockPtr block = BP::MakeMessageBlock(hex.size() / 2);
    for (std::size_t at = 0; at + 1 < hex.size(); at += 2) {
        const char byte = static_cast<char>(std::strtoul(hex.substr(at, 2).c_str(), nullptr, 16));
        block->copy(&byte, 1);
    }
    BP::CDispatcher::FrameArrived(kElementSCU, kScuLink, block.release());
    BP::CDispatcher::SetSink({});
    return cmd;
}

void SendRequests(CGvxConnectionMgr& mgr, CBB::CXml& xml) {
    for (const char* transaction : {"given-1", ""}) {
        Print(*transaction != '\0' ? "request_xml_given" : "request_xml_made",
              mgr.SendReqMsgWithXml(BP::SUBSYS_SCU, kElementSCU, NSS_NOTIFY_LINK_PORT_TO_GVX_REQ, xml, kScuLink,
                                    transaction));
    }
    for (const std::size_t length : {kStructure.size(), std::size_t{0}}) {
        Print(length != 0 ? "request_structure" : "request_structure_empty",
              mgr.SendReqMsgWithStruct(BP::SUBSYS_SCU, kElementSCU, NSS_GVX_PLUGIN_ALARM_REPORT_REQ, kStructure.data(),
                                       static_cast<unsigned int>(length), kScuLink));
    }
    for (const char* transaction : {"given-2", ""}) {
        const int result = mgr.SendRetMsgWithJson(NSS_PROTOCOL_PLUGIN_INSTALL_NOTIFY_REQ, R"({"Plugins":["file"]})",
                                                  kElementSCU, kScuLink, transaction);
        Print(*transaction != '\0' ? "request_json_given" : "request_json_made", static_cast<unsigned int>(result));
    }
    const std::unique_ptr<BP::CCmd> answer(mgr.SyncSendReqMsg(kServiceID, kElementSCU, kScuLink, "sync-1",
                                                              NSS_PLUGIN_APPLY_PORTLIST_DATA_REQ, kStructure.data(),
                                                              static_cast<unsigned int>(kStructure.size()), 60));
    Print("request_synchronous", answer != nullptr ? 1 : 0);
}

void SendResponses(CGvxConnectionMgr& mgr, CBB::CXml& xml, BP::CCmd& cmd) {
    mgr.SendRespMsgWithXml(&cmd, &xml, 0, true);
    Print("response_xml_with_transaction", 0);
    mgr.SendRespMsgWithXml(&cmd, &xml, ZVS_PARA_INVALID, false);
    Print("response_xml_without_transaction", 0);
    mgr.SendRespMsgWithXml(&cmd, nullptr, 0, true);
    Print("response_xml_empty", 0);
    mgr.SendRespMsgWithStruct(&cmd, kStructure.data(), static_cast<unsigned int>(kStructure.size()), 0);
    Print("response_structure", 0);
    mgr.SendRespMsgWithStruct(&cmd, nullptr, 0, 189108041);
    Print("response_structure_empty", 0);
    Json::Value value;
    value["DevCode"] = "CAM001";
    value["Packets"] = 12;
    mgr.SendRespMsgWithJson(&cmd, value, 0);
    Print("response_json_with_transaction", 0);
    cmd.SetServiceID(0);
    mgr.SendRespMsgWithJson(&cmd, value, 0xFFFFFFFF);
    Print("response_json_without_transaction", 0);
    mgr.SendRespMsgWithStruct(&cmd, kStructure.data(), static_cast<unsigned int>(kStructure.size()), 0);
    Print("response_structure_without_transaction", 0);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        return 2;
    }
    static Service service;
    CGvxConnectionMgr& mgr = *GvxConnectionMgr();
    mgr.SetGvxService(&service);
    // What the opening itself sends is refused: nobody would answer it.
    BP::CDispatcher::SetWriter([](const std::string&, ACE_Message_Block*) { return static_cast<int>(ZVS_FAIL); });
    mgr.OnLinkOpened("", 0, "GVX#000", "127.0.0.1", 9000);
    BP::CDispatcher::SetWriter(&CatchFrame);
    CBB::CXml xml;
    xml.AddDeclaration("1.0", "UTF-8");
    xml.AddElem("Content");
    xml.IntoElem();
    xml.AddElem("DevCode", "CAM<001>&");
    SendRequests(mgr, xml);
    const std::unique_ptr<BP::CCmd> cmd = Arrived(argv[1]);
    if (cmd == nullptr) {
        return 1;
    }
    cmd->SetServiceID(kServiceID);
    SendResponses(mgr, xml, *cmd);
    BP::CDispatcher::SetWriter({});
    return 0;
}
