#include "plugin_check/verdict.h"

#include "base/zvs_error.h"
#include "plugin_check/journal.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <poll.h>
#include <unistd.h>

namespace plugin_check {

namespace {

// A call that takes this many times its limit does not return.
constexpr int kPatience = 4;
constexpr std::size_t kLineWidth = 100;
// Longer than the drive ever waits between two calls.
constexpr std::chrono::seconds kLongestPause(120);
constexpr const char* kNoLane = "its own threads";

bool IsUnsupported(int code) {
    return code == ZVS_GVX_DEV_UN_SUPPORT || code == ZVS_GVX_UNSUPPORT_PTZ_CMD;
}

std::string Seconds(long milliseconds) {
    char text[32];
    std::snprintf(text, sizeof(text), "%.1f s", static_cast<double>(milliseconds) / 1000);
    return text;
}

std::vector<std::string> Fields(const std::string& line) {
    std::vector<std::string> fields;
    std::size_t begin = 0;
    for (std::size_t end; (end = line.find('\t', begin)) != std::string::npos; begin = end + 1) {
        fields.push_back(line.substr(begin, end - begin));
    }
    fields.push_back(line.substr(begin));
    return fields;
}

}  // namespace

std::chrono::milliseconds Verdict::TimeLeft(std::string& lane) const {
    const auto now = std::chrono::steady_clock::now();
    lane = kNoLane;
    auto least = std::chrono::duration_cast<std::chrono::milliseconds>(m_lastLine + kLongestPause - now);
    for (const auto& [name, call] : m_open) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(call.since + m_limit * kPatience - now);
        if (left < least) {
            least = left;
            lane = name;
        }
    }
    return least;
}

bool Verdict::Read(int descriptor) {
    char buffer[4096];
    while (true) {
        std::string lane;
        const auto left = TimeLeft(lane);
        if (left.count() <= 0) {
            if (lane == kNoLane) {
                Break(lane, m_done ? "the end of the process" : "between two calls", "nothing goes on");
            } else {
                Break(lane, m_open[lane].operation, "has not returned for " + Seconds((m_limit * kPatience).count()));
            }
            return false;
        }
        pollfd waiting{descriptor, POLLIN, 0};
        if (poll(&waiting, 1, static_cast<int>(std::min<long long>(left.count(), 1000))) <= 0) {
            continue;
        }
        const ssize_t got = read(descriptor, buffer, sizeof(buffer));
        if (got <= 0) {
            return true;
        }
        m_lastLine = std::chrono::steady_clock::now();
        m_rest.append(buffer, static_cast<std::size_t>(got));
        for (std::size_t end; (end = m_rest.find('\n')) != std::string::npos; m_rest.erase(0, end + 1)) {
            Take(m_rest.substr(0, end));
        }
    }
}

Verdict::Operation& Verdict::Find(const std::string& name) {
    const auto found = std::find_if(m_operations.begin(), m_operations.end(),
                                    [&name](const Operation& operation) { return operation.name == name; });
    if (found != m_operations.end()) {
        return *found;
    }
    m_operations.push_back({name, {}, 0});
    return m_operations.back();
}

void Verdict::Break(const std::string& lane, const std::string& operation, const std::string& text) {
    const std::string sentence = operation + " (" + lane + "): " + text;
    if (std::find(m_broken.begin(), m_broken.end(), sentence) == m_broken.end()) {
        m_broken.push_back(sentence);
    }
}

void Verdict::Take(const std::string& line) {
    const std::vector<std::string> fields = Fields(line);
    if (fields.size() < 4) {
        return;
    }
    const std::string& lane = fields[1];
    const std::string& operation = fields[2];
    switch (line.front()) {
        case kPlugin:
            m_plugin = fields[3];
            break;
        case kBegun:
            Find(operation);
            m_open[lane] = {operation, std::chrono::steady_clock::now()};
            break;
        case kEnded: {
            m_open.erase(lane);
            Operation& row = Find(operation);
            const long took = std::strtol(fields.back().c_str(), nullptr, 10);
            ++row.answers[static_cast<int>(std::strtol(fields[3].c_str(), nullptr, 10))];
            row.longestMs = std::max(row.longestMs, took);
            if (took > m_limit.count()) {
                Break(lane, operation, "took " + Seconds(took) + ", its limit is " + Seconds(m_limit.count()));
            }
            break;
        }
        case kBroken:
            Break(lane, operation, fields[3]);
            break;
        case kFigure:
            m_figures.push_back(operation + " (" + lane + "): " + fields[3]);
            break;
        case kAllDone:
            m_done = true;
            break;
        default:
            break;
    }
}

void Verdict::Ended(int signal, int code) {
    if (m_done && signal == 0 && code == 0) {
        return;
    }
    const std::string how = signal != 0 ? std::string("ended the process: ") + strsignal(signal)
                                        : "ended the process with code " + std::to_string(code);
    if (m_open.empty()) {
        Break(kNoLane, m_done ? "the end of the process" : "between two calls", how);
    }
    for (const auto& [lane, call] : m_open) {
        Break(lane, call.operation, how);
    }
}

bool Verdict::Print() const {
    std::printf("%s\n\n%-44s %9s  answers\n", m_plugin.c_str(), "operation", "longest");
    std::string unsupported;
    std::size_t width = 0;
    for (const Operation& row : m_operations) {
        const bool alwaysUnsupported =
            !row.answers.empty() && std::all_of(row.answers.begin(), row.answers.end(),
                                                [](const auto& one) { return IsUnsupported(one.first); });
        if (alwaysUnsupported && row.name.find(' ') == std::string::npos) {
            width = width + row.name.size() + 1 > kLineWidth ? 0 : width;
            unsupported += (width == 0 ? "\n    " : " ") + row.name;
            width += row.name.size() + 1;
            continue;
        }
        std::string answers;
        for (const auto& [code, times] : row.answers) {
            answers += (answers.empty() ? "" : ", ") + (code == 0 ? std::string("ok") : ZvsErrorName(code)) +
                       (times > 1 ? " x" + std::to_string(times) : "");
        }
        std::printf("%-44s %6ld ms  %s\n", row.name.c_str(), row.longestMs, answers.empty() ? "none" : answers.c_str());
    }
    std::printf("\nnot supported:%s\n\n", unsupported.empty() ? " none" : unsupported.c_str());
    for (const std::string& figure : m_figures) {
        std::printf("%s\n", figure.c_str());
    }
    std::printf("\nbroken promises: %s\n", m_broken.empty() ? "none" : std::to_string(m_broken.size()).c_str());
    for (const std::string& sentence : m_broken) {
        std::printf("    %s\n", sentence.c_str());
    }
    return m_broken.empty();
}

}  // namespace plugin_check
