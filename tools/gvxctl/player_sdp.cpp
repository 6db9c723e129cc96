#include "gvxctl/player_sdp.h"

#include <algorithm>
#include <sstream>
#include <vector>

namespace gvxctl {
namespace {

bool StartsWith(const std::string& line, const char* start) {
    return line.rfind(start, 0) == 0;
}

// The gateway's URL answers no player, and the directions are those of its own end.
bool IsForGatewayOnly(const std::string& line) {
    static const std::vector<std::string> kDirections{"a=sendrecv", "a=sendonly", "a=recvonly"};
    return StartsWith(line, "u=") || StartsWith(line, "a=control:") ||
           std::find(kDirections.begin(), kDirections.end(), line) != kDirections.end();
}

}  // namespace

bool MakePlayerSdp(const std::string& answer, const Endpoint& video, std::uint16_t audioPort, std::string& player,
                   std::string& error) {
    std::istringstream lines(answer);
    std::string made;
    bool keepsBlock = true;  // the lines before the first block, too
    int blocks = 0;
    for (std::string line; std::getline(lines, line);) {
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        if (StartsWith(line, "m=")) {
            std::istringstream words(line.substr(2));
            std::string media;
            std::string protocol;
            std::string formats;
            unsigned int sourcePort = 0;
            words >> media >> sourcePort >> protocol;
            std::getline(words, formats);
            const std::uint16_t port = media == "video" ? video.port : audioPort;
            keepsBlock = (media == "video" || media == "audio") && sourcePort != 0 && port != 0;
            if (keepsBlock && protocol != "RTP/AVP") {
                error = "a plain player receives over UDP alone, the stream comes by " + protocol;
                return false;
            }
            line = "m=" + media + " " + std::to_string(port) + " " + protocol + formats;
            blocks += keepsBlock ? 1 : 0;
        } else if (StartsWith(line, "c=")) {
            line = "c=IN IP4 " + video.ip;
        }
        if (keepsBlock && !line.empty() && !IsForGatewayOnly(line)) {
            made += line + "\r\n";
        }
    }
    if (blocks == 0) {
        error = "the answer describes no media that a player can receive";
        return false;
    }
    player = made;
    return true;
}

}  // namespace gvxctl
