#include "file/media_list.h"

#include "base/json_io.h"
#include "gvx_common/codec/input_file.h"

#include <cerrno>
#include <iterator>

#include <arpa/inet.h>
#include <sys/stat.h>
#include <unistd.h>

namespace gvxfile {
namespace {

constexpr std::size_t kMaxLenses = 64;

// The entry, checked against its files.
bool MakeEntry(const std::string& name, const Json::Value& object, const MediaFolder& folder, MediaPtr& media,
               std::string& error) {
    auto entry = std::make_shared<MediaEntry>();
    if (!ReadMediaEntry(name, object, folder, *entry, error) || !ProbeMedia(*entry, error)) {
        return false;
    }
    media = std::move(entry);
    return true;
}

bool ApplyPlayOptions(const Json::Value& options, std::vector<MediaPtr>& lenses, std::string& error) {
    if (!options.isMember("speed") && !options.isMember("loop")) {
        return true;
    }
    for (MediaPtr& lens : lenses) {
        auto changed = std::make_shared<MediaEntry>(*lens);
        if (!ReadPlayOptions(options, *changed, error)) {
            return false;
        }
        lens = std::move(changed);
    }
    return true;
}

}  // namespace

bool MediaList::Load(const std::string& configFile, std::string& error) {
    m_media.clear();
    const std::size_t slash = configFile.find_last_of('/');
    m_folder.path = slash == std::string::npos ? "." : configFile.substr(0, slash);
    m_deviceFolder = {m_folder.path, true};
    if (access(configFile.c_str(), F_OK) != 0 && errno == ENOENT) {
        return true;
    }
    std::string text;
    if (!gvx::ReadWholeFile(configFile, gvx::kMaxJsonBytes, text, error)) {
        return false;
    }
    Json::Value root;
    std::string reason;
    if (!gvx::ParseJson(text.data(), text.size(), root, &reason)) {
        error = configFile + " is not valid JSON: " + reason;
        return false;
    }
    if (!root.isObject() || !root["media"].isObject()) {
        error = configFile + " holds no object \"media\".";
        return false;
    }
    if (root.isMember("device_folder")) {
        const std::string folder = gvx::JsonText(root, "device_folder");
        m_deviceFolder.path = !folder.empty() && folder.front() == '/' ? folder : m_folder.path + "/" + folder;
        struct stat status {};
        if (folder.empty() || stat(m_deviceFolder.path.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) {
            error = configFile + ": \"device_folder\" names no folder: '" + folder + "'.";
            return false;
        }
    }
    bool good = KnowsAllMembers(root, {"media", "device_folder", "discovery"}, error);
    for (const std::string& name : root["media"].getMemberNames()) {
        good = good && MakeEntry(name, root["media"][name], m_folder, m_media[name], error);
    }
    if (!good || (root.isMember("discovery") && !ReadDiscovery(root["discovery"], error))) {
        m_media.clear();
        error.insert(0, configFile + ": ");
        return false;
    }
    return true;
}

bool MediaList::ReadDiscovery(const Json::Value& object, std::string& error) {
    constexpr long long kMost = 65536;
    in_addr first{};
    if (object.isObject() && !KnowsAllMembers(object, {"first", "count"}, error)) {
        error.insert(0, "\"discovery\": ");
        return false;
    }
    const long long count =
        object.isObject() ? gvx::JsonInt(object, "count", static_cast<long long>(m_media.size())) : -1;
    if (count < 0 || count > kMost || inet_pton(AF_INET, gvx::JsonText(object, "first").c_str(), &first) != 1 ||
        std::uint64_t{ntohl(first.s_addr)} + static_cast<std::uint64_t>(count) > UINT32_MAX) {
        error = "\"discovery\" is no object with \"first\", an IPv4 address, and \"count\", at most 65536.";
        return false;
    }
    m_firstAddress = ntohl(first.s_addr);
    m_addresses = m_media.empty() ? 0 : static_cast<std::uint32_t>(count);
    return true;
}

MediaPtr MediaList::At(const std::string& address) const {
    in_addr parsed{};
    if (inet_pton(AF_INET, address.c_str(), &parsed) != 1) {
        return nullptr;
    }
    const std::uint32_t place = ntohl(parsed.s_addr) - m_firstAddress;
    return place < m_addresses ? std::next(m_media.begin(), place % m_media.size())->second : nullptr;
}

MediaPtr MediaList::Find(const std::string& name, std::string& error) const {
    const auto found = m_media.find(name);
    if (found == m_media.end()) {
        error = "There is no medium '" + name + "'.";
        return nullptr;
    }
    return found->second;
}

bool MediaList::ResolveNames(const Json::Value& names, std::vector<MediaPtr>& lenses, std::string& error) const {
    Json::Value list(Json::arrayValue);
    if (names.isArray()) {
        list = names;
    } else {
        list.append(names);
    }
    for (const Json::Value& name : list) {
        if (!name.isString()) {
            error = "A name of a medium is not a text.";
            return false;
        }
        MediaPtr media = Find(name.asString(), error);
        if (media == nullptr) {
            return false;
        }
        lenses.push_back(std::move(media));
    }
    return true;
}

bool MediaList::ResolveFiles(const Json::Value& list, std::vector<MediaPtr>& lenses, std::string& error) const {
    if (!list.isArray()) {
        error = "\"lenses\" is not a list.";
        return false;
    }
    for (const Json::Value& object : list) {
        MediaPtr media;
        if (!MakeEntry("lens " + std::to_string(lenses.size()), object, m_deviceFolder, media, error)) {
            return false;
        }
        lenses.push_back(std::move(media));
    }
    return true;
}

bool MediaList::Resolve(const std::string& extendText, std::vector<MediaPtr>& lenses, std::string& error) const {
    lenses.clear();
    Json::Value root;
    std::string reason;
    if (!gvx::ParseJson(extendText.data(), extendText.size(), root, &reason) || !root.isObject()) {
        error = "The extend text is not a JSON object" + (reason.empty() ? std::string(".") : ": " + reason);
        return false;
    }
    if (!KnowsAllMembers(root, {"media", "lenses", "speed", "loop"}, error)) {
        error.insert(0, "The extend text: ");
        return false;
    }
    const Json::Value& media = root["media"];
    const Json::Value& files = root["lenses"];
    if (media.size() + files.size() > kMaxLenses) {
        error = "A device has at most " + std::to_string(kMaxLenses) + " lenses.";
        return false;
    }
    if ((!media.isNull() && !ResolveNames(media, lenses, error)) ||
        (!files.isNull() && !ResolveFiles(files, lenses, error))) {
        return false;
    }
    if (lenses.empty()) {
        error = "The extend text names neither \"media\" nor \"lenses\".";
        return false;
    }
    return ApplyPlayOptions(root, lenses, error);
}

}  // namespace gvxfile
