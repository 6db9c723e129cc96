#include "gateway/admin/control_commands.h"

#include "base/log.h"
#include "gateway/admin/status_json.h"
#include "gateway/admin/trace_commands.h"

#include <algorithm>
#include <cctype>
#include <iterator>
#include <sstream>
#include <vector>

namespace gvx {

namespace {

// The lists by the word that asks for them.
struct ListRow {
    const char* request;
    const char* list;
};
constexpr ListRow kLists[] = {{"devices", "devices"}, {"streams", "streams"}, {"links", "links"},
                              {"alarms", "alarms"},   {"queue", "queues"},    {"plugins", "plugins"}};

std::string LevelName(int level) {
    std::string name = OMLogLevelName(level);
    std::transform(name.begin(), name.end(), name.begin(), [](unsigned char c) { return std::tolower(c); });
    return name;
}

Json::Value Refusal(const std::string& reason) {
    Json::Value answer(Json::objectValue);
    answer["error"] = reason;
    return answer;
}

Json::Value AnswerLevel(const std::vector<std::string>& words) {
    IOMLogger* const logger = OMAdapter::getInstance()->getLogger();
    if (logger == nullptr) {
        return Refusal("There is no log.");
    }
    if (words.size() == 3) {
        int level = OM_LOG_EMERG;
        while (level <= OM_LOG_DEBUG && words[2] != LevelName(level) && words[2] != std::to_string(level)) {
            ++level;
        }
        if (level > OM_LOG_DEBUG) {
            return Refusal("The level is one of 0 to 7, emerg, alert, crit, err, warning, notice, info and debug.");
        }
        if (!logger->SetLevel(level)) {
            return Refusal("The level of this log cannot be changed.");
        }
        GVX_LOG(OM_LOG_NOTICE, "Log level", "%s from now on", LevelName(level).c_str());
    }
    Json::Value answer(Json::objectValue);
    answer["log_level"] = LevelName(logger->Level());
    return answer;
}

}  // namespace

ControlAnswer AnswerControl(const std::string& request, const ControlParts& parts) {
    std::istringstream text(request);
    const std::vector<std::string> words{std::istream_iterator<std::string>(text), {}};
    if (words.size() == 1 && words[0] == "status") {
        return {StatusSummary(parts.collect()), nullptr};
    }
    if (words.size() == 1 && words[0] == "all") {
        return {WholeStatus(parts.collect()), nullptr};
    }
    const auto* const list = std::find_if(std::begin(kLists), std::end(kLists), [&words](const ListRow& row) {
        return words.size() == 1 && words[0] == row.request;
    });
    if (list != std::end(kLists)) {
        Json::Value answer(Json::objectValue);
        answer[list->list] = StatusList(parts.collect(), list->list);
        return {answer, nullptr};
    }
    if ((words.size() == 2 || words.size() == 3) && words[0] == "log" && words[1] == "level") {
        return {AnswerLevel(words), nullptr};
    }
    if (!words.empty() && words[0] == "trace") {
        return AnswerTrace({words.begin() + 1, words.end()}, parts.traces, parts.devices());
    }
    return {
        Refusal("The request is none: status, devices, streams, links, alarms, queue, plugins, all, log level, trace."),
        nullptr};
}

}  // namespace gvx
