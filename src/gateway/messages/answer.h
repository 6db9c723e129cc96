#pragma once

#include "bp/cmd.h"

#include <string>

namespace CBB {
class CXml;
}
namespace Json {
class Value;
}

namespace gvx {

// How a step of a request's work has ended: 0, or an error code with a sentence for the sender.
struct Result {
    int code = 0;
    std::string reason;

    bool Failed() const { return code != 0; }
};

// One sentence for a code: its row in the error table, or its number.
std::string ReasonOf(int code);
// A code with its sentence, behind the one given. What a plug-in has said of the failure (CallPlugin) stands in place
// of the code's sentence.
Result Failure(int code, const std::string& what = std::string(), const std::string& said = std::string());

// Answers to a request, which leave by the main-service link. A command that is a response is never answered.
void AnswerBare(const BP::CCmd& cmd, int code);
void AnswerXml(const BP::CCmd& cmd, CBB::CXml& body, int code);
void AnswerJson(const BP::CCmd& cmd, const Json::Value& body, int code);

// Refusals with the reason for a human: <Content><DevCode/><Reason/></Content>, or the members of that name. What
// plug-ins have reported on this thread, or else a report of the failure itself, goes with a refusal of work on a
// device: as InfoType and DevErrorInfo of the same Content, or as the text of the member ErrorReport; and it is the
// whole body of a bare answer that tells of a failure.
void RefuseXml(const BP::CCmd& cmd, const std::string& device, const Result& result);
void RefuseJson(const BP::CCmd& cmd, Json::Value body, const Result& result);

}  // namespace gvx
