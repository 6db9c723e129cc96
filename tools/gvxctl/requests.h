#pragma once

#include "gvxctl/platform.h"

#include <json/value.h>

#include <cstdint>
#include <string>
#include <vector>

// The requests that the tool sends, with their bodies (docs/nss-messages.md), and what their responses say. Any thread
// but a link's: a request waits for its response.
namespace gvxctl {

struct DeviceSpec {
    std::string devCode = "CAM001";
    std::string plugin = "file";
    int formType = 1;
    std::string ip = "127.0.0.1";
    int port = 0;
    std::string user;
    std::string password;
    std::string model;
    std::string extend;               // text for the plug-in alone
    std::vector<std::string> lenses;  // codes, channels 0, 1, ...; empty: those that the plug-in reports
};

struct StreamSpec {
    std::string devCode = "CAM001";
    std::string lensCode;  // empty: the device's first
    std::string serviceId = "live-1";
    int streamType = 0;
    bool tcp = false;
    Endpoint video;
    std::uint16_t audioPort = 0;  // 0: none
    bool audio = true;
    bool extension = false;
    bool metadata = false;
    std::uint16_t metadataPort = 0;  // UDP only
    int service = 0;                 // 5 talk, 6 broadcast, 7 download, 8 playback; 0 live view
    std::string content;             // of a recording; empty: what lies in the range
    std::string from;                // of a recording, UTC, "YYYYMMDDhhmmss"
    std::string to;
    std::string sdpFile;        // for the answer's session description as it came; empty: none
    std::string playerSdpFile;  // for what a plain player receives the stream by
};

// What a stream that plays a recording is to do.
struct StreamControl {
    int command = 0;  // 0 play, 1 pause, 2 seek, 3 speed
    double speed = 1;
    unsigned int position = 0;  // of a seek, in seconds from the recording's start
};

bool AddDevice(Platform& platform, const DeviceSpec& spec, Response& response, std::string& error);
bool DeleteDevice(Platform& platform, const std::string& devCode, Response& response, std::string& error);
bool StartStream(Platform& platform, const StreamSpec& spec, Response& response, std::string& error);
bool StopStream(Platform& platform, const StreamSpec& spec, Response& response, std::string& error);
bool ControlStream(Platform& platform, const StreamSpec& spec, const StreamControl& control, Response& response,
                   std::string& error);
bool RequestIFrame(Platform& platform, const StreamSpec& spec, Response& response, std::string& error);

bool SendJson(Platform& platform, std::uint16_t type, const Json::Value& body, Response& response, std::string& error);

// The response's JSON body; null when there is none or it cannot be read.
Json::Value JsonBody(const Response& response);

// Numbers of a stop response, what the gateway itself counted; -1 for one that it did not give.
struct SentCounts {
    long long videoFrames = -1;
    long long videoPackets = -1;
    long long audioPackets = -1;
    long long metadataPackets = -1;
    long long dropped = -1;
    long long bytes = -1;
};
SentCounts SentCountsOf(const Response& stopResponse);

// Why a request was refused, for a person: the result by its name, and the gateway's reason or what the result means.
std::string RefusalText(const Response& response);
// One response as a text, or as a JSON object.
std::string DescribeResponse(const Response& response);
Json::Value ResponseToJson(const Response& response);

}  // namespace gvxctl
