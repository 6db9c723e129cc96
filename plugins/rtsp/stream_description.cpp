#include "rtsp/stream_description.h"

#include "base/base64.h"
#include "gvx_common/rtsp/common_sdp.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <map>
#include <sstream>

#include <strings.h>

namespace gvxrtsp {
namespace {

constexpr std::size_t kMaxDescription = 4095;  // what the core's parser holds
constexpr std::size_t kMaxLine = 1000;         // as above
constexpr std::size_t kMaxSetBytes = 4096;
constexpr std::uint32_t kAudioRate = 8000;
constexpr std::uint32_t kMaxClockRate = 192000;

bool StartsWith(const std::string& text, const char* start) {
    return text.rfind(start, 0) == 0;
}

bool SameWord(const std::string& left, const char* right) {
    return strcasecmp(left.c_str(), right) == 0;
}

std::string Attribute(CCommonSdp& sdp, const std::string& media, const char* name) {
    char value[1024] = {};
    return sdp.GetMediaElementA(media.c_str(), name, value, sizeof(value)) == 0 ? value : "";
}

// "rtpmap:96 H264/90000" (RFC 4566, section 6). Without one, the static types of RFC 3551 hold.
struct Encoding {
    std::string name;
    std::uint32_t clockRate = 0;
};

Encoding ReadEncoding(const std::string& rtpmap, int payloadType) {
    Encoding encoding;
    const std::size_t blank = rtpmap.find(' ');
    const std::size_t slash = rtpmap.find('/');
    if (blank != std::string::npos && slash != std::string::npos && slash > blank) {
        encoding.name = rtpmap.substr(blank + 1, slash - blank - 1);
        encoding.clockRate = static_cast<std::uint32_t>(
            std::min(std::strtoul(rtpmap.c_str() + slash + 1, nullptr, 10), static_cast<unsigned long>(UINT32_MAX)));
    } else if (payloadType == 0 || payloadType == 8) {
        encoding = {payloadType == 0 ? "PCMU" : "PCMA", kAudioRate};
    }
    return encoding;
}

// Parameters of a format: "96 name=value;name=value".
std::map<std::string, std::string> ReadFormat(const std::string& fmtp) {
    std::map<std::string, std::string> values;
    std::istringstream parts(fmtp.substr(std::min(fmtp.find(' '), fmtp.size())));
    for (std::string part; std::getline(parts, part, ';');) {
        const std::size_t from = part.find_first_not_of(' ');
        const std::size_t equals = part.find('=');
        if (from == std::string::npos || equals == std::string::npos) {
            continue;
        }
        std::string name = part.substr(from, equals - from);
        std::transform(name.begin(), name.end(), name.begin(), [](unsigned char c) { return std::tolower(c); });
        values[name] = part.substr(equals + 1, part.find_last_not_of(" \r\n") - equals);
    }
    return values;
}

// Parameter sets in base64, separated by commas.
void AddSets(const std::string& text, std::vector<std::string>& sets) {
    std::istringstream parts(text);
    for (std::string part; std::getline(parts, part, ',');) {
        std::size_t size = CBB::CBase64::GetDecodeBinarySize(part.size());
        std::string bytes(size, '\0');
        if (size == 0 || size > kMaxSetBytes ||
            CBB::CBase64::DecodeBinary(part.data(), part.size(), bytes.data(), size) != 0) {
            continue;
        }
        bytes.resize(size);
        sets.push_back(std::move(bytes));
    }
}

std::string JoinUrl(const std::string& base, const std::string& control) {
    if (control.empty() || control == "*") {
        return base;
    }
    if (StartsWith(control, "rtsp://")) {
        return control;
    }
    return base + (base.empty() || base.back() == '/' || control[0] == '/' ? "" : "/") + control;
}

unsigned int BitsOf(const std::map<std::string, std::string>& format, const char* name, unsigned int fallback) {
    const auto found = format.find(name);
    return found == format.end() ? fallback
                                 : static_cast<unsigned int>(std::strtoul(found->second.c_str(), nullptr, 10));
}

// False when the media is none that can be taken; encoding says what it is.
bool ReadTrack(CCommonSdp& sdp, const std::string& name, const std::string& text, TrackDescription& track,
               Encoding& encoding) {
    char line[256] = {};
    sdp.GetMediaElement(name.c_str(), 'm', sizeof(line), line);
    std::istringstream words(line);
    std::string media;
    std::string port;
    std::string protocol;
    if (!(words >> media >> port >> protocol >> track.payloadType) || !StartsWith(protocol, "RTP/AVP") ||
        track.payloadType < 0 || track.payloadType > 127) {
        return false;
    }
    encoding = ReadEncoding(Attribute(sdp, name, "rtpmap"), track.payloadType);
    const std::map<std::string, std::string> format = ReadFormat(Attribute(sdp, name, "fmtp"));
    const auto value = [&](const char* key) { return format.count(key) != 0 ? format.at(key) : std::string(); };
    track.video = name == "video";
    track.clockRate = encoding.clockRate;
    track.pictureLoss = track.video && text.find(" nack pli") != std::string::npos;
    if (track.video && SameWord(encoding.name, "H264")) {
        track.codec = RTP_CODEC_H264;
        AddSets(value("sprop-parameter-sets"), track.parameterSets);
    } else if (track.video && SameWord(encoding.name, "H265")) {
        track.codec = RTP_CODEC_H265;
        for (const char* sets : {"sprop-vps", "sprop-sps", "sprop-pps"}) {
            AddSets(value(sets), track.parameterSets);
        }
    } else if (!track.video && (SameWord(encoding.name, "PCMA") || SameWord(encoding.name, "PCMU"))) {
        track.codec = RTP_CODEC_G711;
        track.aLaw = SameWord(encoding.name, "PCMA");
    } else if (!track.video && SameWord(encoding.name, "mpeg4-generic")) {
        track.codec = RTP_CODEC_AAC;
        track.aac.sizeLength = BitsOf(format, "sizelength", track.aac.sizeLength);
        track.aac.indexLength = BitsOf(format, "indexlength", track.aac.indexLength);
        track.aac.indexDeltaLength = BitsOf(format, "indexdeltalength", track.aac.indexDeltaLength);
        if (!track.aacHead.Read(value("config"))) {
            return false;
        }
    } else {
        return false;
    }
    return track.clockRate != 0 && track.clockRate <= kMaxClockRate;
}

// The core's parser takes what follows a flag attribute, such as "a=sendrecv", for its name, so flags are left out, but
// for "a=sendonly", which it knows. A description that is too long is cut behind a whole line.
std::string WithoutFlagAttributes(const std::string& sdp) {
    std::string kept;
    std::istringstream lines(sdp);
    for (std::string line; std::getline(lines, line);) {
        line.erase(line.find_last_not_of("\r \t") + 1);
        const bool flag = StartsWith(line, "a=") && line.find(':') == std::string::npos;
        // A line that is too long for the parser carries parameter sets, which come in the stream as well.
        if (line.empty() || line.size() > kMaxLine || (flag && line != "a=sendonly")) {
            continue;
        }
        if (kept.size() + line.size() + 2 > kMaxDescription) {
            break;
        }
        kept += line + "\r\n";
    }
    return kept;
}

}  // namespace

AUDIO_FORMAT_TYPE TrackDescription::AudioFormat() const {
    return codec == RTP_CODEC_AAC ? GVX_AUDIO_FORMAT_AAC : aLaw ? GVX_AUDIO_FORMAT_G711A : GVX_AUDIO_FORMAT_G711U;
}

bool ReadDescription(const std::string& text, const std::string& base, StreamDescription& description,
                     std::string& error) {
    const std::string sdp = WithoutFlagAttributes(text);
    CCommonSdp parser;
    if (parser.Init() != 0 || parser.InitSdpPack(sdp.c_str(), static_cast<int>(sdp.size())) != 0 ||
        parser.ParseSdp() != 0) {
        error = "The description cannot be read.";
        return false;
    }
    char control[512] = {};
    std::string root = base;
    if (parser.GetSessionElementA("control", control, sizeof(control)) == 0 && StartsWith(control, "rtsp://")) {
        root = control;
    }
    description = StreamDescription();
    for (const char* name : {"video", "audio"}) {
        TrackDescription track;
        Encoding encoding;
        if (ReadTrack(parser, name, sdp, track, encoding)) {
            track.url = JoinUrl(root, Attribute(parser, name, "control"));
            description.tracks.push_back(std::move(track));
        } else if (!track.video && !encoding.name.empty()) {
            description.leftOut = "The camera's sound, " + encoding.name +
                                  ", is not sent on: platforms are told of G.711 and of AAC in a form that ADTS has.";
        }
    }
    if (description.Video() == nullptr) {
        error = "The description offers no video in H.264 or H.265 over RTP.";
        return false;
    }
    return true;
}

}  // namespace gvxrtsp
