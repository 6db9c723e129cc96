#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>

// What to do when one file changes. Filled by its owner and given to a watcher, which keeps a copy.
class InotifyConfigHandler {
public:
    using Callback = std::function<int()>;

    void SetFullFilePath(const std::string& path) { m_fullFilePath = path; }
    void SetCallback(Callback callback) { m_callback = std::move(callback); }
    const std::string& GetFullFilePath() const { return m_fullFilePath; }
    const Callback& GetCallback() const { return m_callback; }

private:
    std::string m_fullFilePath;
    Callback m_callback;
};

// Watches files by way of their folders, so that a file renamed over the watched one, a first creation and a
// deletion are seen as well as a write. A write is reported when the writer closes the file. Where the system's watches
// are used up, one line says so, and the files are looked at once a second instead. One thread of the
// watcher's own runs the callbacks, one call for each burst of changes; their results are not used, and they must not
// throw. The operations belong to one thread at a time, and not to a callback.
class bpInotifyEventWatcher {
public:
    bpInotifyEventWatcher();
    ~bpInotifyEventWatcher();  // as Stop
    bpInotifyEventWatcher(const bpInotifyEventWatcher&) = delete;
    bpInotifyEventWatcher& operator=(const bpInotifyEventWatcher&) = delete;

    // Begins to watch the handler's file. Neither it nor its folder need exist: folders that come later, or are moved
    // away and made anew, are followed. 0 for success; 1 with a log line when the handler has no path or callback, or
    // no folder on the way can be watched. From a success on, no change is missed.
    int AddHandler(const InotifyConfigHandler& handler);

    // Ends the watching for all handlers. No callback runs after the return.
    void Stop();

private:
    class Impl;
    std::unique_ptr<Impl> m_impl;
};
