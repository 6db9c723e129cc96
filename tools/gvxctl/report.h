#pragma once

#include "gvxctl/stream_recorder.h"

#include <json/value.h>

#include <string>

namespace gvxctl {

// Any thread.

// What was received as a JSON object with the members "video", "audio", "malformed", "otherPayloads", "seconds", and
// if there are, "metadata" and "error".
Json::Value StatsToJson(const StreamStats& stats);

// The same on one line: "video 5200 packets 250 frames lost 0, audio 500 packets lost 0".
std::string StatsLine(const StreamStats& stats);

// Everything that was wrong with what was received, parted by "; "; empty when nothing was.
std::string Faults(const StreamStats& stats);

// A JSON document, indented, into a file. False with a reason.
bool WriteJsonFile(const std::string& path, const Json::Value& value, std::string& error);

}  // namespace gvxctl
