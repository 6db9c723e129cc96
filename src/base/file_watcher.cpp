#include "base/file_watcher.h"

#include "base/log.h"
#include "base/shortage.h"
#include "base/unique_fd.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <sstream>
#include <thread>
#include <vector>

#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr std::uint32_t kFileEvents = IN_CLOSE_WRITE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE;
constexpr std::uint32_t kFolderEvents = IN_CREATE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE;
constexpr int kNotWatched = -1;
constexpr const char* kTitle = "File watcher";
constexpr int kPollMs = 1000;

// One file. Every folder on its way is watched for the next part of the path, so that a folder that comes later, or is
// moved away and made anew, is noticed.
struct Watch {
    std::vector<std::string> parts;  // of the path; the last is the file
    std::string begin;               // in front of the first: "/" or "./"
    InotifyConfigHandler::Callback callback;
    std::vector<int> numbers;  // for each part, inotify's number of the folder in which it stands
    bool isPolled = false;     // there are no watches for all of its folders
    std::string seen;          // when it was looked at last

    // What changes when the file does; empty when it is not there.
    std::string State() const {
        struct stat now {};
        if (stat((Folder(parts.size() - 1) + parts.back()).c_str(), &now) != 0) {
            return std::string();
        }
        return std::to_string(now.st_dev) + " " + std::to_string(now.st_ino) + " " + std::to_string(now.st_size) + " " +
               std::to_string(now.st_mtim.tv_sec) + "." + std::to_string(now.st_mtim.tv_nsec);
    }

    std::string Folder(std::size_t part) const {
        std::string folder = begin;
        for (std::size_t i = 0; i < part; ++i) {
            folder += parts[i] + "/";
        }
        return folder;
    }
    bool IsOnFolder() const { return numbers.back() != kNotWatched; }
};

Watch MakeWatch(const InotifyConfigHandler& handler) {
    const std::string& path = handler.GetFullFilePath();
    Watch watch;
    watch.begin = path[0] == '/' ? "/" : "./";
    watch.callback = handler.GetCallback();
    std::istringstream parts(path);
    for (std::string part; std::getline(parts, part, '/');) {
        if (!part.empty()) {
            watch.parts.push_back(part);
        }
    }
    watch.numbers.assign(watch.parts.size(), kNotWatched);
    return watch;
}

}  // namespace

class bpInotifyEventWatcher::Impl {
public:
    Impl() : m_stop(eventfd(0, EFD_CLOEXEC)), m_inotify(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)), m_fault(errno) {}

    ~Impl() {
        if (m_thread.joinable()) {
            const std::uint64_t one = 1;
            while (write(m_stop.Get(), &one, sizeof(one)) < 0 && errno == EINTR) {
            }
            m_thread.join();
        }
    }

    bool IsOpen() const { return m_stop.Valid(); }

    int Add(const InotifyConfigHandler& handler) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        Watch watch = MakeWatch(handler);
        if (watch.parts.empty()) {
            GVX_LOG_ERR(kTitle, "%s is no path of a file", handler.GetFullFilePath().c_str());
            return 1;
        }
        Arm(watch);
        if (!watch.isPolled &&
            std::all_of(watch.numbers.begin(), watch.numbers.end(), [](int n) { return n == kNotWatched; })) {
            GVX_LOG_ERR(kTitle, "No folder of %s can be watched: %s", handler.GetFullFilePath().c_str(),
                        std::strerror(errno));
            return 1;
        }
        m_watches.push_back(std::move(watch));
        return StartThread();
    }

private:
    // From the top downwards, so that what comes while this runs is seen by the folder above it.
    void Arm(Watch& watch) const {
        const std::size_t file = watch.parts.size() - 1;
        watch.numbers.assign(watch.parts.size(), kNotWatched);
        for (std::size_t part = 0; part <= file; ++part) {
            const std::uint32_t events = part == file ? kFileEvents : kFolderEvents;
            // A folder may be on the way of several files.
            watch.numbers[part] =
                inotify_add_watch(m_inotify.Get(), watch.Folder(part).c_str(), events | IN_ONLYDIR | IN_MASK_ADD);
            if (watch.numbers[part] != kNotWatched || errno == EACCES) {
                continue;
            }
            if (!m_inotify.Valid() || errno == ENOSPC || errno == ENOMEM) {
                Poll(watch, m_inotify.Valid() ? errno : m_fault);
            }
            return;  // it is not there, and nothing below it
        }
    }

    static void Poll(Watch& watch, int fault) {
        if (!watch.isPolled) {
            GVX_LOG_WARN(kTitle, "The system has no watch left for %s, which is looked at once a second instead: %s",
                         (watch.Folder(watch.parts.size() - 1) + watch.parts.back()).c_str(), std::strerror(fault));
            watch.isPolled = true;
            watch.seen = watch.State();
        }
    }

    void ArmAnew(Watch& watch) {
        const std::vector<int> former = watch.numbers;
        const bool wasOnFolder = watch.IsOnFolder();
        Arm(watch);
        for (const int number : former) {
            if (std::none_of(m_watches.begin(), m_watches.end(), [number](const Watch& w) {
                    return std::find(w.numbers.begin(), w.numbers.end(), number) != w.numbers.end();
                })) {
                inotify_rm_watch(m_inotify.Get(), number);
            }
        }
        if (wasOnFolder != watch.IsOnFolder()) {
            GVX_LOG_INFO(kTitle, "The folder %s %s", watch.Folder(watch.parts.size() - 1).c_str(),
                         wasOnFolder ? "is gone; it is waited for" : "is there; its file is watched");
        }
    }

    int StartThread() {
        if (m_thread.joinable()) {
            return 0;
        }
        try {
            m_thread = std::thread([this] { Run(); });
        } catch (const std::exception& fault) {
            gvx::NoteShortage(fault);
            GVX_LOG_ERR(kTitle, "The thread cannot be made: %s", fault.what());
            m_watches.clear();
            return 1;
        }
        pthread_setname_np(m_thread.native_handle(), "FileWatcher");
        return 0;
    }

    void Run() {
        pollfd waits[] = {{m_inotify.Get(), POLLIN, 0}, {m_stop.Get(), POLLIN, 0}};
        for (;;) {
            if (poll(waits, 2, PollTime()) < 0) {
                if (errno == EINTR) {
                    continue;
                }
                GVX_LOG_ERR(kTitle, "Waiting failed: %s", std::strerror(errno));
                return;
            }
            if ((waits[1].revents & POLLIN) != 0) {
                return;
            }
            ServeEvents();
        }
    }

    // A change that finds no memory is missed; the next one counts again.
    void ServeEvents() {
        try {
            for (const InotifyConfigHandler::Callback& callback : DrainEvents()) {
                callback();
            }
        } catch (const std::exception& fault) {
            GVX_LOG_ERR(kTitle, "A change could not be looked at: %s", fault.what());
        }
    }

    int PollTime() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        const bool polls = std::any_of(m_watches.begin(), m_watches.end(), [](const Watch& w) { return w.isPolled; });
        return polls ? kPollMs : -1;
    }

    // Reads all that is there and gives each callback concerned once.
    std::vector<InotifyConfigHandler::Callback> DrainEvents() {
        alignas(inotify_event) char buffer[8192];
        std::vector<bool> changed;
        const std::lock_guard<std::mutex> lock(m_mutex);
        changed.resize(m_watches.size());
        for (;;) {
            const ssize_t length = read(m_inotify.Get(), buffer, sizeof(buffer));
            if (length <= 0) {
                break;
            }
            MarkChanged(buffer, static_cast<std::size_t>(length), changed);
        }
        std::vector<InotifyConfigHandler::Callback> callbacks;
        for (std::size_t i = 0; i < changed.size(); ++i) {
            if (m_watches[i].isPolled) {
                std::string now = m_watches[i].State();
                changed[i] = changed[i] || now != m_watches[i].seen;
                m_watches[i].seen.swap(now);
            }
            if (changed[i]) {
                callbacks.push_back(m_watches[i].callback);
            }
        }
        return callbacks;
    }

    void MarkChanged(const char* buffer, std::size_t length, std::vector<bool>& changed) {
        for (std::size_t at = 0; at + sizeof(inotify_event) <= length;) {
            inotify_event event;
            std::memcpy(&event, buffer + at, sizeof(event));
            const std::string name(event.len == 0 ? "" : buffer + at + sizeof(event));
            at += sizeof(event) + event.len;
            for (std::size_t i = 0; i < changed.size(); ++i) {
                // Lost events may have been about any file.
                if (Concerns(event, name, m_watches[i])) {
                    changed[i] = true;
                }
            }
        }
    }

    // Whether an event may mean another content of the file; what is watched for it is then up to date.
    bool Concerns(const inotify_event& event, const std::string& name, Watch& watch) {
        bool changed = (event.mask & IN_Q_OVERFLOW) != 0;
        bool moved = changed;
        for (std::size_t part = 0; part < watch.parts.size(); ++part) {
            if (event.wd != watch.numbers[part] || changed) {
                continue;
            }
            const bool isFile = part + 1 == watch.parts.size();
            if ((event.mask & IN_IGNORED) != 0) {
                moved = true;  // the folder is gone; the one above it tells what comes in its place
            } else if (name == watch.parts[part]) {
                changed = (event.mask & (isFile ? kFileEvents : kFolderEvents)) != 0;
                moved = moved || (changed && !isFile);
            }
        }
        if (moved) {
            ArmAnew(watch);
        }
        return changed;
    }

    const gvx::UniqueFd m_stop;
    const gvx::UniqueFd m_inotify;
    const int m_fault;  // why there is no inotify, where there is none
    std::mutex m_mutex;
    std::vector<Watch> m_watches;  // Guarded by m_mutex.
    std::thread m_thread;          // Started under m_mutex, joined by the destructor.
};

bpInotifyEventWatcher::bpInotifyEventWatcher() = default;

bpInotifyEventWatcher::~bpInotifyEventWatcher() = default;

int bpInotifyEventWatcher::AddHandler(const InotifyConfigHandler& handler) {
    if (handler.GetFullFilePath().empty() || !handler.GetCallback()) {
        GVX_LOG_ERR(kTitle, "A handler needs a file path and a callback");
        return 1;
    }
    if (m_impl == nullptr) {
        auto fresh = std::make_unique<Impl>();
        if (!fresh->IsOpen()) {
            gvx::NoteShortage(errno);
            GVX_LOG_ERR(kTitle, "No descriptor for the watcher: %s", std::strerror(errno));
            return 1;
        }
        m_impl = std::move(fresh);
    }
    return m_impl->Add(handler);
}

void bpInotifyEventWatcher::Stop() {
    m_impl.reset();
}
