#include "base/paths.h"

#include <cstdlib>

#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr const char* kDefaultConfigFolder = "/etc/gvx";

std::string Environment(const char* name) {
    const char* value = std::getenv(name);
    return value == nullptr ? std::string() : std::string(value);
}

void DropTrailingSlashes(std::string& path, std::size_t keep) {
    while (path.size() > keep && path.back() == '/') {
        path.pop_back();
    }
}

}  // namespace

int get_config_directory(std::string& directory) {
    directory = Environment("GVX_CONFIG_DIR");
    if (directory.empty()) {
        directory = gvx::RootedPath(kDefaultConfigFolder);
    }
    DropTrailingSlashes(directory, 1);
    struct stat status {};
    if (stat(directory.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) {
        return 1;
    }
    return access(directory.c_str(), R_OK | X_OK) == 0 ? 0 : 1;
}

namespace gvx {

std::string RootedPath(const std::string& absolutePath) {
    std::string root = Environment("GVX_ROOT");
    DropTrailingSlashes(root, 0);
    return root + absolutePath;
}

}  // namespace gvx
