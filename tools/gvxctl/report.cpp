#include "gvxctl/report.h"

#include <json/writer.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

namespace gvxctl {
namespace {

Json::Value::UInt64 Number(std::uint64_t value) {
    return value;
}

Json::Value MediaToJson(const MediaStats& media) {
    Json::Value value;
    value["payloadType"] = media.payloadType;
    value["packets"] = Number(media.packets);
    value["bytes"] = Number(media.bytes);
    value["lost"] = Number(media.lost);
    value["late"] = Number(media.late);
    value["restarts"] = Number(media.restarts);
    value["frames"] = Number(media.frames);
    value["units"] = Number(media.units);
    value["droppedUnits"] = Number(media.droppedUnits);
    value["badPayloads"] = Number(media.badPayloads);
    value["extended"] = Number(media.extended);
    return value;
}

void AddFault(std::string& text, std::uint64_t count, const char* what) {
    if (count != 0) {
        text += (text.empty() ? "" : "; ") + std::to_string(count) + " " + what;
    }
}

void AddMediaFaults(std::string& text, const MediaStats& media) {
    AddFault(text, media.lost, "packets lost");
    AddFault(text, media.late, "packets late or twice");
    AddFault(text, media.restarts, "restarts of the numbering");
    AddFault(text, media.droppedUnits, "units incomplete");
    AddFault(text, media.badPayloads, "payloads of no known form");
}

}  // namespace

Json::Value StatsToJson(const StreamStats& stats) {
    Json::Value value;
    value["video"] = MediaToJson(stats.video);
    value["audio"] = MediaToJson(stats.audio);
    if (stats.metadata.wanted) {
        value["metadata"] = MetadataToJson(stats.metadata);
    }
    value["malformed"] = Number(stats.malformed);
    value["otherPayloads"] = Number(stats.otherPayloads);
    value["seconds"] = static_cast<double>(stats.lastPacketMs - stats.firstPacketMs) / 1000.0;
    if (!stats.error.empty()) {
        value["error"] = stats.error;
    }
    return value;
}

std::string StatsLine(const StreamStats& stats) {
    char line[256];
    std::snprintf(
        line, sizeof line, "video %llu packets %llu frames lost %llu, audio %llu packets lost %llu",
        static_cast<unsigned long long>(stats.video.packets), static_cast<unsigned long long>(stats.video.frames),
        static_cast<unsigned long long>(stats.video.lost), static_cast<unsigned long long>(stats.audio.packets),
        static_cast<unsigned long long>(stats.audio.lost));
    return line + MetadataLine(stats.metadata);
}

std::string Faults(const StreamStats& stats) {
    std::string text = stats.error;
    AddMediaFaults(text, stats.video);
    AddMediaFaults(text, stats.audio);
    const std::string metadata = MetadataFaults(stats.metadata);
    text += (text.empty() || metadata.empty() ? "" : "; ") + metadata;
    AddFault(text, stats.malformed, "packets that are no RTP");
    AddFault(text, stats.otherPayloads, "packets of another payload type");
    return text;
}

bool WriteJsonFile(const std::string& path, const Json::Value& value, std::string& error) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "  ";
    const std::string text = Json::writeString(builder, value) + "\n";
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "we"), &std::fclose);
    if (!file || std::fwrite(text.data(), 1, text.size(), file.get()) != text.size() || std::fflush(file.get()) != 0) {
        error = "cannot write " + path + ": " + std::strerror(errno);
        return false;
    }
    return true;
}

}  // namespace gvxctl
