#include "plugin_check/journal.h"

#include "base/zvs_error.h"

#include <algorithm>
#include <exception>

#include <unistd.h>

namespace plugin_check {

void Journal::Write(char kind, const std::string& lane, const std::string& operation, std::string rest) {
    std::replace_if(
        rest.begin(), rest.end(), [](unsigned char c) { return c < ' ' && c != '\t'; }, ' ');
    const std::string line = std::string(1, kind) + '\t' + lane + '\t' + operation + '\t' + rest + '\n';
    const std::lock_guard<std::mutex> lock(m_mutex);
    for (std::size_t done = 0; done < line.size();) {
        const ssize_t written = write(m_descriptor, line.data() + done, line.size() - done);
        if (written <= 0) {
            return;  // the judge is gone
        }
        done += static_cast<std::size_t>(written);
    }
}

int Journal::Call(const std::string& lane, const std::string& operation, const std::function<int()>& call) {
    Write(kBegun, lane, operation, {});
    const auto begin = std::chrono::steady_clock::now();
    int code = ZVS_FAIL;
    try {
        code = call();
    } catch (const std::exception& error) {
        Broken(lane, operation, std::string("threw: ") + error.what());
    } catch (...) {
        Broken(lane, operation, "threw something that is no std::exception");
    }
    const auto took = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - begin);
    Write(kEnded, lane, operation, std::to_string(code) + '\t' + std::to_string(took.count()));
    return code;
}

void Journal::MustRefuse(const std::string& lane, const std::string& operation, const std::function<int()>& call) {
    if (Call(lane, operation, call) == ZVS_SUCCEED) {
        Broken(lane, operation, "answers success to what cannot be");
    }
}

void Journal::Broken(const std::string& lane, const std::string& operation, const std::string& text) {
    Write(kBroken, lane, operation, text);
}

void Journal::Figure(const std::string& lane, const std::string& operation, const std::string& text) {
    Write(kFigure, lane, operation, text);
}

}  // namespace plugin_check
