#pragma once

#include "gvx_common/adapter/gvx_plugin.h"

#include <optional>
#include <string>

namespace gvx {

// The shared object of a plug-in: what it says of itself and the functions that it exports. It stays loaded until the
// process ends, since a thread that the plug-in left behind must still find its code.
struct PluginLibrary {
    // Names become part of a path: 1 to 32 of a-z, 0-9, '_' and '-'.
    static bool IsName(const std::string& name);

    // Loads the file and checks that it is a plug-in of this interface and of the same layout. Nothing when it is not:
    // fault is then one line that tells what is wrong. Runs the object's own constructors, nothing else but
    // GvxGetPluginLayout and GvxDescribePlugin.
    static std::optional<PluginLibrary> Open(const std::string& path, std::string& fault);

    // "2-9d1c03fe": the number of the interface and that of the layout.
    static std::string InterfaceText(const GvxPluginLayout& layout);

    std::string name;
    std::string version;
    std::string maker;
    GvxCreateAdapterFunc create = nullptr;
    GvxDestroyAdapterFunc destroy = nullptr;
    GvxPluginLastErrorFunc lastError = nullptr;   // null when it exports none
    GvxTakeIntakeBlockFunc takeIntake = nullptr;  // null when it does not ask for what devices push
};

}  // namespace gvx
