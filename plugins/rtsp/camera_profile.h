#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace gvxrtsp {

enum class CameraTransport { Auto, Tcp, Udp };

// One of the streams of a camera.
enum StreamKind { MAIN_STREAM = 0, SUB_STREAM = 1 };
constexpr int kStreamKinds = 2;

// Paths that cameras of one kind use.
struct CameraPaths {
    std::string main;
    std::string sub;       // may be empty
    std::string snapshot;  // may be empty
};

// What is known of one camera before it is asked. Filled when the device is made, then only read.
struct CameraProfile {
    std::string device;   // its code, for what is reported of it; empty for one that is no device yet
    std::string address;  // IPv4
    std::uint16_t port = 554;
    std::string user;
    std::string password;  // enciphered
    CameraPaths paths;     // empty main: the usual ones are tried
    CameraTransport transport = CameraTransport::Auto;
    std::string keepAlive;  // a method; empty: what the camera offers
    std::uint16_t httpPort = 80;

    std::string Url(const std::string& path) const;
};

// The settings of the plug-in, and the paths that are tried for cameras whose paths nobody told. Read once; the paths
// that answered are remembered by any thread.
class CameraProfiles {
public:
    // Reads the configuration file, the table of paths beside it and the folder of profiles. A configuration file that
    // does not exist leaves the defaults. False with one sentence in error, which names file and member.
    bool Load(const std::string& configFile, std::string& error);

    // Completes a profile with a device's extend text: an object with "profile", "main", "sub", "snapshot",
    // "transport", "keepAlive" and "httpPort", or nothing. False with one sentence in error.
    bool Apply(const std::string& extend, CameraProfile& profile, std::string& error) const;

    // The paths to try for a camera: its own, else the one that answered before, else the table. Never empty.
    std::vector<CameraPaths> Candidates(const CameraProfile& profile) const;
    // Takes the paths that answered; those that a camera was added with need not be.
    void Remember(const CameraProfile& profile, const CameraPaths& paths);
    // The path of a camera's picture: its own, else that beside the paths that answered or that it was added with.
    // Empty when none is known.
    std::string SnapshotPath(const CameraProfile& profile) const;

    // Reads the paths that answered before from a file, and lets SaveFound write them there. A file that cannot be
    // read is told in the log and counts as empty. Before any other thread.
    void KeepFoundIn(const std::string& file);
    // Brings the file up to date when it is not, whole and to the disk. Any thread, but not one that must not wait.
    void SaveFound();

    int LoginsPerMinute() const { return m_loginsPerMinute; }
    int LingerSeconds() const { return m_lingerSeconds; }
    int NoFramesSeconds() const { return m_noFramesSeconds; }
    int Loops() const { return m_loops; }

private:
    void CheckProfiles() const;
    bool LoadPaths(const std::string& file, std::string& error);

    std::string m_profileFolder;
    std::vector<CameraPaths> m_usual;
    int m_loginsPerMinute = 10;
    int m_lingerSeconds = 10;
    int m_noFramesSeconds = 10;
    int m_loops = 0;  // 0: by processors

    std::string m_foundFile;    // empty: found paths are not kept
    bool m_saveFailed = false;  // of SaveFound, which one thread at a time calls; told once

    mutable std::mutex m_mutex;                  // guards what follows
    std::map<std::string, CameraPaths> m_found;  // by address and port
    bool m_foundChanged = false;                 // since the file was written
};

}  // namespace gvxrtsp
