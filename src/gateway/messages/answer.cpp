#include "gateway/messages/answer.h"

#include "base/cbb_xml.h"
#include "base/json_io.h"
#include "base/zvs_error.h"
#include "gvx_common/alarm/gvx_error_mgr.h"
#include "gvx_common/link/gvx_connection_mgr.h"
#include "nss/nss_msg_header.h"
#include "nss/nss_msg_type.h"

#include <json/value.h>

namespace gvx {

namespace {

// What a request wants done with a device, in the words of a report; null for others.
const char* OperationOf(const BP::CCmd& cmd) {
    switch (cmd.GetReqID()) {
        case NSS_ADD_MAIN_DEV_REQ:
            return "adding the device";
        case NSS_DEL_MAIN_DEV_REQ:
            return "deleting the device";
        case NSS_START_STREAM_REQ:
            return "starting the stream";
        case NSS_STOP_STREAM_REQ:
            return "stopping the stream";
        case NSS_GET_IFRAME_REQ:
            return "asking for a key frame";
        default:
            return nullptr;
    }
}

// Moves what has been reported on this thread into a document, <Content><InfoType/><DevErrorInfo/></Content>, with the
// answer's code. False when nothing was reported or the code is no failure; xml is then unchanged.
bool TakeErrorReport(int code, CBB::CXml& xml) {
    if (code == ZVS_SUCCEED) {
        return false;
    }
    GVXErrorMgr* const reports = GVXErrorMgr::getInstance();
    return reports != nullptr && reports->getXmlInfoByTidWithDestory(xml, code) == ZVS_SUCCEED;
}

// The same; where no plug-in has said more, the session reports the failure itself.
bool ReportFailure(const BP::CCmd& cmd, const std::string& device, const std::string& channel, const Result& result,
                   CBB::CXml& xml) {
    if (TakeErrorReport(result.code, xml)) {
        return true;
    }
    const char* const operation = OperationOf(cmd);
    GVXErrorMgr* const reports = GVXErrorMgr::getInstance();
    if (!result.Failed() || device.empty() || operation == nullptr || reports == nullptr) {
        return false;
    }
    reports->reportError(__func__, device.c_str(), channel.c_str(), result.code, operation, "%s",
                         result.reason.c_str());
    return TakeErrorReport(result.code, xml);
}

bool IsResponse(const BP::CCmd& cmd) {
    return cmd.GetReqID() >= kNssResponseOffset;
}

// The send operations take the command by a plain pointer and only read it.
BP::CCmd* Plain(const BP::CCmd& cmd) {
    return const_cast<BP::CCmd*>(&cmd);
}

}  // namespace

void AnswerBare(const BP::CCmd& cmd, int code) {
    CBB::CXml report;
    CBB::CXml* const body = TakeErrorReport(code, report) ? &report : nullptr;
    if (!IsResponse(cmd)) {
        CGvxConnectionMgr::Instance()->SendRespMsgWithXml(Plain(cmd), body, static_cast<unsigned int>(code), false);
    }
}

void AnswerXml(const BP::CCmd& cmd, CBB::CXml& body, int code) {
    if (!IsResponse(cmd)) {
        CGvxConnectionMgr::Instance()->SendRespMsgWithXml(Plain(cmd), &body, static_cast<unsigned int>(code), false);
    }
}

void AnswerJson(const BP::CCmd& cmd, const Json::Value& body, int code) {
    if (!IsResponse(cmd)) {
        CGvxConnectionMgr::Instance()->SendRespMsgWithJson(Plain(cmd), body, static_cast<unsigned int>(code));
    }
}

void RefuseXml(const BP::CCmd& cmd, const std::string& device, const Result& result) {
    CBB::CXml body;
    if (ReportFailure(cmd, device, "", result, body)) {
        body.Rewind();
        body.FindElem("Content");
    } else {
        body.AddDeclaration("1.0", "UTF-8");
        body.AddElem("Content");
    }
    body.IntoElem();
    body.AddElem("DevCode", device.c_str());
    body.AddElem("Reason", result.reason.c_str());
    AnswerXml(cmd, body, result.code);
}

void RefuseJson(const BP::CCmd& cmd, Json::Value body, const Result& result) {
    body["Reason"] = result.reason;
    CBB::CXml report;
    if (ReportFailure(cmd, JsonText(body, "DevCode"), JsonText(body, "LensCode"), result, report)) {
        body["ErrorReport"] = report.ToString();
    }
    AnswerJson(cmd, body, result.code);
}

std::string ReasonOf(int code) {
    const char* text = ZvsErrorText(code);
    return text == nullptr || *text == '\0' ? "Code " + std::to_string(code) + "." : text;
}

Result Failure(int code, const std::string& what, const std::string& said) {
    const std::string reason = said.empty() ? ReasonOf(code) : said;
    return {code, what.empty() ? reason : what + " " + reason};
}

}  // namespace gvx
