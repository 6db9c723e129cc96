#include "gateway/admin/trace_desk.h"

#include "base/clock.h"
#include "base/log.h"
#include "gvx_common/utility/gvx_utility.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace gvx {

namespace {

constexpr const char* kEnding = ".pcapng";
constexpr std::string_view kTimeForm = "-00000000T000000Z";  // any digit for each 0
constexpr std::string_view kDigits = "0123456789";

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

bool IsPlain(char c) {
    return IsDigit(c) || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' || c == '-';
}

// A code may hold what a name of a file must not.
std::string PlainName(std::string device) {
    std::replace_if(
        device.begin(), device.end(), [](char c) { return !IsPlain(c); }, '_');
    return device;
}

// One that NewPath makes: whoever keeps a file under another name keeps it for good.
bool IsTraceName(std::string_view name) {
    const std::size_t ending = name.size() - std::min(name.size(), std::strlen(kEnding));
    if (name.substr(ending) != kEnding) {
        return false;
    }
    name.remove_suffix(name.size() - ending);
    const bool isPlain = std::all_of(name.begin(), name.end(), IsPlain);
    const std::size_t number = name.find_last_not_of(kDigits) + 1;
    if (number < name.size() && number > 1 && name[number - 1] == '-') {
        name = name.substr(0, number - 1);
    }
    const std::string_view time = name.substr(name.size() - std::min(name.size(), kTimeForm.size()));
    return isPlain && name.size() > kTimeForm.size() &&
           std::equal(time.begin(), time.end(), kTimeForm.begin(),
                      [](char c, char form) { return form == '0' ? IsDigit(c) : c == form; });
}

}  // namespace

TraceDesk::TraceDesk(std::string folder, std::string application)
    : m_folder(std::move(folder)), m_application(std::move(application)) {}

TraceDesk::~TraceDesk() {
    for (const std::shared_ptr<TraceRecorder>& trace : m_traces) {
        trace->End("The gateway stops.");
    }
    for (const std::shared_ptr<TraceRecorder>& trace : m_traces) {
        trace->Join();
    }
}

bool TraceDesk::Start(const std::string& device, int seconds, TraceFacts& facts, std::string& reason) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    DropThoseGone();
    std::size_t running = 0;
    for (const std::shared_ptr<TraceRecorder>& trace : m_traces) {
        const TraceFacts each = trace->Facts();
        running += each.running ? 1 : 0;
        if (each.running && each.device == device) {
            reason = "Device " + device + " is traced already, into " + each.file + ".";
            return false;
        }
    }
    if (running >= kMostTraces) {
        reason = std::to_string(kMostTraces) + " devices are traced, which is the most at a time.";
        return false;
    }
    CGvxUtility::dirCreate(m_folder);
    MakeRoom();
    const std::shared_ptr<TraceRecorder> made =
        TraceRecorder::Make(device, NewPath(device), seconds, m_application, reason);
    if (made == nullptr) {
        return false;
    }
    m_traces.push_front(made);
    if (!made->Start(reason)) {
        m_traces.pop_front();
        return false;
    }
    facts = made->Facts();
    return true;
}

std::shared_ptr<const TraceRecorder> TraceDesk::Stop(const std::string& device) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto found = std::find_if(m_traces.begin(), m_traces.end(), [&device](const auto& trace) {
        const TraceFacts each = trace->Facts();
        return each.running && each.device == device;
    });
    if (found == m_traces.end()) {
        return nullptr;
    }
    (*found)->End("It was stopped.");
    return *found;
}

std::vector<TraceFacts> TraceDesk::List() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    DropThoseGone();
    std::vector<TraceFacts> list;
    for (const std::shared_ptr<TraceRecorder>& trace : m_traces) {
        list.push_back(trace->Facts());
    }
    return list;
}

bool TraceDesk::Read(const std::string& file, std::uint64_t from, std::string& piece, std::string& reason) {
    const std::string path = m_folder + "/" + file;
    const UniqueFd opened(IsTraceName(file) ? ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK)
                                            : -1);
    struct stat status {};
    if (!opened.Valid() || ::fstat(opened.Get(), &status) != 0 || !S_ISREG(status.st_mode)) {
        reason = "There is no trace " + file + ".";
        return false;
    }
    piece.resize(kPieceBytes);
    const ssize_t count = ::pread(opened.Get(), piece.data(), piece.size(), static_cast<off_t>(from));
    piece.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
    if (count < 0) {
        reason = path + " cannot be read: " + std::strerror(errno) + ".";
        return false;
    }
    const std::uint64_t least = std::max<std::uint64_t>({from + piece.size(), WrittenBytes(file), 1});
    if (::fstat(opened.Get(), &status) != 0 || static_cast<std::uint64_t>(status.st_size) < least) {
        reason = path + " was cut: " + std::to_string(status.st_size) + " bytes are left of at least " +
                 std::to_string(least) + ".";
        return false;
    }
    return true;
}

// Of a trace that has ended; 0 for any other.
std::uint64_t TraceDesk::WrittenBytes(const std::string& file) {
    for (const TraceFacts& facts : List()) {
        if (facts.file == file && !facts.running) {
            return facts.bytes;
        }
    }
    return 0;
}

// Such as "CAM001-20260102T030405Z.pcapng", with a number where that is there already.
std::string TraceDesk::NewPath(const std::string& device) const {
    const std::time_t now = WallSeconds();
    std::tm utc{};
    char time[32] = {};
    ::gmtime_r(&now, &utc);
    std::strftime(time, sizeof(time), "-%Y%m%dT%H%M%SZ", &utc);
    const std::string base = m_folder + "/" + PlainName(device) + time;
    std::string path = base + kEnding;
    for (int number = 2; ::access(path.c_str(), F_OK) == 0; ++number) {
        path = base + "-" + std::to_string(number) + kEnding;
    }
    return path;
}

// A thread that has ended still holds its stack, and whoever moves files away is never short of room for more.
void TraceDesk::DropThoseGone() {
    m_traces.remove_if([this](const std::shared_ptr<TraceRecorder>& trace) {
        const TraceFacts facts = trace->Facts();
        if (facts.running) {
            return false;
        }
        trace->Join();
        return ::access((m_folder + "/" + facts.file).c_str(), F_OK) != 0;
    });
}

// The oldest files go that no running trace writes, until there is room for one more.
void TraceDesk::MakeRoom() {
    std::vector<std::pair<std::filesystem::file_time_type, std::string>> files;
    std::error_code ignored;
    for (std::filesystem::directory_iterator at(m_folder, ignored), end; !ignored && at != end; at.increment(ignored)) {
        const std::string name = at->path().filename().string();
        const bool written = std::any_of(m_traces.begin(), m_traces.end(), [&name](const auto& trace) {
            const TraceFacts facts = trace->Facts();
            return facts.running && facts.file == name;
        });
        if (IsTraceName(name) && !written) {
            files.emplace_back(at->last_write_time(ignored), name);
        }
    }
    const auto running = static_cast<std::size_t>(
        std::count_if(m_traces.begin(), m_traces.end(), [](const auto& trace) { return trace->Facts().running; }));
    std::sort(files.begin(), files.end());
    for (std::size_t i = 0; i < files.size() && files.size() - i + running >= kMostFiles; ++i) {
        if (::unlink((m_folder + "/" + files[i].second).c_str()) == 0) {
            GVX_LOG_INFO("Device trace", "The oldest file goes. [%s]", files[i].second.c_str());
        }
        m_traces.remove_if([&](const auto& trace) { return trace->Facts().file == files[i].second; });
    }
}

}  // namespace gvx
