#include "file/media_entry.h"

#include "base/json_io.h"
#include "base/paths.h"
#include "gvx_common/codec/access_unit_reader.h"
#include "gvx_common/codec/input_file.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <iterator>
#include <system_error>

#include <unistd.h>

namespace gvxfile {
namespace {

std::string Lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

std::string Extension(const std::string& path) {
    const std::size_t dot = path.find_last_of("./");
    return dot == std::string::npos || path[dot] == '/' ? std::string() : Lower(path.substr(dot + 1));
}

// The path of the file that a member names; empty when it names none. False with one sentence in error.
bool ReadPath(const Json::Value& object, const char* member, const MediaFolder& folder, const MediaEntry& entry,
              std::string& path, std::string& error, bool mayBeMissing = false) {
    path = gvx::JsonText(object, member);
    if (path.empty()) {
        return true;
    }
    if (!folder.confined) {
        path = path.front() == '/' ? path : folder.path + "/" + path;
        return true;
    }
    const std::string name = path;
    std::string reason;
    if (!gvx::ResolveBelow(folder.path, name, mayBeMissing, path, reason)) {
        error = "Medium '" + entry.name + "': " + name + " cannot be opened: " + reason + ".";
        return false;
    }
    return true;
}

// What a configured word or a file name's ending stands for.
template <typename Value>
struct Word {
    const char* word;
    Value value;
};

constexpr Word<gvx::Codec> kCodecs[] = {{"h264", gvx::Codec::H264}, {"264", gvx::Codec::H264},
                                        {"avc", gvx::Codec::H264},  {"h265", gvx::Codec::H265},
                                        {"265", gvx::Codec::H265},  {"hevc", gvx::Codec::H265}};

constexpr Word<AUDIO_FORMAT_TYPE> kAudioFormats[] = {
    {"g711a", GVX_AUDIO_FORMAT_G711A}, {"alaw", GVX_AUDIO_FORMAT_G711A}, {"al", GVX_AUDIO_FORMAT_G711A},
    {"g711u", GVX_AUDIO_FORMAT_G711U}, {"ulaw", GVX_AUDIO_FORMAT_G711U}, {"mulaw", GVX_AUDIO_FORMAT_G711U},
    {"ul", GVX_AUDIO_FORMAT_G711U}};

template <typename Value, std::size_t Count>
bool LookUp(const Word<Value> (&table)[Count], const std::string& word, Value& value) {
    const auto found =
        std::find_if(std::begin(table), std::end(table), [&word](const Word<Value>& row) { return word == row.word; });
    if (found == std::end(table)) {
        return false;
    }
    value = found->value;
    return true;
}

// A number greater than 0 that fills the whole text.
bool ParseNumber(const std::string& text, double& value) {
    char* end = nullptr;
    value = std::strtod(text.c_str(), &end);
    return !text.empty() && *end == '\0' && std::isfinite(value) && value > 0;
}

// "25", "29.97" or "30000/1001".
bool ParseFrameRate(const std::string& text, gvx::Rational& rate) {
    constexpr double kSlowest = 0.1;
    constexpr double kFastest = 1000;
    constexpr double kLargest = 10000000;
    const std::size_t slash = text.find('/');
    double numerator = 0;
    double denominator = 1;
    if (!ParseNumber(text.substr(0, slash), numerator) ||
        (slash != std::string::npos && !ParseNumber(text.substr(slash + 1), denominator))) {
        return false;
    }
    const double scale = slash == std::string::npos ? 1000 : 1;
    if (numerator / denominator < kSlowest || numerator / denominator > kFastest || numerator > kLargest ||
        denominator > kLargest) {
        return false;
    }
    rate.numerator = static_cast<std::uint32_t>(std::lround(numerator * scale));
    rate.denominator = static_cast<std::uint32_t>(std::lround(denominator * scale));
    return rate.Known();
}

bool ParseSpeed(const std::string& text, Speed& speed) {
    constexpr double kSlowest = 0.01;
    constexpr double kFastest = 1000;
    speed.unlimited = text == "max";
    speed.factor = 1;
    return speed.unlimited || (ParseNumber(text, speed.factor) && speed.factor >= kSlowest && speed.factor <= kFastest);
}

bool ReadCodec(const Json::Value& object, MediaEntry& entry, std::string& error) {
    const std::string word =
        object.isMember("codec") ? Lower(gvx::JsonText(object, "codec")) : Extension(entry.videoPath);
    if (LookUp(kCodecs, word, entry.codec)) {
        return true;
    }
    error = "Medium '" + entry.name + "': codec '" + word + "' of " + entry.videoPath + " is neither h264 nor h265.";
    return false;
}

bool ReadAudio(const Json::Value& object, const MediaFolder& folder, MediaEntry& entry, std::string& error) {
    if (!ReadPath(object, "audio", folder, entry, entry.audioPath, error)) {
        return false;
    }
    if (entry.audioPath.empty()) {
        return true;
    }
    const std::string word =
        object.isMember("audio_format") ? Lower(gvx::JsonText(object, "audio_format")) : Extension(entry.audioPath);
    if (LookUp(kAudioFormats, word, entry.audioFormat)) {
        return true;
    }
    error = "Medium '" + entry.name + "': audio_format '" + word + "' of " + entry.audioPath +
            " is neither G711A nor G711U.";
    return false;
}

// How much of a file is looked through for its first picture with a parameter set.
constexpr std::size_t kProbeBytes = 4u * 1024 * 1024;
constexpr gvx::Rational kUsualFrameRate{25, 1};

std::string Fault(const MediaEntry& entry, const std::string& path, const std::string& what) {
    return "Medium '" + entry.name + "': " + path + " " + what + ".";
}

bool ProbeVideo(MediaEntry& entry, std::string& error) {
    gvx::AccessUnitReader reader(entry.codec);
    std::string reason;
    if (!reader.Open(entry.videoPath, reason)) {
        error = Fault(entry, entry.videoPath, "cannot be opened: " + reason);
        return false;
    }
    gvx::AccessUnit unit;
    std::size_t seen = 0;
    bool hasPicture = false;
    while ((reader.Sequence().width == 0 || !hasPicture) && seen < kProbeBytes) {
        const gvx::ReadResult result = reader.Next(unit);
        if (result == gvx::ReadResult::Failed) {
            error = Fault(entry, entry.videoPath, "cannot be read: " + reader.Error());
            return false;
        }
        if (result == gvx::ReadResult::End) {
            break;
        }
        hasPicture = true;
        seen += unit.bytes.size();
    }
    const gvx::SequenceInfo& sequence = reader.Sequence();
    if (sequence.width == 0 || !hasPicture) {
        const char* codec = entry.codec == gvx::Codec::H264 ? "H.264" : "H.265";
        error = Fault(entry, entry.videoPath,
                      std::string("begins with no ") + codec + " sequence parameter set and picture");
        return false;
    }
    entry.width = sequence.width;
    entry.height = sequence.height;
    if (!entry.frameRate.Known()) {
        entry.frameRate = sequence.frameRate.Known() ? sequence.frameRate : kUsualFrameRate;
    }
    if (entry.recording != nullptr) {
        entry.recording->SetFrameRate(entry.frameRate);
    }
    return true;
}

bool ProbeAudio(const MediaEntry& entry, std::string& error) {
    gvx::InputFile file;
    std::string reason;
    if (!file.Open(entry.audioPath, reason)) {
        error = Fault(entry, entry.audioPath, "cannot be opened: " + reason);
        return false;
    }
    std::uint8_t byte = 0;
    const ssize_t count = file.Read(&byte, 1);
    if (count <= 0) {
        error = Fault(entry, entry.audioPath,
                      count == 0 ? "is empty" : "cannot be read: " + std::generic_category().message(errno));
        return false;
    }
    return true;
}

bool LoadMetadata(MediaEntry& entry, std::string& error) {
    std::string reason;
    entry.metadata = ReadMetadataScript(entry.metadataPath, reason);
    if (entry.metadata == nullptr) {
        error = "Medium '" + entry.name + "': " + reason;
        return false;
    }
    return true;
}

}  // namespace

bool KnowsAllMembers(const Json::Value& object, std::initializer_list<const char*> known, std::string& error) {
    for (const std::string& member : object.getMemberNames()) {
        if (std::find(known.begin(), known.end(), member) == known.end()) {
            error = "member '" + member + "' is not known.";
            return false;
        }
    }
    return true;
}

bool ReadPlayOptions(const Json::Value& object, MediaEntry& entry, std::string& error) {
    if (object.isMember("loop") && !object["loop"].isBool()) {
        error = "Medium '" + entry.name + "': loop is neither true nor false.";
        return false;
    }
    entry.loop = gvx::JsonBool(object, "loop", entry.loop);
    if (object.isMember("speed") && !ParseSpeed(gvx::JsonText(object, "speed"), entry.speed)) {
        error = "Medium '" + entry.name + "': speed is neither \"max\" nor a factor from 0.01 to 1000.";
        return false;
    }
    return true;
}

bool ReadMediaEntry(const std::string& name, const Json::Value& object, const MediaFolder& folder, MediaEntry& entry,
                    std::string& error) {
    entry = MediaEntry{};
    entry.name = name;
    if (!object.isObject()) {
        error = "Medium '" + name + "' is not an object.";
        return false;
    }
    if (!KnowsAllMembers(object,
                         {"video", "audio", "audio_format", "metadata", "codec", "fps", "loop", "speed", "picture",
                          "talk", "recorded"},
                         error)) {
        error.insert(0, "Medium '" + name + "': ");
        return false;
    }
    std::string picture;
    if (!ReadPath(object, "video", folder, entry, entry.videoPath, error) ||
        !ReadPath(object, "metadata", folder, entry, entry.metadataPath, error) ||
        !ReadPath(object, "talk", folder, entry, entry.talkPath, error, true) ||
        !ReadPath(object, "picture", folder, entry, picture, error)) {
        return false;
    }
    if (entry.videoPath.empty()) {
        error = "Medium '" + name + "' names no video file.";
        return false;
    }
    if (object.isMember("metadata") && entry.metadataPath.empty()) {
        error = "Medium '" + name + "': metadata is not the name of a file.";
        return false;
    }
    std::int64_t recordedAt = 0;
    const std::string recorded = gvx::JsonText(object, "recorded");
    if (object.isMember("recorded") && !ParseUtcTime(recorded, recordedAt)) {
        error = "Medium '" + name + "': recorded is no UTC time YYYYMMDDhhmmss.";
        return false;
    }
    if (object.isMember("fps") && !ParseFrameRate(gvx::JsonText(object, "fps"), entry.frameRate)) {
        error = "Medium '" + name + "': fps is not a rate from 0.1 to 1000, such as 25 or \"30000/1001\".";
        return false;
    }
    if (!ReadCodec(object, entry, error) || !ReadAudio(object, folder, entry, error) ||
        !ReadPlayOptions(object, entry, error)) {
        return false;
    }
    if (!picture.empty() && access(picture.c_str(), R_OK) != 0) {
        error = Fault(entry, picture, "cannot be read: " + std::generic_category().message(errno));
        return false;
    }
    entry.still = std::make_shared<StillPicture>(entry.videoPath, entry.codec, picture);
    entry.recording = std::make_shared<Recording>(entry.videoPath, entry.codec, recordedAt);
    return true;
}

bool ProbeMedia(MediaEntry& entry, std::string& error) {
    return ProbeVideo(entry, error) && (!entry.HasAudio() || ProbeAudio(entry, error)) &&
           (entry.metadataPath.empty() || LoadMetadata(entry, error));
}

}  // namespace gvxfile
