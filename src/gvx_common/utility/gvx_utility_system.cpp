#include "gvx_common/utility/gvx_utility.h"

#include "base/log.h"
#include "base/whole_file.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <system_error>

#include <pthread.h>
#include <unistd.h>

namespace {

constexpr std::size_t kMaxThreadNameLength = 15;

}  // namespace

bool CGvxUtility::fileExist(const std::string& path) {
    return access(path.c_str(), F_OK) == 0;
}

int CGvxUtility::fileWrite(const std::string& path, const std::string& content) {
    FILE* file = std::fopen(path.c_str(), "we");
    if (file == nullptr) {
        GVX_LOG_ERR_CODE("fileWrite", ZVS_OPEN_FILE_ERROR, "fopen failed,Filename [%s], err[%d]", path.c_str(), errno);
        return ZVS_FAIL;
    }
    const bool written = std::fwrite(content.data(), 1, content.size(), file) == content.size();
    if (std::fclose(file) != 0 || !written) {
        GVX_LOG_ERR_CODE("fileWrite", ZVS_WRITE_FILE_ERROR, "write failed,Filename [%s], err[%d]", path.c_str(), errno);
        return ZVS_FAIL;
    }
    return ZVS_SUCCEED;
}

int CGvxUtility::fileRead(const std::string& path, std::string& content, std::size_t maxBytes) {
    if (!gvx::ReadWholeFile(path, maxBytes, content)) {
        GVX_LOG_ERR_CODE("fileRead", ZVS_OPEN_FILE_ERROR, "read failed,Filename [%s]", path.c_str());
        return ZVS_FAIL;
    }
    return ZVS_SUCCEED;
}

int CGvxUtility::fileRemove(const std::string& path) {
    if (unlink(path.c_str()) != 0) {
        GVX_LOG_ERR("fileRemove", "unlink failed,Filename [%s], err[%d]", path.c_str(), errno);
        return ZVS_FAIL;
    }
    return ZVS_SUCCEED;
}

int CGvxUtility::dirCreate(const std::string& path) {
    std::error_code error;
    std::filesystem::create_directories(path, error);
    if (error || !std::filesystem::is_directory(path, error)) {
        GVX_LOG_ERR("dirCreate", "mkdir failed,Dirname [%s], err[%d]", path.c_str(), error.value());
        return ZVS_FAIL;
    }
    return ZVS_SUCCEED;
}

int CGvxUtility::pthreadSetThreadname(const unsigned long* threads, int count, const std::string& name) {
    GVX_CHECK_NULL_RETURN(threads, EINVAL);
    int result = 0;
    for (int i = 0; i < count; ++i) {
        const int one = pthreadSetThreadname(threads[i], name.c_str());
        result = result == 0 ? one : result;
    }
    return result;
}

int CGvxUtility::pthreadSetThreadname(unsigned long thread, const char* name) {
    GVX_CHECK_NULL_RETURN(name, EINVAL);
    char cut[kMaxThreadNameLength + 1] = {};
    std::memcpy(cut, name, strnlen(name, kMaxThreadNameLength));
    const int result = pthread_setname_np(static_cast<pthread_t>(thread), cut);
    if (result != 0) {
        GVX_LOG_WARN("pthreadSetThreadname", "Can not name thread[%s], err[%d]", cut, result);
    }
    return result;
}
