#include "plugin_check/drive.h"

#include "base/log.h"
#include "base/zvs_error.h"
#include "gvx_common/adapter/gvx_adapter_sdk.h"
#include "gvx_common/adapter/plugin_library.h"
#include "gvx_common/media_memory/MediaMemPool.h"
#include "plugin_check/device_drive.h"
#include "plugin_check/journal.h"
#include "plugin_check/operations.h"
#include "plugin_check/plugin_reports.h"
#include "plugin_check/search_drive.h"

#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>
#include <thread>

namespace plugin_check {

using gvx::PluginLibrary;

namespace {

// Counts what only the log tells, and shows lines from warnings up when it is asked to.
class ListeningLogger : public IOMLogger {
public:
    explicit ListeningLogger(bool shows) : m_shows(shows) {}
    bool IsEnabled(int level) const noexcept override {
        return level == OM_LOG_DEBUG || (m_shows && level <= OM_LOG_WARNING);
    }
    void VLog(int level, const char* title, const OMLogPlace&, const char* format, va_list args) override
        __attribute__((format(printf, 5, 0))) {
        if (level <= OM_LOG_WARNING) {
            std::fprintf(stderr, "[%s] ", title);
            std::vfprintf(stderr, format, args);
            std::fputc('\n', stderr);
        }
    }
    void VDebug(const OMLogPlace&, const char* format, va_list) override __attribute__((format(printf, 3, 0))) {
        if (std::strstr(format, "Can not found Nalu Head") != nullptr) {
            StreamDrive::CountFrameWithoutStartCode();
        }
    }

private:
    const bool m_shows;
};

// Devices push whatever they like.
void PushToIntake(const PluginLibrary& library, CAdapterSdkBase& sdk, Journal& journal) {
    if (library.takeIntake == nullptr) {
        return;
    }
    for (const std::string& bytes : {std::string("\0\xff\x01 no text", 11), std::string(1024, '{'), std::string("\n"),
                                     std::string("{\"device\":\"NOBODY\",\"code\":\"shield\"}\n")}) {
        const GvxIntakeBlock block{"127.0.0.1", 40000, "20260102030405", bytes.data(),
                                   static_cast<std::uint32_t>(bytes.size())};
        journal.Call(kSdk, "GvxTakeIntakeBlock", [&] { return library.takeIntake(&sdk, &block); });
    }
}

}  // namespace

void Drive(const DriveOptions& options, Journal& journal) {
    OMAdapter::getInstance()->setLogger(std::make_shared<ListeningLogger>(options.verbose));
    g_mediaPool.Init();  // metadata goes through it
    std::string fault;
    std::optional<PluginLibrary> library;
    journal.Call(kSdk, "loading", [&] {
        library = PluginLibrary::Open(options.file, fault);
        return library.has_value() ? ZVS_SUCCEED : ZVS_FAIL;
    });
    const std::string base = options.file.substr(options.file.find_last_of('/') + 1);
    if (!library.has_value()) {
        journal.Broken(kSdk, "loading", fault);
        journal.Write(kAllDone, kSdk, {}, {});
        return;
    }
    journal.Write(kPlugin, kSdk, {},
                  base + ": " + library->name + " " + library->version + " of " + library->maker +
                      ", plug-in interface " + PluginLibrary::InterfaceText(gvx::kPluginLayout));
    if (!PluginLibrary::IsName(library->name) || base != "gvx_plugin_" + library->name + ".so") {
        journal.Broken(kSdk, "loading", "a gateway looks for gvx_plugin_" + library->name + ".so, the file is " + base);
    }
    CAdapterSdkBase* sdk = nullptr;
    journal.Call(kSdk, "GvxCreateAdapter", [&] {
        sdk = library->create();
        return sdk == nullptr ? ZVS_ALLOC_MEMORY_ERROR : ZVS_SUCCEED;
    });
    if (sdk == nullptr) {
        journal.Broken(kSdk, "GvxCreateAdapter", "made no object");
        journal.Write(kAllDone, kSdk, {}, {});
        return;
    }
    bool refused = false;
    journal.Call(kSdk, "Init of the plug-in", [&] {
        refused = !sdk->Init(options.config.c_str());
        return refused ? ZVS_FAIL : ZVS_SUCCEED;
    });
    if (refused) {
        const char* reason = library->lastError == nullptr ? nullptr : library->lastError();
        journal.Broken(kSdk, "Init of the plug-in",
                       "refuses to start: " + std::string(reason == nullptr ? "it gives no reason" : reason));
    } else {
        PluginReports::Instance().Listen(*sdk, journal);
        const bool searches = options.search && StartSearch(*sdk, options, journal);
        std::thread([&] { DeviceDrive(options, journal, *sdk, 1).RunWhole(); }).join();
        std::thread second([&] { DeviceDrive(options, journal, *sdk, 2).RunStreams(); });
        std::thread third([&] { DeviceDrive(options, journal, *sdk, 3).RunStreams(); });
        second.join();
        third.join();
        PushToIntake(*library, *sdk, journal);
        for (const PlainOperation<CAdapterSdkBase>& operation : SdkOperations()) {
            if (options.changes || !operation.changes) {
                journal.Call(kSdk, operation.name, [&] { return operation.call(*sdk); });
            }
        }
        if (searches) {
            EndSearch(*sdk, journal);
        }
    }
    journal.Call(kSdk, "GvxDestroyAdapter", [&] {
        library->destroy(sdk);
        return 0;
    });
    PluginReports::Instance().AdapterGone();
    journal.Figure(kSdk, "alarms", std::to_string(PluginReports::Instance().Alarms()) + " reported");
    std::this_thread::sleep_for(kSilence);
    journal.Write(kAllDone, kSdk, {}, {});
}

}  // namespace plugin_check
