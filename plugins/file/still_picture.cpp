#include "file/still_picture.h"

#include "base/clock.h"
#include "base/unique_fd.h"
#include "gvx_common/codec/input_file.h"

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <system_error>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace gvxfile {
namespace {

constexpr std::size_t kMostBytes = 16u * 1024 * 1024;
constexpr std::int64_t kLimitMs = 20000;

// Runs a program without input and takes what it prints. False with one sentence in error.
bool Capture(const char* const* arguments, std::string& output, std::string& error) {
    int ends[2] = {-1, -1};
    if (pipe2(ends, O_CLOEXEC) != 0) {
        error = "A pipe cannot be made: " + std::generic_category().message(errno) + ".";
        return false;
    }
    const gvx::UniqueFd readEnd(ends[0]);
    gvx::UniqueFd writeEnd(ends[1]);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, writeEnd.Get(), STDOUT_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t child = 0;
    const int spawned =
        posix_spawnp(&child, arguments[0], &actions, nullptr, const_cast<char* const*>(arguments), environ);
    posix_spawn_file_actions_destroy(&actions);
    writeEnd.Reset();
    if (spawned != 0) {
        error = std::string(arguments[0]) + " cannot be run: " + std::generic_category().message(spawned) + ".";
        return false;
    }
    const std::int64_t endMs = gvx::MonotonicMilliseconds() + kLimitMs;
    bool whole = false;
    char buffer[4096];  // the worker of snapshots has a small stack
    while (!whole && output.size() <= kMostBytes) {
        pollfd readable{readEnd.Get(), POLLIN, 0};
        const std::int64_t left = endMs - gvx::MonotonicMilliseconds();
        if (left <= 0 || poll(&readable, 1, static_cast<int>(left)) <= 0) {
            break;
        }
        const ssize_t count = read(readEnd.Get(), buffer, sizeof buffer);
        if (count < 0) {
            break;
        }
        whole = count == 0;
        output.append(buffer, static_cast<std::size_t>(count));
    }
    int status = 0;
    if (!whole) {
        kill(child, SIGKILL);
    }
    while (waitpid(child, &status, 0) == -1 && errno == EINTR) {
    }
    if (!whole || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        error = std::string(arguments[0]) + (whole ? " failed." : " did not end in time.");
        return false;
    }
    return true;
}

}  // namespace

gvxplugin::PictureBytes StillPicture::Get(std::string& error) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_bytes != nullptr) {
        return m_bytes;
    }
    std::string bytes;
    if (!m_picturePath.empty()) {
        if (!gvx::ReadWholeFile(m_picturePath, kMostBytes, bytes, error)) {
            return nullptr;
        }
    } else {
        const std::string input = "file:" + m_videoPath;
        const char* const format = m_codec == gvx::Codec::H264 ? "h264" : "hevc";
        const char* const arguments[] = {"ffmpeg", "-nostdin",    "-v",        "error",      "-f",     format,
                                         "-i",     input.c_str(), "-frames:v", "1",          "-q:v",   "2",
                                         "-c:v",   "mjpeg",       "-f",        "image2pipe", "pipe:1", nullptr};
        if (!Capture(arguments, bytes, error)) {
            error = "The picture of " + m_videoPath + " cannot be decoded: " + error;
            return nullptr;
        }
    }
    constexpr const char* kJpegBegin = "\xFF\xD8";
    if (bytes.compare(0, 2, kJpegBegin) != 0) {
        error = (m_picturePath.empty() ? "What ffmpeg made of " + m_videoPath : m_picturePath) + " is no JPEG.";
        return nullptr;
    }
    m_bytes = std::make_shared<const std::string>(std::move(bytes));
    return m_bytes;
}

}  // namespace gvxfile
