#include "gateway/admin/trace_commands.h"

#include "base/base64.h"
#include "base/clock.h"
#include "base/near_words.h"
#include "gvx_common/utility/gvx_utility.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <memory>

namespace gvx {

namespace {

constexpr std::int64_t kStopLimitMs = 2000;
constexpr const char* kUse =
    "The request is none: trace start DEVICE [SECONDS], trace stop DEVICE, trace list, trace dialogue DEVICE, "
    "trace fetch FILE FROM.";

Json::Value Refusal(const std::string& reason) {
    Json::Value answer(Json::objectValue);
    answer["error"] = reason;
    return answer;
}

bool ReadCount(const std::string& text, std::uint64_t most, std::uint64_t& number) {
    const char* const end = text.data() + text.size();
    const auto [stop, fault] = std::from_chars(text.data(), end, number);
    return fault == std::errc() && stop == end && number <= most;
}

std::string NoDevice(const std::string& device, const std::vector<std::string>& devices) {
    std::string reason = "There is no device " + device + ".";
    const std::vector<std::string> near = NearWords(device, devices);
    for (std::size_t i = 0; i < near.size(); ++i) {
        reason += (i == 0 ? " Is it " : " or ") + near[i];
    }
    return near.empty() ? reason : reason + "?";
}

Json::Value FactsJson(const TraceFacts& facts, const std::string& folder) {
    const std::int64_t nowMs = MonotonicMilliseconds();
    Json::Value trace(Json::objectValue);
    trace["device"] = facts.device;
    trace["file"] = facts.file;
    trace["path"] = facts.gone ? "" : folder + "/" + facts.file;
    trace["running"] = facts.running;
    trace["ended"] = facts.ended;
    trace["age_ms"] = Json::Int64(nowMs - facts.beganMs);
    trace["left_ms"] = Json::Int64(facts.running ? std::max<std::int64_t>(facts.endsMs - nowMs, 0) : 0);
    trace["bytes"] = Json::UInt64(facts.bytes);
    trace["messages"] = Json::UInt64(facts.messages);
    trace["packets"] = Json::UInt64(facts.packets);
    trace["frames"] = Json::UInt64(facts.frames);
    trace["lost"] = Json::UInt64(facts.lost);
    return trace;
}

// What is no UTF-8 shows as question marks.
std::string Utf8(std::string text) {
    if (!CGvxUtility::IsUtf8(text)) {
        std::replace_if(
            text.begin(), text.end(), [](unsigned char c) { return c >= 0x80; }, '?');
    }
    return text;
}

Json::Value EntriesJson(const std::vector<DialogueEntry>& entries) {
    Json::Value list(Json::arrayValue);
    for (const DialogueEntry& entry : entries) {
        Json::Value item(Json::objectValue);
        item["time_us"] = Json::Int64(entry.wallUs);
        item["protocol"] = Utf8(entry.protocol);
        item["to_device"] = entry.toDevice;
        item["local"] = GvxTraceEndText(entry.local);
        item["peer"] = GvxTraceEndText(entry.peer);
        item["text"] = Utf8(entry.text);
        item["left_out"] = Json::UInt64(entry.leftOut);
        list.append(item);
    }
    return list;
}

Json::Value AnswerDialogue(const std::string& device, const std::vector<std::string>& devices) {
    KeptDialogue kept;
    if (!FindDialogue(device, kept)) {
        return Refusal(NoDevice(device, devices));
    }
    Json::Value answer(Json::objectValue);
    answer["device"] = device;
    answer["failing"] = kept.failing;
    answer["began"] = Json::Int64(kept.tBegan);
    answer["ended"] = Json::Int64(kept.tEnded);
    answer["dropped"] = Json::UInt64(kept.dropped);
    answer["dialogues_dropped"] = Json::UInt64(DroppedDialogues());
    answer["episode"] = EntriesJson(kept.episode);
    answer["recent"] = EntriesJson(kept.recent);
    return answer;
}

Json::Value AnswerFetch(const std::string& file, const std::string& from, TraceDesk& desk) {
    std::uint64_t place = 0;
    if (!ReadCount(from, TraceRecorder::kFileBytes, place)) {
        return Refusal(kUse);
    }
    std::string piece;
    std::string reason;
    if (!desk.Read(file, place, piece, reason)) {
        return Refusal(reason);
    }
    std::string text(CBB::CBase64::GetEncodeBinarySize(piece.size()), '\0');
    CBB::CBase64::EncodeBinary(piece.data(), piece.size(), text.data(), text.size());
    Json::Value answer(Json::objectValue);
    answer["file"] = file;
    answer["path"] = desk.Folder() + "/" + file;
    answer["from"] = Json::UInt64(place);
    answer["bytes"] = Json::UInt64(piece.size());
    answer["data"] = text.c_str();
    return answer;
}

Json::Value AnswerStart(const std::string& device, const std::string& seconds, TraceDesk& desk,
                        const std::vector<std::string>& devices) {
    std::uint64_t limit = TraceDesk::kDefaultSeconds;
    if (!seconds.empty() && (!ReadCount(seconds, TraceDesk::kMostSeconds, limit) || limit == 0)) {
        return Refusal("A trace takes 1 to " + std::to_string(TraceDesk::kMostSeconds) + " seconds.");
    }
    if (std::find(devices.begin(), devices.end(), device) == devices.end()) {
        return Refusal(NoDevice(device, devices));
    }
    TraceFacts facts;
    std::string reason;
    if (!desk.Start(device, static_cast<int>(limit), facts, reason)) {
        return Refusal(reason);
    }
    Json::Value answer(Json::objectValue);
    answer["trace"] = FactsJson(facts, desk.Folder());
    return answer;
}

// The file is whole once its thread has ended, which waits for the disk.
ControlAnswer AnswerEnd(const std::shared_ptr<const TraceRecorder>& trace, const std::string& folder,
                        std::int64_t limitMs) {
    const TraceFacts facts = trace->Facts();
    if (facts.running && MonotonicMilliseconds() < limitMs) {
        return {Json::Value(), [=] { return AnswerEnd(trace, folder, limitMs); }};
    }
    ControlAnswer answer;
    answer.value["trace"] = FactsJson(facts, folder);
    return answer;
}

ControlAnswer AnswerStop(const std::string& device, TraceDesk& desk, const std::vector<std::string>& devices) {
    const std::shared_ptr<const TraceRecorder> stopped = desk.Stop(device);
    if (stopped == nullptr) {
        const bool isThere = std::find(devices.begin(), devices.end(), device) != devices.end();
        return {Refusal(isThere ? "Device " + device + " is not traced." : NoDevice(device, devices)), nullptr};
    }
    return AnswerEnd(stopped, desk.Folder(), MonotonicMilliseconds() + kStopLimitMs);
}

}  // namespace

ControlAnswer AnswerTrace(const std::vector<std::string>& words, TraceDesk& desk,
                          const std::vector<std::string>& devices) {
    const std::string command = words.empty() ? "" : words[0];
    if (command == "list" && words.size() == 1) {
        Json::Value answer(Json::objectValue);
        answer["traces"] = Json::arrayValue;
        for (const TraceFacts& facts : desk.List()) {
            answer["traces"].append(FactsJson(facts, desk.Folder()));
        }
        return {answer, nullptr};
    }
    if (command == "start" && (words.size() == 2 || words.size() == 3)) {
        return {AnswerStart(words[1], words.size() == 3 ? words[2] : "", desk, devices), nullptr};
    }
    if (command == "stop" && words.size() == 2) {
        return AnswerStop(words[1], desk, devices);
    }
    if (command == "dialogue" && words.size() == 2) {
        return {AnswerDialogue(words[1], devices), nullptr};
    }
    if (command == "fetch" && words.size() == 3) {
        return {AnswerFetch(words[1], words[2], desk), nullptr};
    }
    return {Refusal(kUse), nullptr};
}

}  // namespace gvx
