#include "plugin_check/drive.h"
#include "plugin_check/journal.h"
#include "plugin_check/verdict.h"

#include <CLI/CLI.hpp>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace plugin_check {

namespace {

constexpr int kKept = 0;
constexpr int kBrokenPromise = 1;
constexpr int kCannotCheck = 3;
constexpr const char* kJournalOption = "--journal";

// The plug-in runs in a process of its own, which this program becomes once more: one that hangs or crashes does not
// take its verdict along.
int Check(int argc, char** argv, std::chrono::milliseconds limit) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        std::perror("gvx-plugin-check");
        return kCannotCheck;
    }
    const std::string journal = std::to_string(ends[1]);
    std::vector<char*> arguments(argv, argv + argc);
    for (const char* more : {kJournalOption, journal.c_str()}) {
        arguments.push_back(const_cast<char*>(more));  // execv changes nothing
    }
    arguments.push_back(nullptr);
    const pid_t drive = fork();
    if (drive == 0) {
        fcntl(ends[1], F_SETFD, 0);
        execv("/proc/self/exe", arguments.data());
        _exit(kCannotCheck);
    }
    if (drive < 0) {
        std::perror("gvx-plugin-check");
        return kCannotCheck;
    }
    close(ends[1]);
    Verdict verdict(limit);
    if (!verdict.Read(ends[0])) {
        kill(drive, SIGKILL);
        waitpid(drive, nullptr, 0);
    } else {
        int status = 0;
        waitpid(drive, &status, 0);
        verdict.Ended(WIFSIGNALED(status) ? WTERMSIG(status) : 0, WIFEXITED(status) ? WEXITSTATUS(status) : 0);
    }
    close(ends[0]);
    return verdict.Print() ? kKept : kBrokenPromise;
}

int Run(int argc, char** argv) {
    DriveOptions options;
    std::string passwordFile;
    unsigned limitMs = 10000;
    int journalEnd = -1;
    CLI::App app(
        "Drives a plug-in as a gateway does, without one, and tells which promises it breaks. 0: it keeps all. "
        "1: a broken promise. 3: wrong use, or something that the check needs is not there.");
    app.add_option("file", options.file, "the plug-in, gvx_plugin_<name>.so")->required();
    app.add_option("--config", options.config, "the plug-in's own configuration file");
    app.add_option("--extend", options.extend, "text for its devices, as in the addition of one");
    app.add_option("--ip", options.ip, "address of the device")->capture_default_str();
    app.add_option("--port", options.port, "port of the device");
    app.add_option("--user", options.user, "user name at the device");
    app.add_option("--password-file", passwordFile, "file whose first line is the password at the device");
    app.add_flag("--changes", options.changes, "call what changes a device, too: reboot, network, passwords and so on");
    app.add_option("--limit", limitMs, "milliseconds that a call may take")
        ->check(CLI::Range(1, 3600000))
        ->capture_default_str();
    app.add_flag("!--no-search", options.search, "leave out the search for devices, which takes some 15 s");
    app.add_flag("--verbose", options.verbose, "warnings and errors of the log to standard error");
    app.add_option(kJournalOption, journalEnd)->group("");  // hidden: the process that drives
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& shown) {  // --help
        return app.exit(shown);
    } catch (const CLI::ParseError& error) {
        std::fprintf(stderr, "gvx-plugin-check: %s; gvx-plugin-check --help tells more\n", error.what());
        return kCannotCheck;
    }
    for (const std::string& file : {options.file, options.config}) {
        if (!file.empty() && access(file.c_str(), R_OK) != 0) {
            std::fprintf(stderr, "gvx-plugin-check: %s: %s\n", file.c_str(), std::strerror(errno));
            return kCannotCheck;
        }
    }
    if (!passwordFile.empty()) {
        std::ifstream file(passwordFile);
        if (!std::getline(file, options.password)) {
            std::fprintf(stderr, "gvx-plugin-check: %s cannot be read\n", passwordFile.c_str());
            return kCannotCheck;
        }
    }
    if (journalEnd < 0) {
        return Check(argc, argv, std::chrono::milliseconds(limitMs));
    }
    Journal journal(journalEnd);
    Drive(options, journal);
    return kKept;
}

}  // namespace

}  // namespace plugin_check

int main(int argc, char** argv) {
    return plugin_check::Run(argc, argv);
}
