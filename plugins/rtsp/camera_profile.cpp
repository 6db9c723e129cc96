#include "rtsp/camera_profile.h"

#include "base/json_io.h"
#include "base/log.h"
#include "base/whole_file.h"
#include "gvx_common/codec/input_file.h"
#include "gvx_common/config/config_findings.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <set>
#include <system_error>
#include <utility>

#include <unistd.h>

namespace gvxrtsp {
namespace {

constexpr const char* kTitle = "rtsp plug-in";
constexpr std::size_t kMaxFile = 256 * 1024;
constexpr std::size_t kMaxPath = 200;
constexpr std::size_t kMostFound = 16384;
constexpr const char* kPathTable = "rtsp_paths.json";
constexpr const char* kProfileFolder = "rtsp_profiles";

bool FileExists(const std::string& path) {
    return access(path.c_str(), F_OK) == 0 || errno != ENOENT;
}

bool ReadJsonFile(const std::string& file, std::size_t most, Json::Value& root, std::string& error) {
    std::string text;
    std::string reason;
    if (!gvx::ReadWholeFile(file, most, text, error)) {
        return false;
    }
    if (!gvx::ParseJson(text.data(), text.size(), root, &reason)) {
        error = file + ": " + reason;
        return false;
    }
    return true;
}

// A member that nobody knows is a mistake of its writer: it would do nothing.
bool KnowsMembers(const Json::Value& object, const std::set<std::string>& known, std::string& error) {
    if (!object.isObject()) {
        error = "It is no JSON object.";
        return false;
    }
    for (const std::string& name : object.getMemberNames()) {
        if (known.count(name) == 0) {
            error = "\"" + name + "\" is not known here; known are";
            for (const std::string& one : known) {
                error += " " + one;
            }
            error += ".";
            return false;
        }
    }
    return true;
}

bool IsPath(const std::string& text) {
    const bool printable = std::all_of(text.begin(), text.end(), [](unsigned char c) { return c > ' ' && c < 127; });
    return text.size() <= kMaxPath && printable && (text.empty() || text[0] == '/');
}

bool ReadPath(const Json::Value& object, const char* name, std::string& path, std::string& error) {
    const std::string value = gvx::JsonText(object, name, path);
    if (!IsPath(value)) {
        error =
            "\"" + std::string(name) + "\" is no path: it begins with '/', has no blanks and at most 200 characters.";
        return false;
    }
    path = value;
    return true;
}

bool ReadCount(const Json::Value& root, const char* name, int least, int most, int& count, std::string& error) {
    const long long value = gvx::JsonInt(root, name, count);
    if (value < least || value > most || (root.isMember(name) && !root[name].isIntegral())) {
        error = "\"" + std::string(name) + "\" is not a number from " + std::to_string(least) + " to " +
                std::to_string(most) + ".";
        return false;
    }
    count = static_cast<int>(value);
    return true;
}

bool ReadTransport(const Json::Value& object, CameraTransport& transport, std::string& error) {
    const std::map<std::string, CameraTransport> names = {
        {"auto", CameraTransport::Auto}, {"tcp", CameraTransport::Tcp}, {"udp", CameraTransport::Udp}};
    if (!object.isMember("transport")) {
        return true;
    }
    const auto found = names.find(gvx::JsonText(object, "transport"));
    if (found == names.end()) {
        error = "\"transport\" is none of auto, tcp and udp.";
        return false;
    }
    transport = found->second;
    return true;
}

bool ReadKeepAlive(const Json::Value& object, std::string& method, std::string& error) {
    const std::string name = gvx::JsonText(object, "keepAlive", method);
    if (!name.empty() && name != "OPTIONS" && name != "GET_PARAMETER" && name != "SET_PARAMETER") {
        error = "\"keepAlive\" is none of OPTIONS, GET_PARAMETER and SET_PARAMETER.";
        return false;
    }
    method = name;
    return true;
}

bool ReadProfile(const Json::Value& object, const std::set<std::string>& known, CameraProfile& profile,
                 std::string& error) {
    int httpPort = profile.httpPort;
    if (!KnowsMembers(object, known, error) || !ReadPath(object, "main", profile.paths.main, error) ||
        !ReadPath(object, "sub", profile.paths.sub, error) ||
        !ReadPath(object, "snapshot", profile.paths.snapshot, error) ||
        !ReadTransport(object, profile.transport, error) || !ReadKeepAlive(object, profile.keepAlive, error) ||
        !ReadCount(object, "httpPort", 1, 65535, httpPort, error)) {
        return false;
    }
    profile.httpPort = static_cast<std::uint16_t>(httpPort);
    return true;
}

const std::set<std::string>& ProfileMembers() {
    static const std::set<std::string> names = {"main", "sub", "snapshot", "transport", "keepAlive", "httpPort"};
    return names;
}

}  // namespace

std::string CameraProfile::Url(const std::string& path) const {
    return "rtsp://" + address + ":" + std::to_string(port) + path;
}

bool CameraProfiles::Load(const std::string& configFile, std::string& error) {
    const std::string folder = configFile.substr(0, configFile.find_last_of('/') + 1);
    m_profileFolder = folder + kProfileFolder + "/";
    Json::Value root(Json::objectValue);
    if (FileExists(configFile) && !ReadJsonFile(configFile, kMaxFile, root, error)) {
        return false;
    }
    if (!KnowsMembers(root, {"loginsPerMinute", "lingerSeconds", "noFramesSeconds", "loops"}, error) ||
        !ReadCount(root, "loginsPerMinute", 1, 600, m_loginsPerMinute, error) ||
        !ReadCount(root, "lingerSeconds", 0, 3600, m_lingerSeconds, error) ||
        !ReadCount(root, "noFramesSeconds", 1, 3600, m_noFramesSeconds, error) ||
        !ReadCount(root, "loops", 0, 64, m_loops, error)) {
        error = configFile + ": " + error;
        return false;
    }
    CheckProfiles();
    return LoadPaths(folder + kPathTable, error);
}

// A profile is read when a device names it; what is wrong in one is told before.
void CameraProfiles::CheckProfiles() const {
    std::error_code none;
    for (std::filesystem::directory_iterator entry(m_profileFolder, none), end; !none && entry != end;
         entry.increment(none)) {
        Json::Value stored;
        CameraProfile profile;
        std::string error;
        const std::string file = entry->path().string();
        if (entry->path().extension() == ".json" &&
            (!ReadJsonFile(file, kMaxFile, stored, error) || !ReadProfile(stored, ProfileMembers(), profile, error))) {
            const bool isNamed = error.find(file) != std::string::npos;
            gvx::TellFinding({gvx::ConfigFinding::Weight::Warning, isNamed ? "" : file, 0, error});
        }
    }
}

bool CameraProfiles::LoadPaths(const std::string& file, std::string& error) {
    Json::Value rows(Json::arrayValue);
    if (FileExists(file) && !ReadJsonFile(file, kMaxFile, rows, error)) {
        return false;
    }
    for (const Json::Value& row : rows) {
        CameraProfile profile;
        if (!rows.isArray() || !ReadProfile(row, {"main", "sub", "snapshot"}, profile, error) ||
            profile.paths.main.empty()) {
            error = file + ": a row is no object with \"main\", \"sub\" and \"snapshot\". " + error;
            return false;
        }
        m_usual.push_back(profile.paths);
    }
    if (FileExists(file) && rows.empty()) {
        gvx::TellFinding(
            {gvx::ConfigFinding::Weight::Warning, file, 0, "there is no path in it: \"/\" alone is tried"});
    }
    if (m_usual.empty()) {
        m_usual.push_back({"/", "", ""});
    }
    return true;
}

bool CameraProfiles::Apply(const std::string& extend, CameraProfile& profile, std::string& error) const {
    if (extend.empty()) {
        return true;
    }
    Json::Value root;
    std::string reason;
    if (!gvx::ParseJson(extend.data(), extend.size(), root, &reason)) {
        error = "The extend text is no JSON: " + reason;
        return false;
    }
    if (root.isObject() && root.isMember("profile")) {
        const std::string name = gvx::JsonText(root, "profile");
        Json::Value stored;
        if (name.empty() || name[0] == '.' || name.find('/') != std::string::npos) {
            error = "\"profile\" is no name of a file.";
            return false;
        }
        const std::string file = m_profileFolder + name + ".json";
        if (!ReadJsonFile(file, kMaxFile, stored, error) || !ReadProfile(stored, ProfileMembers(), profile, error)) {
            error = file + ": " + error;
            return false;
        }
        root.removeMember("profile");
    }
    if (!ReadProfile(root, ProfileMembers(), profile, error)) {
        error = "The extend text: " + error;
        return false;
    }
    return true;
}

std::vector<CameraPaths> CameraProfiles::Candidates(const CameraProfile& profile) const {
    if (!profile.paths.main.empty()) {
        return {profile.paths};
    }
    std::vector<CameraPaths> candidates = m_usual;
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto found = m_found.find(profile.Url(""));
    if (found != m_found.end()) {
        candidates.insert(candidates.begin(), found->second);
    }
    return candidates;
}

void CameraProfiles::Remember(const CameraProfile& profile, const CameraPaths& paths) {
    if (!profile.paths.main.empty()) {
        return;
    }
    const std::lock_guard<std::mutex> lock(m_mutex);
    CameraPaths& known = m_found[profile.Url("")];
    if (known.main == paths.main && known.sub == paths.sub && known.snapshot == paths.snapshot) {
        return;
    }
    known = paths;
    m_foundChanged = true;
    if (m_found.size() > kMostFound) {
        m_found.erase(m_found.begin());  // found once more when it is still there
    }
}

std::string CameraProfiles::SnapshotPath(const CameraProfile& profile) const {
    if (!profile.paths.snapshot.empty()) {
        return profile.paths.snapshot;
    }
    if (!profile.paths.main.empty()) {
        const auto row = std::find_if(m_usual.begin(), m_usual.end(),
                                      [&](const CameraPaths& paths) { return paths.main == profile.paths.main; });
        return row == m_usual.end() ? "" : row->snapshot;
    }
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto found = m_found.find(profile.Url(""));
    return found == m_found.end() ? "" : found->second.snapshot;
}

void CameraProfiles::KeepFoundIn(const std::string& file) {
    m_foundFile = file;
    Json::Value root(Json::objectValue);
    std::string error;
    if (!FileExists(file)) {
        return;
    }
    if (!ReadJsonFile(file, gvx::kMaxJsonBytes, root, error) || !root.isObject()) {
        GVX_LOG_WARN(kTitle, "The paths that cameras answered on before are looked for anew. %s", error.c_str());
        return;
    }
    const std::lock_guard<std::mutex> lock(m_mutex);
    for (const std::string& camera : root.getMemberNames()) {
        const Json::Value& row = root[camera];
        const auto path = [&](Json::ArrayIndex index) {
            return row.isArray() && row.size() == 3 && row[index].isString() ? row[index].asString() : std::string("?");
        };
        CameraPaths paths{path(0), path(1), path(2)};
        if (m_found.size() < kMostFound && !paths.main.empty() && IsPath(paths.main) && IsPath(paths.sub) &&
            IsPath(paths.snapshot)) {
            m_found[camera] = std::move(paths);
        }
    }
}

void CameraProfiles::SaveFound() {
    Json::Value root(Json::objectValue);
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_foundFile.empty() || !m_foundChanged) {
            return;
        }
        for (const auto& [camera, paths] : m_found) {
            Json::Value& row = root[camera];
            row.append(paths.main);
            row.append(paths.sub);
            row.append(paths.snapshot);
        }
        m_foundChanged = false;
    }
    if (!gvx::ReplaceWholeFile(m_foundFile, gvx::WriteJson(root))) {
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_foundChanged = true;  // written with the next turn
        }
        if (std::exchange(m_saveFailed, true)) {
            return;
        }
        GVX_LOG_WARN_CODE(kTitle, ZVS_WRITE_FILE_ERROR,
                          "The paths that cameras answered on cannot be kept in %s: they are looked for anew behind a "
                          "restart.",
                          m_foundFile.c_str());
        return;
    }
    m_saveFailed = false;
}

}  // namespace gvxrtsp
