#include "gvx_common/config/gvx_config.h"

#include "base/bounded_string.h"
#include "base/log.h"
#include "base/whole_file.h"
#include "gvx_common/config/config_rules.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

struct CloseFile {
    void operator()(FILE* file) const { std::fclose(file); }
};
using FilePtr = std::unique_ptr<FILE, CloseFile>;
using TextBuffer = std::unique_ptr<char[]>;

constexpr std::size_t kMaxFileBytes = 4u * 1024u * 1024u;  // far above any real file; bounds a wrong path
constexpr const char* kTrimmed = "\r\n \t";

// Opens a regular file and no other kind, without waiting: a pipe in its place would block the caller for good. Null
// when it cannot; what stands in the file stays.
FilePtr OpenRegular(const char* path, int flags) {
    constexpr mode_t kNewFileMode = 0666;  // less the mask of the process
    const int fd = open(path, flags | O_NONBLOCK | O_CLOEXEC, kNewFileMode);
    if (fd == -1) {
        return nullptr;
    }
    struct stat status {};
    const bool regular = fstat(fd, &status) == 0 && S_ISREG(status.st_mode);
    FilePtr file(regular ? fdopen(fd, "r+") : nullptr);
    if (!file) {
        close(fd);
        errno = EINVAL;
    }
    return file;
}

TextBuffer MakeBuffer(std::size_t bytes) {
    return TextBuffer(new (std::nothrow) char[bytes]());
}

template <typename List, typename Name>
auto FindFirst(List& list, Name List::value_type::*member, const char* name) {
    return std::find_if(list.begin(), list.end(), [&](const auto& item) { return item.*member == name; });
}

// A comment that the line limit or a zero byte cuts short gets a line end, or a save would put the next item behind
// it and a later reading would lose that.
std::string WholeComment(const char* line) {
    std::string comment = line;
    if (comment.back() != '\n') {
        comment += '\n';
    }
    return comment;
}

// The line end of a comment that just fills the line belongs to it: as a blank line, it would add one with each save.
void SkipLineEndBehind(const char* line, FILE* file) {
    if (std::strlen(line) < GVX_Config::kLineBytes - 2 || line[GVX_Config::kLineBytes - 3] == '\n') {
        return;
    }
    const int next = std::fgetc(file);
    if (next != '\n' && next != EOF) {
        std::ungetc(next, file);
    }
}

bool WriteComments(FILE* stream, const COMMENT_LIST& comments) {
    return std::all_of(comments.begin(), comments.end(),
                       [stream](const std::string& line) { return std::fprintf(stream, "%s", line.c_str()) >= 0; });
}

bool WriteSection(FILE* stream, const SECTION_ITEM& section) {
    if (!WriteComments(stream, section.ItemComment) || std::fprintf(stream, "[%s]\n", section.Section.c_str()) < 0) {
        return false;
    }
    return std::all_of(section.KvList.begin(), section.KvList.end(), [stream](const KEYVALUE_ITEM& item) {
        return WriteComments(stream, item.ItemComment) &&
               std::fprintf(stream, "%s=%s\n", item.Key.c_str(), item.Value.c_str()) >= 0;
    });
}

}  // namespace

struct GVX_Config::LineBuffers {
    TextBuffer section = MakeBuffer(kSectionBytes);
    TextBuffer key = MakeBuffer(kKeyBytes);
    TextBuffer value = MakeBuffer(kValueBytes);
    TextBuffer line = MakeBuffer(kLineBytes);

    bool Complete() const { return section && key && value && line; }
};

GVX_Config::GVX_Config(const char* filename) : m_strIniFilename(filename == nullptr ? "" : filename) {
    m_secList.clear();
    init();
}

GVX_Config::~GVX_Config() {
    m_strIniFilename.clear();
    m_secList.clear();
}

int GVX_Config::init() {
    struct stat status {};
    if (stat(m_strIniFilename.c_str(), &status) != 0) {
        std::perror("stat");
        return ZVS_FAIL;
    }
    if (m_strIniFilename.size() > kPathBytes - 1) {
        return ZVS_FAIL;
    }
    char resolvedPath[kPathBytes] = {};
    if (realpath(m_strIniFilename.c_str(), resolvedPath) == nullptr || resolvedPath[0] == '\0') {
        return ZVS_FAIL;
    }
    // In one piece: what was read up to a fault is not the file, and written back it would take the rest away.
    std::string content;
    if (!gvx::ReadWholeFile(resolvedPath, kMaxFileBytes, content)) {
        std::perror("fopen");
        GVX_LOG_ERR_CODE("GVX_Config::init", ZVS_OPEN_FILE_ERROR, "Failed to read file [%s], err[%d]", resolvedPath,
                         errno);
        return ZVS_FAIL;
    }
    const FilePtr file(content.empty() ? nullptr : fmemopen(content.data(), content.size(), "r"));
    m_isWhole = content.empty() || (file && ReadLines(file.get()) == ZVS_SUCCEED);
    return m_isWhole ? ZVS_SUCCEED : ZVS_FAIL;
}

int GVX_Config::ReadLines(FILE* file) {
    LineBuffers buffers;
    if (!buffers.Complete()) {
        std::perror("GVX_Config::init");
        return ZVS_FAIL;
    }
    COMMENT_LIST pending;
    while (std::fgets(buffers.line.get(), static_cast<int>(kLineBytes - 1), file) != nullptr) {
        if (buffers.line[0] == ';') {
            SkipLineEndBehind(buffers.line.get(), file);
        }
        TakeLine(buffers, pending);
    }
    return ZVS_SUCCEED;
}

void GVX_Config::TakeLine(LineBuffers& buffers, COMMENT_LIST& pending) {
    switch (buffers.line[0]) {
        case '\r':
        case '\n':
            pending.emplace_back("\n");
            break;
        case ';':
            pending.push_back(WholeComment(buffers.line.get()));
            break;
        case '[':
            TakeSection(buffers, pending);
            break;
        default:
            TakeKey(buffers, pending);
            break;
    }
}

void GVX_Config::TakeSection(LineBuffers& buffers, COMMENT_LIST& pending) {
    const char* name = buffers.line.get() + 1;
    const std::size_t length = std::strcspn(name, "]");
    if (length == 0) {
        return;
    }
    std::memset(buffers.section.get(), 0, kSectionBytes);
    if (strncpy_s(buffers.section.get(), kSectionBytes, name, length) != 0) {
        GVX_LOG_ERR_CODE("GVX_Config::init", ZVS_FAIL, "Section name is too long:%zu.", length);
        return;
    }
    m_secList.push_back(SECTION_ITEM{pending, buffers.section.get(), KV_LIST()});
    pending.clear();
}

void GVX_Config::TakeKey(LineBuffers& buffers, COMMENT_LIST& pending) {
    std::memset(buffers.key.get(), 0, kKeyBytes);
    std::memset(buffers.value.get(), 0, kValueBytes);
    if (GetKeyAndValue(buffers.line.get(), buffers.key.get(), buffers.value.get()) < 1 || m_secList.empty()) {
        return;
    }
    m_secList.back().KvList.push_back(KEYVALUE_ITEM{pending, buffers.key.get(), rtrim(buffers.value.get())});
    pending.clear();
}

int GVX_Config::GetKeyAndValue(const char* line, char* key, char* value) {
    if (line == nullptr || key == nullptr || value == nullptr) {
        return -1;
    }
    const std::size_t keyLength = std::strcspn(line, "=");
    const char* valueBegin = line[keyLength] == '=' ? line + keyLength + 1 : nullptr;
    if (valueBegin == nullptr) {
        return 0;
    }
    const std::size_t valueLength = std::strlen(valueBegin);
    if (keyLength > kKeyBytes - 1 || valueLength > kValueBytes - 1) {
        GVX_LOG_ERR_CODE("GVX_Config::GetKeyAndValue", ZVS_FAIL, "Line is refused, key length[%zu], value length[%zu]",
                         keyLength, valueLength);
        return -1;
    }
    std::memcpy(key, line, keyLength);
    std::memcpy(value, valueBegin, valueLength);
    return static_cast<int>(keyLength);
}

const char* GVX_Config::rtrim(const char* s) const {
    if (s == nullptr) {
        return nullptr;
    }
    const char* begin = s + std::strspn(s, kTrimmed);
    std::size_t length = std::strlen(begin);
    const std::size_t whole = length;
    while (length > 0 && std::strchr(kTrimmed, begin[length - 1]) != nullptr) {
        --length;
    }
    if (length < whole) {
        const_cast<char*>(begin)[length] = '\0';
    }
    return begin;
}

int GVX_Config::get(const char* section, const char* key, char* out, unsigned int outLen) {
    if (section == nullptr || key == nullptr || out == nullptr) {
        return ZVS_FAIL;
    }
    const auto foundSection = FindFirst(m_secList, &SECTION_ITEM::Section, section);
    if (foundSection == m_secList.end()) {
        return ZVS_FAIL;
    }
    const auto foundKey = FindFirst(foundSection->KvList, &KEYVALUE_ITEM::Key, key);
    if (foundKey == foundSection->KvList.end()) {
        return ZVS_FAIL;
    }
    if (strncpy_s(out, outLen, foundKey->Value.c_str(), foundKey->Value.size()) != 0) {
        GVX_LOG_ERR_CODE("GVX_Config::get", ZVS_FAIL, "strncpy_s keyValue failed!");
        return ZVS_FAIL;
    }
    return ZVS_SUCCEED;
}

// The item that may take the value; null with a log line.
KEYVALUE_ITEM* GVX_Config::FindForSet(const char* section, const char* key, const char* value) {
    const auto foundSection = std::find_if(m_secList.begin(), m_secList.end(), [section](const SECTION_ITEM& item) {
        GVX_LOG_INFO("GVX_Config::set", "Section[%s]", item.Section.c_str());
        return item.Section == section;
    });
    if (foundSection == m_secList.end()) {
        GVX_LOG_ERR_CODE("GVX_Config::set", ZVS_FAIL, "Failed not find Section[%s]", section);
        return nullptr;
    }
    const auto foundKey = FindFirst(foundSection->KvList, &KEYVALUE_ITEM::Key, key);
    if (foundKey == foundSection->KvList.end()) {
        GVX_LOG_ERR_CODE("GVX_Config::set", ZVS_FAIL, "Failed not find ItemName[%s]", key);
        return nullptr;
    }
    // The rest of it would be read back as lines of their own.
    if (std::strpbrk(value, "\r\n") != nullptr) {
        GVX_LOG_ERR_CODE("GVX_Config::set", ZVS_FAIL, "The value of [%s] holds a line end", key);
        return nullptr;
    }
    return &*foundKey;
}

int GVX_Config::set(const char* section, const char* key, const char* value) {
    if (section == nullptr || key == nullptr || value == nullptr) {
        return ZVS_PARA_INVALID;
    }
    return set(section, {{key, value}});
}

int GVX_Config::set(const char* section, const std::vector<std::pair<std::string, std::string>>& values) {
    if (section == nullptr) {
        return ZVS_PARA_INVALID;
    }
    std::vector<KEYVALUE_ITEM*> items;
    for (const auto& [key, value] : values) {
        items.push_back(FindForSet(section, key.c_str(), value.c_str()));
        if (items.back() == nullptr) {
            return ZVS_FAIL;
        }
    }
    std::vector<std::string> former;
    for (std::size_t i = 0; i < items.size(); ++i) {
        former.push_back(values[i].second);
        former.back().swap(items[i]->Value);
    }
    const int result = save();
    if (result == ZVS_SUCCEED || result == kNotOnDisk) {
        return result;
    }
    for (std::size_t i = items.size(); i-- > 0;) {
        const auto& [key, value] = values[i];
        GVX_LOG_ERR_CODE("GVX_Config::set", ZVS_FAIL, "Failed to modify the file,NewItemValue[%s],OldValue[%s]",
                         gvx::LoggableValue(key, value.c_str()), gvx::LoggableValue(key, former[i].c_str()));
        items[i]->Value.swap(former[i]);
    }
    return ZVS_FAIL;
}

int GVX_Config::dump(FILE* stream) {
    GVX_CHECK_NULL_RETURN(stream, ZVS_FAIL);
    const bool written = std::all_of(m_secList.begin(), m_secList.end(),
                                     [stream](const SECTION_ITEM& item) { return WriteSection(stream, item); });
    // What is still buffered must reach the file before it may replace the old one: a full disk shows here.
    if (!written || std::fflush(stream) != 0) {
        GVX_LOG_ERR_CODE("GVX_Config::dump", ZVS_FAIL, "fprintf failed, err[%d]", errno);
        return ZVS_FAIL;
    }
    return ZVS_SUCCEED;
}

int GVX_Config::save() {
    GVX_LOG_INFO("GVX_Config::save", "start");
    if (!m_isWhole) {
        GVX_LOG_ERR_CODE("GVX_Config::save", ZVS_FAIL, "[%s] was not read, so it is not written",
                         m_strIniFilename.c_str());
        return ZVS_FAIL;
    }
    const std::string backFile = m_strIniFilename + ".bak";
    GVX_LOG_INFO("GVX_Config::save", "BackFile[%s],Filename[%s]", backFile.c_str(), m_strIniFilename.c_str());
    if (backFile.size() > kPathBytes - 1) {
        GVX_LOG_ERR_CODE("GVX_Config::save", ZVS_FAIL, "Filename length is [%d]", static_cast<int>(backFile.size()));
        return ZVS_FAIL;
    }
    if (WriteSideFile(backFile) != ZVS_SUCCEED) {
        return ZVS_FAIL;
    }
    if (std::rename(backFile.c_str(), m_strIniFilename.c_str()) != 0) {
        GVX_LOG_ERR_CODE("GVX_Config::save", ZVS_FAIL, "failed to rename file from [%s] to [%s], err[%d]",
                         backFile.c_str(), m_strIniFilename.c_str(), errno);
        return ZVS_FAIL;
    }
    const std::size_t slash = m_strIniFilename.rfind('/');
    if (!gvx::SyncFolder(slash == std::string::npos ? "." : m_strIniFilename.substr(0, slash + 1))) {
        GVX_LOG_ERR_CODE(
            "GVX_Config::save", ZVS_WRITE_FILE_ERROR,
            "failed to bring the name of [%s] to the disk, err[%d]; a power loss may bring the old file back",
            m_strIniFilename.c_str(), errno);
        return kNotOnDisk;
    }
    return ZVS_SUCCEED;
}

int GVX_Config::WriteSideFile(const std::string& backFile) {
    char resolvedPath[kPathBytes] = {};
    // The side file normally does not exist yet: the answer is null then, and the buffer names the file all the same.
    const char* answer = realpath(backFile.c_str(), resolvedPath);
    (void)answer;
    if (resolvedPath[0] == '\0') {
        GVX_LOG_ERR_CODE("GVX_Config::save", ZVS_FAIL, "FilePath is null");
        return ZVS_FAIL;
    }
    FilePtr file = OpenRegular(resolvedPath, O_RDWR | O_CREAT);
    if (!file || ftruncate(fileno(file.get()), 0) != 0) {
        std::perror("save::fopen");
        GVX_LOG_ERR_CODE("GVX_Config::save", ZVS_FAIL, "fopen failed,Filename [%s]", resolvedPath);
        return ZVS_FAIL;
    }
    if (dump(file.get()) != ZVS_SUCCEED) {
        GVX_LOG_ERR_CODE("GVX_Config::save", ZVS_FAIL, "failed to dump file [%s]", resolvedPath);
        return ZVS_FAIL;
    }
    const int syncFault = fsync(fileno(file.get())) == 0 ? 0 : errno;
    const int closeFault = std::fclose(file.release()) == 0 ? 0 : errno;
    if (syncFault == 0 && closeFault == 0) {
        return ZVS_SUCCEED;
    }
    // The system may forget what it could not write: a further save must not find this file's pages and call them good.
    unlink(resolvedPath);
    GVX_LOG_ERR_CODE("GVX_Config::save", ZVS_WRITE_FILE_ERROR, "failed to bring file [%s] to the disk, err[%d]",
                     resolvedPath, syncFault != 0 ? syncFault : closeFault);
    return ZVS_FAIL;
}
