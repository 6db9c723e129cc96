#include "gateway/alarms/plugin_troubles.h"

#include "base/clock.h"
#include "base/log.h"

#include <iterator>

namespace gvx {

using Kind = PluginTrouble::Kind;

// Never destroyed: a thread of a plug-in may outlive every static object.
PluginTroubles& PluginTroubles::Instance() {
    static PluginTroubles* const instance = new PluginTroubles;
    return *instance;
}

const char* PluginTroubles::Text(Kind kind) {
    switch (kind) {
        case Kind::DoesNotReturn:
            return "does not return";
        case Kind::Throws:
            return "throws";
        case Kind::CallsLate:
            return "calls late";
        case Kind::LeftBehind:
            return "is left behind";
        default:
            return "fails";
    }
}

bool PluginTroubles::Note(Kind kind, const std::string& plugin, const std::string& operation, const std::string& device,
                          int code, const std::string& text) {
    const std::string about = device.empty() ? "-" : device;
    const std::lock_guard<std::mutex> lock(m_mutex);
    for (PluginTrouble& trouble : m_troubles) {
        if (trouble.kind == kind && trouble.device == about && trouble.operation == operation &&
            trouble.plugin == plugin) {
            ++trouble.count;
            const bool another = trouble.code != code || trouble.text != text;
            trouble.code = code;
            trouble.text = text;
            return another;
        }
    }
    if (m_troubles.size() >= kMost) {
        m_troubles.pop_front();
    }
    m_troubles.push_back({plugin, operation, about, kind, WallSeconds(), MonotonicMilliseconds(), 1, code, text});
    m_open = m_troubles.size();
    return true;
}

template <typename Matches>
void PluginTroubles::End(const Matches& matches, bool tells) {
    if (m_open == 0) {
        return;
    }
    Troubles over;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        for (auto trouble = m_troubles.begin(); trouble != m_troubles.end();) {
            const auto next = std::next(trouble);
            if (matches(*trouble)) {
                over.splice(over.end(), m_troubles, trouble);
            }
            trouble = next;
        }
        m_open = m_troubles.size();
    }
    for (const PluginTrouble& trouble : over) {
        if (tells) {
            GVX_LOG_INFO("Plug-in recovers", "plug-in %s: %s of device %s %s no more, %llu times in %lld s.",
                         trouble.plugin.c_str(), trouble.operation.c_str(), trouble.device.c_str(), Text(trouble.kind),
                         static_cast<unsigned long long>(trouble.count),
                         static_cast<long long>((MonotonicMilliseconds() - trouble.sinceMs) / 1000));
        }
    }
}

void PluginTroubles::Succeeded(const std::string& plugin, const std::string& operation, const std::string& device) {
    End(
        [&](const PluginTrouble& trouble) {
            return (trouble.kind == Kind::Fails || trouble.kind == Kind::Throws) && trouble.operation == operation &&
                   trouble.plugin == plugin && trouble.device == (device.empty() ? "-" : device);
        },
        true);
}

void PluginTroubles::Returned(const std::string& plugin, const std::string& operation, const std::string& device) {
    End(
        [&](const PluginTrouble& trouble) {
            return trouble.kind == Kind::DoesNotReturn && trouble.operation == operation && trouble.plugin == plugin &&
                   trouble.device == (device.empty() ? "-" : device);
        },
        true);
}

void PluginTroubles::DeviceAdded(const std::string& device) {
    End([&](const PluginTrouble& trouble) { return trouble.device == device && trouble.kind == Kind::CallsLate; },
        false);
}

void PluginTroubles::Clear() {
    End([](const PluginTrouble&) { return true; }, false);
}

void PluginTroubles::DeviceDeleted(const std::string& device) {
    End(
        [&](const PluginTrouble& trouble) {
            return trouble.device == device && trouble.kind != Kind::LeftBehind && trouble.kind != Kind::CallsLate;
        },
        false);
}

std::vector<PluginTrouble> PluginTroubles::List() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return {m_troubles.begin(), m_troubles.end()};
}

}  // namespace gvx
