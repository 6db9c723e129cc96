#include "gvx_common/security/gvx_security_mgr.h"

#include "base/base64.h"
#include "base/bounded_string.h"
#include "base/file_watcher.h"
#include "base/log.h"
#include "base/paths.h"
#include "base/random.h"
#include "base/text_cipher.h"
#include "base/unique_fd.h"
#include "base/whole_file.h"
#include "gvx_common/config/gvx_config_mgr.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <mutex>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr const char* kTitle = "Security manager";
constexpr const char* kKeyName = "/gvx.key";
constexpr const char* kFormerName = "/gvx_former.key";
constexpr int kCloudEdgeRunMode = 2;
constexpr mode_t kPrivateFolder = 0700;
constexpr mode_t kOtherFolder = 0755;
constexpr mode_t kPrivateFile = 0600;
constexpr mode_t kOthersBits = 077;
// Far above the number of times that a key is replaced in the life of a gateway.
constexpr std::size_t kMostKeys = 64;
constexpr std::size_t kKeyBytes = std::tuple_size<gvx::CipherKey>::value;
constexpr std::size_t kHandleBytes = 18;  // random bytes: 24 characters of base64
constexpr char kHandleMark = '#';         // no character of base64

std::string KeyFolder() {
    return gvx::RootedPath(GvxConfigMgr()->GetRunMode() == kCloudEdgeRunMode ? "/opt/kspedge" : "/opt/ksp");
}

void Wipe(std::string& text) {
    memset_s(text.data(), text.size() + 1, 0, text.size());
    text.clear();
}

// The keys that open what is stored; the first one enciphers. Wiped at their end.
class KeyRing {
public:
    KeyRing() = default;
    ~KeyRing() { Clear(); }
    KeyRing(const KeyRing&) = delete;
    KeyRing& operator=(const KeyRing&) = delete;

    void Clear() {
        memset_s(m_keys.data(), m_keys.size() * kKeyBytes + 1, 0, m_keys.size() * kKeyBytes);
        m_keys.clear();
    }
    bool IsEmpty() const { return m_keys.empty(); }
    const std::vector<gvx::CipherKey>& Keys() const { return m_keys; }
    void Swap(KeyRing& other) { m_keys.swap(other.m_keys); }

    void Append(const char* bytes) {
        // In one piece from the start: a vector that grows would leave copies behind.
        m_keys.reserve(kMostKeys);
        if (m_keys.size() == kMostKeys) {
            return;
        }
        m_keys.emplace_back();
        std::copy(bytes, bytes + kKeyBytes, m_keys.back().begin());
        if (std::find(m_keys.begin(), m_keys.end() - 1, m_keys.back()) != m_keys.end() - 1) {
            memset_s(m_keys.back().data(), kKeyBytes, 0, kKeyBytes);
            m_keys.pop_back();
        }
    }

    std::string Bytes() const {
        std::string bytes;
        bytes.reserve(m_keys.size() * kKeyBytes);
        for (const gvx::CipherKey& key : m_keys) {
            bytes.append(key.begin(), key.end());
        }
        return bytes;
    }

private:
    std::vector<gvx::CipherKey> m_keys;
};

enum class FileState { Missing, Refused, Taken };

// Which file it was and in what state, so that a fault is told once and not at every use.
struct Fingerprint {
    dev_t device = 0;
    ino_t node = 0;
    mode_t mode = 0;
    off_t size = -1;
    std::int64_t changed = 0;

    static Fingerprint Of(const struct stat& status) {
        return {status.st_dev, status.st_ino, status.st_mode, status.st_size,
                status.st_ctim.tv_sec * std::int64_t{1000000000} + status.st_ctim.tv_nsec};
    }
    bool operator==(const Fingerprint& other) const {
        return device == other.device && node == other.node && mode == other.mode && size == other.size &&
               changed == other.changed;
    }
};

// A file of keys as it stands; why says what is wrong with a refused one. lone: exactly one key.
FileState ReadKeys(const std::string& path, bool lone, std::string& bytes, Fingerprint& print, std::string& why) {
    const gvx::UniqueFd file(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC));
    if (!file.Valid()) {
        print = {};
        print.mode = static_cast<mode_t>(errno);
        if (errno == ENOENT) {
            return FileState::Missing;
        }
        why = std::strerror(errno);
        return FileState::Refused;
    }
    struct stat status {};
    if (fstat(file.Get(), &status) != 0) {
        why = std::strerror(errno);
        return FileState::Refused;
    }
    print = Fingerprint::Of(status);
    const auto size = static_cast<std::size_t>(status.st_size);
    if (!S_ISREG(status.st_mode)) {
        why = "it is no regular file";
    } else if (status.st_uid != geteuid()) {
        why = "it belongs to another user";
    } else if ((status.st_mode & kOthersBits) != 0) {
        why = "others than its owner have access to it; its mode must be 0600";
    } else if (lone ? size != kKeyBytes : size == 0 || size % kKeyBytes != 0 || size > kMostKeys * kKeyBytes) {
        why = "its length is " + std::to_string(size) + " bytes, not " + (lone ? "" : "a multiple of ") +
              std::to_string(kKeyBytes);
    } else {
        bytes.assign(size, '\0');
        std::size_t done = 0;
        ssize_t count = 1;
        while (done < size && count > 0) {
            count = read(file.Get(), bytes.data() + done, size - done);
            done += count > 0 ? static_cast<std::size_t>(count) : 0;
        }
        if (done == size && (!lone || std::any_of(bytes.begin(), bytes.end(), [](char c) { return c != '\0'; }))) {
            return FileState::Taken;
        }
        why = done == size ? "it holds nothing but zeroes" : "it can not be read";
        Wipe(bytes);
    }
    return FileState::Refused;
}

bool MakeFolder(const std::string& folder) {
    for (std::size_t slash = folder.find('/', 1);; slash = folder.find('/', slash + 1)) {
        const bool last = slash == std::string::npos;
        if (mkdir(folder.substr(0, slash).c_str(), last ? kPrivateFolder : kOtherFolder) != 0 && errno != EEXIST) {
            return false;
        }
        if (last) {
            return true;
        }
    }
}

// Makes a key file that is whole from the moment it has its name; an errno otherwise. Another process may be first: its
// key counts then.
int MakeKeyFile(const std::string& folder) {
    std::string side = folder + "/gvx.key.XXXXXX";
    if (!MakeFolder(folder)) {
        return errno;
    }
    const gvx::UniqueFd file(mkostemp(side.data(), O_CLOEXEC));
    if (!file.Valid()) {
        return errno;
    }
    gvx::CipherKey key{};
    const bool written = CBB::GenerateRandom(key.data(), key.size()) == 0 && fchmod(file.Get(), kPrivateFile) == 0 &&
                         write(file.Get(), key.data(), key.size()) == static_cast<ssize_t>(key.size()) &&
                         fsync(file.Get()) == 0;
    memset_s(key.data(), key.size(), 0, key.size());
    const bool named = written && (link(side.c_str(), (folder + kKeyName).c_str()) == 0 || errno == EEXIST);
    const int fault = errno != 0 ? errno : EIO;
    unlink(side.c_str());
    gvx::SyncFolder(folder);
    return named ? 0 : fault;
}

}  // namespace

struct CSecurityMgr::State {
    std::mutex mutex;  // Guards all below; no other lock is taken under it but the watcher's.
    std::string folder;
    KeyRing keys;
    Fingerprint complained;     // the file that was refused last
    bool storePending = false;  // the former keys are not all in their store
    std::unique_ptr<bpInotifyEventWatcher> watcher;
    std::map<std::string, std::string> held;  // handle to enciphered form
};

CSecurityMgr::CSecurityMgr() : m_state(std::make_unique<State>()) {}

CSecurityMgr::~CSecurityMgr() {
    UnInit();
}

CSecurityMgr* CSecurityMgr::Instance() {
    // Never deleted: detached threads may still log in to a device while static objects end.
    static CSecurityMgr* const instance = new CSecurityMgr;
    return instance;
}

CSecurityMgr* GvxSecurityMgr() {
    return CSecurityMgr::Instance();
}

int CSecurityMgr::Init() {
    const std::lock_guard<std::mutex> guard(m_state->mutex);
    struct stat status {};
    const bool missing = lstat((KeyFolder() + kKeyName).c_str(), &status) != 0 && errno == ENOENT;
    return missing || ReadyLocked() ? ZVS_SUCCEED : ZVS_FAIL;
}

bool CSecurityMgr::LookAtKeyFiles(std::string& file, std::string& why) {
    for (const char* name : {kKeyName, kFormerName}) {
        file = KeyFolder() + name;
        std::string bytes;
        Fingerprint print;
        const FileState state = ReadKeys(file, name == kKeyName, bytes, print, why);
        Wipe(bytes);
        if (state == FileState::Refused) {
            return false;
        }
    }
    return true;
}

void CSecurityMgr::UnInit() {
    std::unique_ptr<bpInotifyEventWatcher> watcher;  // ends after the lock is gone: its thread may wait for it
    const std::lock_guard<std::mutex> guard(m_state->mutex);
    watcher.swap(m_state->watcher);
    m_state->keys.Clear();
    m_state->folder.clear();
    m_state->held.clear();
}

bool CSecurityMgr::ReadyLocked() {
    const std::string folder = KeyFolder();
    if (folder == m_state->folder && !m_state->keys.IsEmpty()) {
        // A change of its mode alone is not seen by the watcher.
        if (!(m_state->complained == Fingerprint{})) {
            TakeKeyLocked(folder, false);
        }
        if (m_state->storePending) {
            StoreKeysLocked(folder);
        }
        return true;
    }
    if (folder != m_state->folder) {
        m_state->keys.Clear();
        m_state->complained = {};
        m_state->folder = folder;
    }
    if (!TakeKeyLocked(folder, true)) {
        return false;
    }
    InotifyConfigHandler handler;
    handler.SetFullFilePath(folder + kKeyName);
    handler.SetCallback([this] {
        OnKeyFileChanged();
        return 0;
    });
    if (m_state->watcher == nullptr) {
        m_state->watcher = std::make_unique<bpInotifyEventWatcher>();
    }
    if (m_state->watcher->AddHandler(handler) != 0) {
        GVX_LOG_WARN(kTitle, "[%s%s] is not watched: a new key counts after a restart.", folder.c_str(), kKeyName);
    }
    // A key that was replaced before the watching began.
    TakeKeyLocked(folder, false);
    return true;
}

bool CSecurityMgr::TakeKeyLocked(const std::string& folder, bool make) {
    const std::string path = folder + kKeyName;
    std::string bytes;
    std::string why;
    Fingerprint print;
    FileState state = ReadKeys(path, true, bytes, print, why);
    if (state == FileState::Missing && make) {
        if (const int fault = MakeKeyFile(folder)) {
            why = std::strerror(fault);
        } else {
            GVX_LOG_INFO(kTitle, "[%s] is made.", path.c_str());
            state = ReadKeys(path, true, bytes, print, why);
        }
    }
    if (state != FileState::Taken) {
        // A key file that goes away at run time may be on the way to be replaced; the key in force stays.
        if ((state == FileState::Refused || make) && !(print == m_state->complained)) {
            m_state->complained = print;
            GVX_LOG_ERR(kTitle, "The key file [%s] is not taken: %s.", path.c_str(), why.c_str());
        }
        return false;
    }
    m_state->complained = {};
    const bool same = !m_state->keys.IsEmpty() &&
                      std::equal(bytes.begin(), bytes.end(), m_state->keys.Keys().front().begin(),
                                 [](char a, unsigned char b) { return static_cast<unsigned char>(a) == b; });
    if (same) {
        Wipe(bytes);
        return true;
    }
    KeyRing fresh;
    fresh.Append(bytes.data());
    Wipe(bytes);
    for (const gvx::CipherKey& key : m_state->keys.Keys()) {
        fresh.Append(reinterpret_cast<const char*>(key.data()));
    }
    if (!m_state->keys.IsEmpty()) {
        GVX_LOG_INFO(kTitle, "The key of [%s] is replaced.", path.c_str());
    }
    m_state->keys.Swap(fresh);
    StoreKeysLocked(folder);
    return true;
}

// Takes the former keys from their store and puts all back, the one in force too: it may be replaced while nobody
// watches. What can not be stored is tried again with each use, and told once.
void CSecurityMgr::StoreKeysLocked(const std::string& folder) {
    // gvxd and gvxctl may both store: one after the other.
    const gvx::UniqueFd turn(open((folder + kKeyName).c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    while (turn.Valid() && flock(turn.Get(), LOCK_EX) != 0 && errno == EINTR) {
    }
    const std::string path = folder + kFormerName;
    std::string bytes;
    std::string why;
    Fingerprint print;
    const FileState former = ReadKeys(path, false, bytes, print, why);
    if (former == FileState::Refused && !m_state->storePending) {
        GVX_LOG_ERR(kTitle, "The store of former keys [%s] is not taken: %s.", path.c_str(), why.c_str());
    }
    for (std::size_t at = 0; former == FileState::Taken && at < bytes.size(); at += kKeyBytes) {
        m_state->keys.Append(bytes.data() + at);
    }
    std::string all = m_state->keys.Bytes();
    const bool stored = former != FileState::Refused && (all == bytes || gvx::ReplacePrivateFile(path, all));
    if (!stored && former != FileState::Refused && !m_state->storePending) {
        GVX_LOG_ERR_CODE(kTitle, ZVS_WRITE_FILE_ERROR, "Can not write [%s], err[%d]", path.c_str(), errno);
    }
    m_state->storePending = !stored;
    Wipe(all);
    Wipe(bytes);
}

void CSecurityMgr::OnKeyFileChanged() {
    const std::lock_guard<std::mutex> guard(m_state->mutex);
    if (m_state->folder == KeyFolder()) {
        TakeKeyLocked(m_state->folder, false);
    }
}

int CSecurityMgr::DecryptString(const char* enciphered, char* clear, std::uint32_t size) {
    if (clear == nullptr || size == 0) {
        return ZVS_PARA_INVALID;
    }
    *clear = '\0';
    if (enciphered == nullptr) {
        return ZVS_PARA_INVALID;
    }
    const std::lock_guard<std::mutex> guard(m_state->mutex);
    std::string stored = enciphered;
    if (*enciphered == kHandleMark) {
        const auto found = m_state->held.find(stored);
        if (found == m_state->held.end()) {
            return ZVS_FAIL;
        }
        stored = found->second;
    }
    if (!ReadyLocked()) {
        return ZVS_FAIL;
    }
    for (const gvx::CipherKey& key : m_state->keys.Keys()) {
        if (gvx::DecryptText(key, stored, clear, size)) {
            return ZVS_SUCCEED;
        }
    }
    return ZVS_FAIL;
}

int CSecurityMgr::EncryptString(const char* clear, char* enciphered, std::uint32_t size) {
    if (enciphered == nullptr || size == 0) {
        return ZVS_PARA_INVALID;
    }
    *enciphered = '\0';
    if (clear == nullptr) {
        return ZVS_PARA_INVALID;
    }
    std::string text = clear;
    std::string stored;
    bool done = false;
    {
        const std::lock_guard<std::mutex> guard(m_state->mutex);
        done = ReadyLocked() && gvx::EncryptText(m_state->keys.Keys().front(), text, stored);
    }
    Wipe(text);
    return done && strncpy_s(enciphered, size, stored.c_str(), stored.size()) == 0 ? ZVS_SUCCEED : ZVS_FAIL;
}

int CSecurityMgr::Hold(const char* enciphered, char* handle, std::uint32_t size) {
    if (enciphered == nullptr || handle == nullptr) {
        return ZVS_PARA_INVALID;
    }
    unsigned char random[kHandleBytes];
    char text[kHandleSize] = {kHandleMark};
    const std::size_t length = std::strlen(enciphered);
    std::vector<unsigned char> record(CBB::CBase64::GetDecodeBinarySize(length));
    std::size_t bytes = record.size();
    if (size < sizeof(text) || CBB::CBase64::DecodeBinary(enciphered, length, record.data(), bytes) != 0 ||
        bytes < kOverheadBytes || CBB::GenerateRandom(random, sizeof(random)) != 0 ||
        CBB::CBase64::EncodeBinary(random, sizeof(random), text + 1, sizeof(text) - 1) != 0) {
        return ZVS_FAIL;
    }
    const std::lock_guard<std::mutex> guard(m_state->mutex);
    m_state->held[text] = enciphered;
    return memcpy_s(handle, size, text, sizeof(text)) == 0 ? ZVS_SUCCEED : ZVS_FAIL;
}

void CSecurityMgr::Release(const char* handle) {
    if (handle != nullptr && *handle == kHandleMark) {
        const std::lock_guard<std::mutex> guard(m_state->mutex);
        m_state->held.erase(handle);
    }
}
