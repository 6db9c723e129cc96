#include "gvx_common/adapter/plugin_library.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <exception>

#include <dlfcn.h>
#include <unistd.h>

namespace gvx {

namespace {

constexpr std::size_t kMaxNameLength = 32;

template <typename Function>
Function Symbol(void* handle, const char* name) {
    return reinterpret_cast<Function>(dlsym(handle, name));
}

std::string TextOf(const char* text) {
    return text == nullptr ? std::string() : std::string(text);
}

// A library that the plug-in links may export the same name: only the plug-in's own counts.
bool StandTogether(const void* one, const void* other) {
    Dl_info first{};
    Dl_info second{};
    return dladdr(one, &first) != 0 && dladdr(other, &second) != 0 && first.dli_fbase == second.dli_fbase;
}

// The first type by which two layouts differ.
std::string Difference(const GvxPluginLayout& there) {
    const std::uint32_t common = std::min(there.uiTypes, kPluginLayout.uiTypes);
    for (std::uint32_t i = 0; i < common; ++i) {
        const GvxTypeSize& its = there.pTypes[i];
        const GvxTypeSize& ours = kPluginLayout.pTypes[i];
        if (TextOf(its.pName) != ours.pName) {
            break;
        }
        if (its.uiBytes != ours.uiBytes) {
            return " (" + TextOf(ours.pName) + " has " + std::to_string(its.uiBytes) + " bytes there, " +
                   std::to_string(ours.uiBytes) + " here)";
        }
    }
    return there.uiTypes == kPluginLayout.uiTypes ? ""
                                                  : " (" + std::to_string(there.uiTypes) + " types there, " +
                                                        std::to_string(kPluginLayout.uiTypes) + " here)";
}

std::string FaultOfLayout(const GvxPluginLayout& there) {
    if (there.uiAbiVersion == kPluginLayout.uiAbiVersion && LayoutNumber(there) == LayoutNumber(kPluginLayout)) {
        return {};
    }
    return "it was built for plug-in interface " + PluginLibrary::InterfaceText(there) + ", this gateway has " +
           PluginLibrary::InterfaceText(kPluginLayout) + Difference(there) +
           "; build it anew against the installed package";
}

}  // namespace

bool PluginLibrary::IsName(const std::string& name) {
    return !name.empty() && name.size() <= kMaxNameLength && std::all_of(name.begin(), name.end(), [](unsigned char c) {
        return (c >= 'a' && c <= 'z') || std::isdigit(c) != 0 || c == '_' || c == '-';
    });
}

std::string PluginLibrary::InterfaceText(const GvxPluginLayout& layout) {
    char text[32];
    std::snprintf(text, sizeof(text), "%u-%08x", static_cast<unsigned>(layout.uiAbiVersion),
                  static_cast<unsigned>(LayoutNumber(layout)));
    return text;
}

std::optional<PluginLibrary> PluginLibrary::Open(const std::string& path, std::string& fault) try {
    if (access(path.c_str(), R_OK) != 0) {
        fault = "there is no such file, or it cannot be read";
        return std::nullopt;
    }
    void* const handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        fault = TextOf(dlerror());
        return std::nullopt;
    }
    const auto describe = Symbol<GvxDescribePluginFunc>(handle, GVX_PLUGIN_DESCRIBE_SYMBOL);
    if (describe == nullptr) {
        fault = "it does not describe itself";
        return std::nullopt;
    }
    const auto layout = Symbol<GvxGetPluginLayoutFunc>(handle, GVX_PLUGIN_LAYOUT_SYMBOL);
    if (layout == nullptr ||
        !StandTogether(reinterpret_cast<const void*>(layout), reinterpret_cast<const void*>(describe))) {
        fault =
            "it does not tell what it was built against, so it is of an older package; build it anew against the "
            "installed one, with gvx_plugin.h";
        return std::nullopt;
    }
    if (fault = FaultOfLayout(*layout()); !fault.empty()) {
        return std::nullopt;
    }
    const GvxPluginDescription* const description = describe();
    if (description == nullptr) {
        fault = "it does not describe itself";
        return std::nullopt;
    }
    if (description->uiAbiVersion != GVX_PLUGIN_ABI_VERSION) {
        fault = "it was built for plug-in interface " + std::to_string(description->uiAbiVersion) +
                ", this gateway has " + std::to_string(GVX_PLUGIN_ABI_VERSION);
        return std::nullopt;
    }
    PluginLibrary library;
    library.name = TextOf(description->pName);
    library.version = TextOf(description->pVersion);
    library.maker = TextOf(description->pMaker);
    library.create = Symbol<GvxCreateAdapterFunc>(handle, GVX_PLUGIN_CREATE_SYMBOL);
    library.destroy = Symbol<GvxDestroyAdapterFunc>(handle, GVX_PLUGIN_DESTROY_SYMBOL);
    library.lastError = Symbol<GvxPluginLastErrorFunc>(handle, GVX_PLUGIN_LAST_ERROR_SYMBOL);
    library.takeIntake = Symbol<GvxTakeIntakeBlockFunc>(handle, GVX_PLUGIN_TAKE_INTAKE_BLOCK_SYMBOL);
    if (library.create == nullptr || library.destroy == nullptr) {
        fault = "it exports no functions that make and destroy its adapter";
        return std::nullopt;
    }
    return library;
} catch (const std::exception& error) {
    fault = std::string("it threw while it was loaded: ") + error.what();
    return std::nullopt;
} catch (...) {
    fault = "it threw while it was loaded";
    return std::nullopt;
}

}  // namespace gvx
