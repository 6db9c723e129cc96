#include "gvxctl/trace_commands.h"

#include "base/base64.h"
#include "base/json_io.h"
#include "base/unique_fd.h"
#include "gvxctl/commands.h"
#include "gvxctl/progress.h"
#include "gvxctl/terminal.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace gvxctl {
namespace {

constexpr int kLookMs = 300;
constexpr std::size_t kMostTraceBytes = 64u << 20;

// A request is words with blanks between them.
bool MayBeAsked(const std::string& word) {
    const bool may = !word.empty() && word.find_first_of(" \t\r\n\v\f") == std::string::npos;
    if (!may) {
        std::fprintf(stderr, "gvxctl: \"%s\": no name for a trace, which is one word\n", PrintableLine(word).c_str());
    }
    return may;
}

bool WriteAll(int file, const std::string& bytes) {
    for (std::size_t done = 0; done < bytes.size();) {
        const ssize_t count = ::write(file, bytes.data() + done, bytes.size() - done);
        if (count < 0 && errno != EINTR) {
            return false;
        }
        done += static_cast<std::size_t>(std::max<ssize_t>(count, 0));
    }
    return true;
}

bool Decoded(const Json::Value& piece, std::string& bytes) {
    const std::string text = gvx::JsonText(piece, "data");
    std::size_t size = CBB::CBase64::GetDecodeBinarySize(text.size());
    bytes.resize(size);
    const bool whole = CBB::CBase64::DecodeBinary(text.data(), text.size(), bytes.data(), size) == 0;
    bytes.resize(size);
    return whole;
}

// The file as far as it goes, whole in memory: what it is copied over goes only then.
bool Fetch(const StatusOptions& gateway, const std::string& file, std::string& path, std::string& content,
           std::string& error) {
    while (content.size() < kMostTraceBytes) {
        Json::Value piece;
        std::string bytes;
        if (!AskGateway(gateway, "trace fetch " + file + " " + std::to_string(content.size()), piece, error)) {
            return false;
        }
        if (!Decoded(piece, bytes)) {
            error = "the gateway's answer is no piece of a file";
            return false;
        }
        if (bytes.empty()) {
            path = gvx::JsonText(piece, "path");
            return true;
        }
        content += bytes;
    }
    error = file + " has no end";
    return false;
}

// Where a copy goes. A file is opened before anything is traced, so that a trace is not in vain, and is as it was, or
// not there again, when there is nothing to copy.
class CopyTarget {
public:
    explicit CopyTarget(std::string name) : m_name(std::move(name)) {}
    ~CopyTarget() {
        if (m_made) {
            ::unlink(m_name.c_str());
        }
    }
    CopyTarget(const CopyTarget&) = delete;
    CopyTarget& operator=(const CopyTarget&) = delete;

    bool Open() {
        m_file.Reset(::open(m_name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0640));
        m_made = m_file.Valid();
        if (!m_made && errno == EEXIST) {
            m_file.Reset(::open(m_name.c_str(), O_WRONLY | O_CLOEXEC));
        }
        if (!m_file.Valid()) {
            std::fprintf(stderr, "gvxctl: %s: %s\n", m_name.c_str(), std::strerror(errno));
        }
        return m_file.Valid();
    }

    // A trace that is copied over itself is left as it is.
    bool Put(const std::string& content, const std::string& tracePath, std::string& error) {
        struct stat own {};
        struct stat trace {};
        if (::fstat(m_file.Get(), &own) == 0 && ::stat(tracePath.c_str(), &trace) == 0 && own.st_dev == trace.st_dev &&
            own.st_ino == trace.st_ino) {
            return true;
        }
        if ((S_ISREG(own.st_mode) && ::ftruncate(m_file.Get(), 0) != 0) || !WriteAll(m_file.Get(), content)) {
            error = m_name + ": " + std::strerror(errno);
            return false;
        }
        m_made = false;
        return true;
    }

private:
    const std::string m_name;
    gvx::UniqueFd m_file;
    bool m_made = false;  // and not filled yet
};

std::string CountsText(const Json::Value& trace) {
    const std::string lost = trace["lost"].asString();
    return trace["messages"].asString() + " messages, " + trace["packets"].asString() + " packets, " +
           trace["frames"].asString() + " frames" + (lost == "0" ? "" : ", " + lost + " lost");
}

// The trace of a device as the list has it; false when it has none.
bool Look(const TraceOptions& options, const std::string& file, Json::Value& trace, std::string& error) {
    Json::Value answer;
    if (!AskGateway(options.gateway, "trace list", answer, error)) {
        return false;
    }
    for (const Json::Value& each : answer["traces"]) {
        if (each["file"].asString() == file) {
            trace = each;
            return true;
        }
    }
    error = file + " is not there any more";
    return false;
}

// An interrupt stops it.
bool WaitEnd(const TraceOptions& options, Json::Value& trace, std::string& error) {
    std::atomic<std::uint64_t> packets{0};
    const Progress progress("tracing " + options.device,
                            [&packets] { return std::to_string(packets.load()) + " packets"; });
    const std::string file = trace["file"].asString();
    while (trace["running"].asBool()) {
        if (!SleepUnlessInterrupted(kLookMs)) {
            Json::Value answer;
            if (!AskGateway(options.gateway, "trace stop " + options.device, answer, error)) {
                return false;
            }
            trace = answer["trace"];
            return true;
        }
        if (!Look(options, file, trace, error)) {
            return false;
        }
        packets = trace["packets"].asUInt64();
    }
    return true;
}

int TakeAndTell(const TraceOptions& options, const Json::Value& trace, CopyTarget& target) {
    std::string path;
    std::string content;
    std::string error;
    if (!Fetch(options.gateway, trace["file"].asString(), path, content, error) || !target.Put(content, path, error)) {
        return Fail(kExitRefused, error);
    }
    if (options.gateway.json) {
        std::fputs(gvx::WriteJson(trace).c_str(), stdout);
    } else {
        std::printf("%s: %s. %s\n", options.out.c_str(), CountsText(trace).c_str(), trace["ended"].asCString());
    }
    return kExitOk;
}

// Without its line end.
std::string Shown(std::string text) {
    text.erase(std::remove(text.begin(), text.end(), '\r'), text.end());
    return PrintableLine(text);
}

std::string TimeText(std::int64_t wallUs) {
    const auto seconds = static_cast<std::time_t>(wallUs / 1000000);
    std::tm local{};
    char text[40] = {};
    ::localtime_r(&seconds, &local);
    const std::size_t length = std::strftime(text, sizeof(text), "%Y-%m-%d %H:%M:%S", &local);
    std::snprintf(text + length, sizeof(text) - length, ".%06d", static_cast<int>(wallUs % 1000000));
    return text;
}

std::string EntryText(const Json::Value& entry) {
    const std::string time = TimeText(entry["time_us"].asInt64());
    std::string text = entry["text"].asString();
    if (entry["protocol"].asString().empty()) {
        return time + "  == " + Shown(text) + "\n\n";
    }
    std::string shown = time + "  " + Shown(entry["protocol"].asString()) +
                        (entry["to_device"].asBool() ? " to " : " from ") + entry["peer"].asString();
    const std::string local = entry["local"].asString();
    shown += local.empty() ? "\n" : " at " + local + "\n";
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        const std::string line = Shown(text.substr(0, end));
        shown += line.empty() ? "\n" : "    " + line + "\n";
        text.erase(0, end + 1);
    }
    if (entry["left_out"].asUInt64() != 0) {
        shown += "    [" + entry["left_out"].asString() + " bytes left out]\n";
    }
    return shown + (shown.substr(shown.size() - 2) == "\n\n" ? "" : "\n");
}

}  // namespace

int RunTraceStart(const TraceOptions& options) {
    if (!MayBeAsked(options.device)) {
        return kExitWrongUse;
    }
    CopyTarget target(options.out);
    if (!options.out.empty() && !target.Open()) {
        return kExitWrongUse;
    }
    Json::Value answer;
    std::string error;
    const std::string request = "trace start " + options.device + " " + std::to_string(options.seconds);
    if (!AskGateway(options.gateway, request, answer, error)) {
        return Fail(kExitRefused, error);
    }
    Json::Value trace = answer["trace"];
    if (!options.out.empty()) {
        return WaitEnd(options, trace, error) ? TakeAndTell(options, trace, target) : Fail(kExitRefused, error);
    }
    if (options.gateway.json) {
        std::fputs(gvx::WriteJson(answer).c_str(), stdout);
    } else {
        std::printf("%s is traced for %d s at most, into %s\n", options.device.c_str(), options.seconds,
                    trace["path"].asCString());
    }
    return kExitOk;
}

int RunTraceStop(const TraceOptions& options) {
    if (!MayBeAsked(options.device)) {
        return kExitWrongUse;
    }
    CopyTarget target(options.out);
    if (!options.out.empty() && !target.Open()) {
        return kExitWrongUse;
    }
    Json::Value answer;
    std::string error;
    if (!AskGateway(options.gateway, "trace stop " + options.device, answer, error)) {
        return Fail(kExitRefused, error);
    }
    const Json::Value& trace = answer["trace"];
    if (trace["path"].asString().empty()) {
        return Fail(kExitRefused, trace["file"].asString() + ": " + trace["ended"].asString());
    }
    if (!options.out.empty()) {
        return TakeAndTell(options, trace, target);
    }
    if (options.gateway.json) {
        std::fputs(gvx::WriteJson(answer).c_str(), stdout);
    } else {
        std::printf("%s: %s. %s\n", trace["path"].asCString(), CountsText(trace).c_str(), trace["ended"].asCString());
    }
    return kExitOk;
}

int RunTraceFetch(const TraceOptions& options) {
    std::string path;
    std::string content;
    std::string error;
    if (!MayBeAsked(options.file)) {
        return kExitWrongUse;
    }
    // No file is made, or emptied, for a trace that there is not.
    if (!Fetch(options.gateway, options.file, path, content, error)) {
        return Fail(kExitRefused, error);
    }
    const std::string& out = options.out.empty() ? options.file : options.out;
    CopyTarget target(out);
    if (!target.Open()) {
        return kExitWrongUse;
    }
    if (!target.Put(content, path, error)) {
        return Fail(kExitRefused, error);
    }
    std::printf("%s\n", out.c_str());
    return kExitOk;
}

int RunTraceDialogue(const TraceOptions& options) {
    if (!MayBeAsked(options.device)) {
        return kExitWrongUse;
    }
    Json::Value answer;
    std::string error;
    if (!AskGateway(options.gateway, "trace dialogue " + options.device, answer, error)) {
        return Fail(kExitRefused, error);
    }
    std::fputs((options.gateway.json ? gvx::WriteJson(answer) : DialogueText(answer)).c_str(), stdout);
    return kExitOk;
}

std::string DialogueText(const Json::Value& answer) {
    const std::int64_t began = answer["began"].asInt64();
    std::string text = answer["device"].asString();
    if (began == 0) {
        text += " has not failed since it was added.";
    } else if (answer["failing"].asBool()) {
        text += " fails since " + TimeText(began * 1000000).substr(0, 19) + ".";
    } else {
        text += " failed from " + TimeText(began * 1000000).substr(0, 19) + " until " +
                TimeText(answer["ended"].asInt64() * 1000000).substr(0, 19) + ".";
    }
    if (answer["dropped"].asUInt64() != 0) {
        text += " " + answer["dropped"].asString() + " messages were dropped.";
    }
    text += "\n\n";
    for (const Json::Value& entry : answer["episode"]) {
        text += EntryText(entry);
    }
    if (!answer["recent"].empty() && !answer["episode"].empty()) {
        text += "Since then:\n\n";
    }
    for (const Json::Value& entry : answer["recent"]) {
        text += EntryText(entry);
    }
    return text;
}

}  // namespace gvxctl
