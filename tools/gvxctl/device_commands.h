#pragma once

#include "gvxctl/commands.h"

#include <json/value.h>

#include <string>
#include <vector>

namespace gvx {
struct RecordForm;
struct RequestRow;
}  // namespace gvx

// Requests to devices, by the table that the gateway reads them by: what is not allowed is said before anything is
// sent.
namespace gvxctl {

struct DeviceRequestOptions {
    std::string devCode = "CAM001";
    std::string lensCode;            // empty: the device's first
    std::string plugin = "file";     // of a request to a plug-in
    std::vector<std::string> words;  // NAME=VALUE, or the value of the next member that must be there
    std::string body;                // a JSON object with further members; empty: none
};

// Makes the body of a request. False, with one sentence, for a member that is unknown, missing or not allowed. A value
// of
// "-" for a password stands for the next line of standard input.
bool MakeRequestBody(const gvx::RequestRow& row, const DeviceRequestOptions& options, Json::Value& body,
                     std::string& error);

// The members that a request takes, a line each, for the help of its command.
std::string MembersText(const gvx::RequestRow& row);

// An answer for a person: a line for each member, numbers with their names.
std::string AnswerText(const gvx::RecordForm& form, const Json::Value& body);

// Sends the request and prints its answer. kExitWrongUse when the words are not allowed.
int RunDeviceRequest(const CommonOptions& common, const gvx::RequestRow& row, const DeviceRequestOptions& options);

// Prints every request with its command, or the whole reference page.
int RunRequests(bool page);

}  // namespace gvxctl
