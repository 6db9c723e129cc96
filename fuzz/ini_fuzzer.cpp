// The INI store: whatever the file holds, a save keeps what was loaded, and a second save changes nothing more.

#include "fuzz_folder.h"

#include "gvx_common/config/gvx_config.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const FuzzFolder folder;
    const std::string path = folder.Path("a.conf");
    folder.Write("a.conf", std::string(reinterpret_cast<const char*>(data), size));
    char before[9000] = {};
    char after[9000] = {};
    GVX_Config first(path.c_str());
    const int found = first.get("S", "k", before, sizeof(before));
    if (first.save() != 0) {
        std::abort();
    }
    const std::string saved = folder.Read("a.conf");
    GVX_Config second(path.c_str());
    // A header without its bracket takes the line end into its name, and so is not the same when it is read back.
    const bool plain = saved.find("\n]") == std::string::npos;
    if (plain && (second.get("S", "k", after, sizeof(after)) != found || std::string(before) != after)) {
        std::abort();
    }
    const std::string value(reinterpret_cast<const char*>(data), size < 64 ? size : 64);
    const bool oneLine = std::strpbrk(value.c_str(), "\r\n") == nullptr;
    if (plain && second.set("S", "k", value.c_str()) != (found == 0 && oneLine ? 0 : 1)) {
        std::abort();
    }
    return 0;
}
