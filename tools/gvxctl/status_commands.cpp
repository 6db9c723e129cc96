#include "gvxctl/status_commands.h"

#include "base/clock.h"
#include "base/json_io.h"
#include "base/paths.h"
#include "base/unique_fd.h"
#include "gvx_common/config/settings_check.h"
#include "gvxctl/commands.h"
#include "gvxctl/terminal.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <utility>
#include <vector>

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

namespace gvxctl {
namespace {

constexpr time_t kAnswerLimitSeconds = 15;
// Ten thousand devices are some five megabytes.
constexpr gvx::JsonLimits kAnswerLimits{256u << 20, 50000000};

// A value of the answer as text: what plug-ins and peers say stands among them.
std::string Text(const Json::Value& value) {
    return PrintableLine(value.asString());
}

// As the gateway finds it: the configuration goes ahead of the environment.
std::string SocketPath(const StatusOptions& options) {
    std::string path = options.socket;
    std::string folder;
    if (path.empty() && get_config_directory(folder) == 0) {
        gvx::PeekSetting(folder, gvx::Setting::GVX_CONTROL_SOCKET, path);
    }
    return path.empty() ? gvx::DefaultControlSocket() : path;
}

std::string NoGateway(const std::string& path) {
    const bool absent = errno == ENOENT || errno == ECONNREFUSED;
    return path + ": " + std::strerror(errno) + (absent ? "; no gateway runs there" : "");
}

std::string BytesText(double bytes) {
    const char* const units[] = {"B", "kB", "MB", "GB", "TB"};
    std::size_t unit = 0;
    for (; bytes >= 1000 && unit + 1 < std::size(units); ++unit) {
        bytes /= 1000;
    }
    char text[32];
    std::snprintf(text, sizeof(text), unit == 0 ? "%.0f %s" : "%.1f %s", bytes, units[unit]);
    return text;
}

// Two units at most: "3.2 s", "5 min", "2 h 10 min", "3 d 4 h".
std::string AgeText(const Json::Value& ms) {
    if (!ms.isNumeric()) {
        return "-";
    }
    const long long seconds = ms.asInt64() / 1000;
    char text[48];
    if (seconds < 60) {
        std::snprintf(text, sizeof(text), "%.1f s", ms.asDouble() / 1000);
    } else if (seconds < 3600) {
        std::snprintf(text, sizeof(text), "%lld min", seconds / 60);
    } else if (seconds < 86400) {
        std::snprintf(text, sizeof(text), "%lld h %lld min", seconds / 3600, seconds / 60 % 60);
    } else {
        std::snprintf(text, sizeof(text), "%lld d %lld h", seconds / 86400, seconds / 3600 % 24);
    }
    return text;
}

enum class Form { Text, Count, Age, Bytes, Yes };

struct Column {
    const char* heading;
    const char* member;
    Form form;
};

struct Table {
    const char* request;
    const char* list;
    std::vector<Column> columns;
    bool tellsErrors = false;  // the last error stands below its row
};

const std::vector<Table>& Tables() {
    static const std::vector<Table> tables = {{"devices",
                                               "devices",
                                               {{"DEVICE", "code", Form::Text},
                                                {"PLUG-IN", "plugin", Form::Text},
                                                {"STATE", "state", Form::Text},
                                                {"FOR", "state_age_ms", Form::Age},
                                                {"STREAMS", "streams", Form::Count},
                                                {"LOGINS", "login_tries", Form::Count},
                                                {"LAST ERROR", "last_error_age_ms", Form::Age},
                                                {"REASON", "reason", Form::Text}},
                                               true},
                                              {"streams",
                                               "streams",
                                               {{"STREAM", "id", Form::Text},
                                                {"DEVICE", "device", Form::Text},
                                                {"SERVICE", "service", Form::Text},
                                                {"VIDEO", "video", Form::Text},
                                                {"AUDIO", "audio", Form::Text},
                                                {"BY", "transport", Form::Text},
                                                {"TO", "destination", Form::Text},
                                                {"FRAMES", "frames", Form::Count},
                                                {"PACKETS", "packets", Form::Count},
                                                {"SENT", "bytes", Form::Bytes},
                                                {"LOST", "lost", Form::Count},
                                                {"LAST FRAME", "last_frame_age_ms", Form::Age},
                                                {"STATE", "state", Form::Text},
                                                {"ASKED BY", "link", Form::Text}}},
                                              {"links",
                                               "links",
                                               {{"LINK", "id", Form::Text},
                                                {"PEER", "peer", Form::Text},
                                                {"MAIN SERVICE", "main_service", Form::Yes},
                                                {"OURS", "outgoing", Form::Yes},
                                                {"OPEN FOR", "age_ms", Form::Age},
                                                {"IN", "frames_in", Form::Count},
                                                {"OUT", "frames_out", Form::Count},
                                                {"REFUSED", "frames_refused", Form::Count},
                                                {"DROPPED", "frames_dropped", Form::Count},
                                                {"WAITING", "queued_bytes", Form::Bytes}}},
                                              {"alarms",
                                               "alarms",
                                               {{"ALARM", "id", Form::Text},
                                                {"WHAT", "name", Form::Text},
                                                {"OPEN FOR", "age_ms", Form::Age},
                                                {"ABOUT", "info", Form::Text}}},
                                              {"queue",
                                               "queues",
                                               {{"QUEUE", "name", Form::Text},
                                                {"OF", "of", Form::Text},
                                                {"WAITING", "waiting", Form::Count},
                                                {"MOST", "most", Form::Count},
                                                {"SERVED", "served", Form::Count},
                                                {"REFUSED", "refused", Form::Count}}},
                                              {"plugins",
                                               "plugins",
                                               {{"PLUG-IN", "name", Form::Text},
                                                {"VERSION", "version", Form::Text},
                                                {"MAKER", "maker", Form::Text},
                                                {"DEVICES", "devices", Form::Count},
                                                {"CALLS OPEN", "calls", Form::Count},
                                                {"TROUBLES", "troubles", Form::Count}}},
                                              {"trace list",
                                               "traces",
                                               {{"DEVICE", "device", Form::Text},
                                                {"RUNS", "running", Form::Yes},
                                                {"FOR", "age_ms", Form::Age},
                                                {"LEFT", "left_ms", Form::Age},
                                                {"MESSAGES", "messages", Form::Count},
                                                {"PACKETS", "packets", Form::Count},
                                                {"FRAMES", "frames", Form::Count},
                                                {"LOST", "lost", Form::Count},
                                                {"SIZE", "bytes", Form::Bytes},
                                                {"FILE", "file", Form::Text},
                                                {"ENDED", "ended", Form::Text}}}};
    return tables;
}

std::string CellText(const Json::Value& value, Form form) {
    switch (form) {
        case Form::Age:
            return AgeText(value);
        case Form::Bytes:
            return BytesText(value.asDouble());
        case Form::Yes:
            return value.asBool() ? "yes" : "no";
        default:
            break;
    }
    if (value.isArray()) {
        return std::to_string(value.size());
    }
    const std::string text = value.isNull() ? std::string() : Text(value);
    return text.empty() ? "-" : text;
}

// Characters of UTF-8, which may be more bytes.
std::size_t Width(const std::string& text) {
    return static_cast<std::size_t>(
        std::count_if(text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

// A note stands below its row, if it is not empty.
struct Row {
    std::vector<std::string> cells;
    std::string note;
};

std::string Aligned(const std::vector<Column>& columns, const std::vector<Row>& rows) {
    std::vector<std::size_t> widths(columns.size());
    for (const Row& row : rows) {
        for (std::size_t i = 0; i < columns.size(); ++i) {
            widths[i] = std::max(widths[i], Width(row.cells[i]));
        }
    }
    std::string text;
    for (const Row& row : rows) {
        for (std::size_t i = 0; i < columns.size(); ++i) {
            const std::string& cell = row.cells[i];
            const std::string gap(widths[i] - Width(cell), ' ');
            const bool right = columns[i].form == Form::Count || columns[i].form == Form::Bytes;
            const bool last = i + 1 == columns.size();
            text += right ? gap + cell : cell + (last ? "" : gap);
            text += last ? "\n" : "  ";
        }
        text += row.note.empty() ? "" : "    " + row.note + "\n";
    }
    return text;
}

std::string ListTable(const Table& table, const Json::Value& list) {
    if (list.empty()) {
        return std::string("no ") + table.list + "\n";
    }
    std::vector<Row> rows(1);
    for (const Column& column : table.columns) {
        rows[0].cells.emplace_back(column.heading);
    }
    for (const Json::Value& item : list) {
        rows.emplace_back();
        for (const Column& column : table.columns) {
            rows.back().cells.push_back(CellText(item[column.member], column.form));
        }
        if (table.tellsErrors && !Text(item["last_error"]).empty() && item["last_error"] != item["reason"]) {
            rows.back().note = "last error: " + Text(item["last_error"]);
        }
    }
    return Aligned(table.columns, rows);
}

// Open calls and troubles stand below their plug-ins.
std::string PluginDetails(const Json::Value& plugins) {
    std::string text;
    for (const Json::Value& plugin : plugins) {
        for (const Json::Value& call : plugin["calls"]) {
            text += "  " + Text(plugin["name"]) + ": " + Text(call["operation"]) + " of device " +
                    Text(call["device"]) + (call["overdue"].asBool() ? " does not return, " : " runs, ") +
                    AgeText(call["age_ms"]) + "\n";
        }
        for (const Json::Value& trouble : plugin["troubles"]) {
            const std::string said = Text(trouble["text"]);
            text += "  " + Text(plugin["name"]) + ": " + Text(trouble["operation"]) + " of device " +
                    Text(trouble["device"]) + " " + Text(trouble["kind"]) + ", " + Text(trouble["count"]) +
                    " times in " + AgeText(trouble["age_ms"]) + (said.empty() ? "" : ": " + said) + "\n";
        }
    }
    return text;
}

std::string SummaryText(const Json::Value& status) {
    const Json::Value& gateway = status["gateway"];
    const Json::Value& ready = status["ready"];
    const Json::Value& counts = status["counts"];
    const Json::Value& totals = status["totals"];
    const Json::Value& memory = status["memory"];
    std::string text = "gvxd " + Text(gateway["version"]) + "  " + Text(gateway["element"]) + "  pid " +
                       Text(gateway["pid"]) + "  up " + AgeText(gateway["uptime_ms"]) + "  " +
                       BytesText(gateway["resident_bytes"].asDouble()) + "  " + Text(gateway["descriptors"]) +
                       " descriptors  " + Text(gateway["threads"]) + " threads\n";
    text += ready["ready"].asBool() ? "ready" : "not ready";
    const char* next = ": ";
    const auto add = [&](const char* what, const std::string& fault) {
        if (!ready[what].asBool()) {
            text += std::exchange(next, "; ") + fault;
        }
    };
    add("main_service", "no main service is linked");
    add("alarm_store", "the alarm store is not open");
    add("key_files", Text(ready["key_fault"]));
    text += "\n\ndevices  " + Text(counts["devices"]);
    for (const std::string& state : status["device_states"].getMemberNames()) {
        text += "  " + Text(status["device_states"][state]) + " " + PrintableLine(state);
    }
    text += "\nstreams  " + Text(counts["streams"]) + "  " + Text(counts["streams_delivering"]) + " delivering, " +
            Text(totals["streams_started"]) + " since the start: " + Text(totals["frames"]) + " frames, " +
            Text(totals["packets"]) + " packets, " + BytesText(totals["bytes"].asDouble()) + ", " +
            Text(totals["lost"]) + " packets lost\n";
    text += "links    " + Text(counts["links"]) + "  " + Text(totals["links_opened"]) + " opened since the start\n";
    text += "alarms   " + Text(counts["alarms"]) + " open  " + Text(counts["alarms_waiting"]) + " wait for a link, " +
            Text(totals["alarms_lost"]) + " lost\n";
    text += "memory   " + Text(memory["send_blocks_free"]) + " of " + Text(memory["send_blocks"]) +
            " send blocks free, " + Text(memory["pool_blocks_used"]) + " of " + Text(memory["pool_blocks"]) +
            " pool blocks used\n";
    if (counts["threads_silent"].asInt() != 0) {
        text += "event threads that do not answer: " + Text(counts["threads_silent"]) + "\n";
    }
    return text;
}

// Frames and bits a second of each stream since the picture before.
class Rates {
public:
    void Put(Json::Value& streams) {
        const std::int64_t nowMs = gvx::MonotonicMilliseconds();
        const double seconds = static_cast<double>(nowMs - m_lastMs) / 1000;
        std::map<std::string, Counts> counts;
        for (Json::Value& stream : streams) {
            const Counts now{stream["frames"].asDouble(), stream["bytes"].asDouble()};
            const auto before = m_counts.find(Text(stream["id"]));
            if (before != m_counts.end() && seconds > 0) {
                stream["fps"] = Rounded((now.frames - before->second.frames) / seconds);
                stream["mbits"] = Rounded((now.bytes - before->second.bytes) * 8 / 1e6 / seconds);
            }
            counts[Text(stream["id"])] = now;
        }
        m_counts.swap(counts);
        m_lastMs = nowMs;
    }

private:
    struct Counts {
        double frames;
        double bytes;
    };

    static std::string Rounded(double value) {
        char text[32];
        std::snprintf(text, sizeof(text), "%.1f", value);
        return text;
    }

    std::map<std::string, Counts> m_counts;
    std::int64_t m_lastMs = 0;
};

std::string TopText(const Json::Value& status) {
    static const Table streams = {"streams",
                                  "streams",
                                  {{"STREAM", "id", Form::Text},
                                   {"DEVICE", "device", Form::Text},
                                   {"SERVICE", "service", Form::Text},
                                   {"VIDEO", "video", Form::Text},
                                   {"BY", "transport", Form::Text},
                                   {"FRAMES/S", "fps", Form::Count},
                                   {"MBIT/S", "mbits", Form::Count},
                                   {"LOST", "lost", Form::Count},
                                   {"LAST FRAME", "last_frame_age_ms", Form::Age},
                                   {"STATE", "state", Form::Text}}};
    Json::Value failing(Json::arrayValue);
    for (const Json::Value& device : status["devices"]) {
        if (!device["well"].asBool()) {
            failing.append(device);
        }
    }
    std::string text = SummaryText(status) + "\n" + ListTable(streams, status["streams"]);
    if (!failing.empty()) {
        text += "\n" + ListTable(Tables()[0], failing);
    }
    if (!status["alarms"].empty()) {
        text += "\n" + StatusTable("alarms", status);
    }
    return text;
}

}  // namespace

bool AskGateway(const StatusOptions& options, const std::string& request, Json::Value& answer, std::string& error) {
    const std::string path = SocketPath(options);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof(address.sun_path)) {
        error = path + ": too long for a socket";
        return false;
    }
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    const gvx::UniqueFd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const timeval limit{kAnswerLimitSeconds, 0};
    const std::string line = request + "\n";
    if (!socket.Valid() || ::setsockopt(socket.Get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit)) != 0 ||
        ::setsockopt(socket.Get(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof(limit)) != 0 ||
        ::connect(socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
        ::send(socket.Get(), line.data(), line.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(line.size())) {
        error = NoGateway(path);
        return false;
    }
    std::string text;
    char bytes[65536];
    while (text.empty() || text.back() != '\n') {
        const ssize_t count = ::recv(socket.Get(), bytes, sizeof(bytes), 0);
        if (count <= 0 || text.size() > kAnswerLimits.bytes) {
            const bool silent = count < 0 && errno == EAGAIN;
            error = path + ": " +
                    (silent      ? "no answer within " + std::to_string(kAnswerLimitSeconds) + " s"
                     : count < 0 ? std::strerror(errno)
                                 : "the answer has no end");
            return false;
        }
        text.append(bytes, static_cast<std::size_t>(count));
    }
    if (!gvx::ParseJson(text.data(), text.size(), answer, &error, kAnswerLimits)) {
        error = path + ": the answer is no JSON, " + error;
        return false;
    }
    error = gvx::JsonText(answer, "error");
    return error.empty();
}

std::string StatusTable(const std::string& request, const Json::Value& answer) {
    for (const Table& table : Tables()) {
        if (request == table.request) {
            const Json::Value& list = answer[table.list];
            return ListTable(table, list) + (request == "plugins" ? PluginDetails(list) : "");
        }
    }
    return SummaryText(answer);
}

int RunStatus(const StatusOptions& options, const std::string& request) {
    Json::Value answer;
    std::string error;
    if (!AskGateway(options, request, answer, error)) {
        return Fail(kExitRefused, error);
    }
    std::fputs((options.json ? gvx::WriteJson(answer) : StatusTable(request, answer)).c_str(), stdout);
    return kExitOk;
}

int RunLogLevel(const StatusOptions& options) {
    Json::Value answer;
    std::string error;
    if (!AskGateway(options, "log level " + options.level, answer, error)) {
        return Fail(kExitRefused, error);
    }
    std::fputs(options.json ? gvx::WriteJson(answer).c_str() : (Text(answer["log_level"]) + "\n").c_str(), stdout);
    return kExitOk;
}

int RunTop(const StatusOptions& options) {
    const bool inPlace = ::isatty(STDOUT_FILENO) != 0;
    Rates rates;
    for (int shown = 0; options.count == 0 || shown < options.count; ++shown) {
        if (shown != 0 && !SleepUnlessInterrupted(options.periodMs)) {
            return kExitOk;
        }
        Json::Value status;
        std::string error;
        if (!AskGateway(options, "all", status, error)) {
            return Fail(kExitRefused, error);
        }
        rates.Put(status["streams"]);
        const std::string picture = options.json ? gvx::WriteJson(status) : TopText(status);
        std::printf("%s%s",
                    inPlace && !options.json     ? "\033[H\033[2J"
                    : shown == 0 || options.json ? ""
                                                 : "\n",
                    picture.c_str());
        std::fflush(stdout);
    }
    return kExitOk;
}

}  // namespace gvxctl
