#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include <stdlib.h>

// The top of the source tree, wherever the compiler was called from.
std::filesystem::path SourceTree();

// A folder of a test's own, removed with all that is in it.
class TempFolder {
public:
    TempFolder() {
        std::string pattern = (std::filesystem::temp_directory_path() / "gvx_test_XXXXXX").string();
        if (mkdtemp(pattern.data()) != nullptr) {
            m_path = pattern;
        }
    }
    ~TempFolder() {
        std::error_code ignored;
        if (!m_path.empty()) {
            std::filesystem::remove_all(m_path, ignored);
        }
    }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    std::string Path() const { return m_path.string(); }
    std::string Path(const std::string& name) const { return (m_path / name).string(); }

    std::string Write(const std::string& name, const std::string& content) const {
        std::ofstream(Path(name), std::ios::binary | std::ios::trunc) << content;
        return Path(name);
    }
    std::string Read(const std::string& name) const {
        std::ifstream file(Path(name), std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    }

private:
    std::filesystem::path m_path;
};

// Sets an environment variable for a scope.
class ScopedEnvironment {
public:
    ScopedEnvironment(const char* name, const std::string& value) : m_name(name) {
        const char* former = getenv(name);
        m_wasSet = former != nullptr;
        m_former = m_wasSet ? former : "";
        setenv(name, value.c_str(), 1);
    }
    ~ScopedEnvironment() {
        if (m_wasSet) {
            setenv(m_name.c_str(), m_former.c_str(), 1);
        } else {
            unsetenv(m_name.c_str());
        }
    }
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

private:
    std::string m_name;
    std::string m_former;
    bool m_wasSet = false;
};
