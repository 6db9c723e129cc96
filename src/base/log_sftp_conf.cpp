#include "base/log_sftp_conf.h"

#include "base/fixed_text.h"
#include "base/json_io.h"
#include "base/log.h"
#include "base/paths.h"
#include "base/random.h"
#include "base/text_cipher.h"
#include "base/whole_file.h"

#include <json/value.h>
#include <openssl/crypto.h>

#include <algorithm>
#include <cerrno>
#include <exception>
#include <memory>
#include <string>

#include <unistd.h>

namespace {

constexpr const char* kTitle = "Log upload settings";
constexpr std::size_t kMaxFileBytes = 64u * 1024u;

std::string FilePath(const char* name) {
    std::string directory;
    return get_config_directory(directory) == 0 ? directory + "/" + name : std::string();
}

bool WritePrivate(const std::string& path, const std::string& content) {
    if (gvx::ReplacePrivateFile(path, content)) {
        return true;
    }
    GVX_LOG_ERR_CODE(kTitle, ZVS_WRITE_FILE_ERROR, "Can not write [%s], err[%d]", path.c_str(), errno);
    return false;
}

// The key for a scope; wiped at its end.
class FileKey {
public:
    ~FileKey() { memset_s(m_key.data(), m_key.size(), 0, m_key.size()); }

    // With make, a missing key is made at random.
    bool Load(bool make) {
        const std::string path = FilePath("log_sftp.key");
        std::string content;
        errno = 0;
        const bool read = !path.empty() && gvx::ReadWholeFile(path, kMaxFileBytes, content);
        m_fault = read ? 0 : errno;
        if (read && content.size() == m_key.size()) {
            std::copy(content.begin(), content.end(), m_key.begin());
            memset_s(content.data(), content.size(), 0, content.size());
            return true;
        }
        // A key of another length, or one that cannot be read now, is not replaced: something may be enciphered under
        // it.
        const bool missing = !read && access(path.c_str(), F_OK) != 0 && errno == ENOENT;
        if (!make || path.empty() || !content.empty() || !(read || missing)) {
            return false;
        }
        if (CBB::GenerateRandom(m_key.data(), m_key.size()) != 0) {
            return false;
        }
        std::string fresh(m_key.begin(), m_key.end());
        const bool written = WritePrivate(path, fresh);
        memset_s(fresh.data(), fresh.size(), 0, fresh.size());
        return written;
    }
    const gvx::CipherKey& Get() const { return m_key; }
    int ReadFault() const { return m_fault; }  // errno, where the file could not be read

private:
    int m_fault = 0;
    gvx::CipherKey m_key{};
};

// The cipher library keeps a random generator for each thread that asked it for one. Reactor threads live to the end
// of the process, so it is given back at once.
struct CipherScope {
    ~CipherScope() { OPENSSL_thread_stop(); }
};

bool TakePassword(const Json::Value& file, LOG_SFTP_CONF& conf, FileKey& key) {
    const std::string stored = gvx::JsonText(file, "Password");
    return stored.empty() ||
           (key.Load(false) && gvx::DecryptText(key.Get(), stored, conf.Password, sizeof(conf.Password)));
}

bool Take(const std::string& content, LOG_SFTP_CONF& conf, FileKey& key) {
    Json::Value file;
    if (!gvx::ParseJson(content.data(), content.size(), file, nullptr) || !file.isObject()) {
        return false;
    }
    const long long port = gvx::JsonInt(file, "ServerPort");
    conf.ServerPort = static_cast<std::uint16_t>(port);
    return port >= 0 && port <= 65535 && gvx::PutText(conf.WorkSpace, gvx::JsonText(file, "WorkSpace")) &&
           gvx::PutText(conf.ServerAddr, gvx::JsonText(file, "ServerAddr")) &&
           gvx::PutText(conf.Username, gvx::JsonText(file, "Username")) && TakePassword(file, conf, key);
}

bool EncipherPassword(const LOG_SFTP_CONF& conf, std::string& stored) {
    std::string clear = gvx::TextOf(conf.Password);
    FileKey key;
    const bool done = clear.empty() || (key.Load(true) && gvx::EncryptText(key.Get(), clear, stored));
    memset_s(clear.data(), clear.capacity(), 0, clear.capacity());
    return done;
}

}  // namespace

int read_log_sftp_conf(LOG_SFTP_CONF* conf) {
    GVX_CHECK_NULL_RETURN(conf, 1);
    memset_s(conf, sizeof(*conf), 0, sizeof(*conf));
    const CipherScope scope;
    const std::string path = FilePath("log_sftp.conf");
    if (path.empty()) {
        GVX_LOG_ERR(kTitle, "There is no configuration folder.");
        return 1;
    }
    if (access(path.c_str(), F_OK) != 0 && errno == ENOENT) {
        return 0;
    }
    std::string content;
    if (!gvx::ReadWholeFile(path, kMaxFileBytes, content)) {
        GVX_LOG_ERR_CODE(kTitle, ZVS_OPEN_FILE_ERROR, "Can not read [%s], err[%d]", path.c_str(), errno);
        return 1;
    }
    FileKey key;
    if (!content.empty() && !Take(content, *conf, key)) {
        if (key.ReadFault() != 0) {
            GVX_LOG_ERR_CODE(kTitle, ZVS_OPEN_FILE_ERROR, "Can not read the key of [%s], err[%d]", path.c_str(),
                             key.ReadFault());
        } else {
            GVX_LOG_ERR(kTitle, "[%s] or its key is damaged.", path.c_str());
        }
        memset_s(conf, sizeof(*conf), 0, sizeof(*conf));
        return 1;
    }
    return 0;
}

int write_log_sftp_conf(const LOG_SFTP_CONF* conf) try {
    GVX_CHECK_NULL_RETURN(conf, 1);
    const CipherScope scope;
    const std::string path = FilePath("log_sftp.conf");
    std::string stored;
    if (path.empty() || !EncipherPassword(*conf, stored)) {
        GVX_LOG_ERR(kTitle, "The password can not be enciphered.");
        return 1;
    }
    Json::Value file(Json::objectValue);
    file["WorkSpace"] = gvx::TextOf(conf->WorkSpace);
    file["ServerAddr"] = gvx::TextOf(conf->ServerAddr);
    file["ServerPort"] = conf->ServerPort;
    file["Username"] = gvx::TextOf(conf->Username);
    file["Password"] = stored;
    return WritePrivate(path, gvx::WriteJson(file)) ? 0 : 1;
} catch (const std::exception& fault) {
    GVX_LOG_ERR(kTitle, "It cannot be written: %s", fault.what());
    return 1;
}
