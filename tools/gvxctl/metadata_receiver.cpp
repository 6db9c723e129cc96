#include "gvxctl/metadata_receiver.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <system_error>

namespace gvxctl {
namespace {

bool WriteFile(const std::string& path, const TlvItem& item, std::string& error) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "wbe"), &std::fclose);
    if (!file || std::fwrite(item.value, 1, item.length, file.get()) != item.length || std::fflush(file.get()) != 0) {
        error = "cannot write " + path + ": " + std::strerror(errno);
        return false;
    }
    return true;
}

std::string Lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

void AddFault(std::string& text, std::uint64_t count, const char* what) {
    if (count != 0) {
        text += (text.empty() ? "" : "; ") + std::to_string(count) + " " + what;
    }
}

}  // namespace

MetadataReceiver::MetadataReceiver()
    : m_assembler([this](const MetadataAssembler::Message& message) { TakeMessage(message); },
                  [this](const std::string& fault) { Print(fault); }) {}

bool MetadataReceiver::Open(const MetadataOptions& options, std::string& error) {
    m_options = options;
    m_stats.wanted = options.wanted;
    if (!options.wanted || options.folder.empty()) {
        return true;
    }
    std::error_code fault;
    std::filesystem::create_directories(options.folder, fault);
    if (fault) {
        error = "cannot make " + options.folder + ": " + fault.message();
        return false;
    }
    return true;
}

void MetadataReceiver::Print(const std::string& text) const {
    if (m_options.print) {
        m_options.print(text);
    }
}

void MetadataReceiver::TakeMessage(const MetadataAssembler::Message& message) {
    const MetadataKind kind = KindOf(message.tree);
    ++m_stats.kinds[static_cast<std::size_t>(kind)];
    m_names.clear();
    std::string text = std::string(MetadataKindName(kind)) + ": " + TlvTypeName(message.tree.type) + ", " +
                       std::to_string(message.bytes) + " bytes in " + std::to_string(message.packets) +
                       " packets, RTP time " + std::to_string(message.timestamp);
    AddItems(message.tree.items, 1, text);
    Print(text);
}

void MetadataReceiver::AddItems(const std::vector<TlvItem>& items, int depth, std::string& text) {
    for (const TlvItem& item : items) {
        text += "\n" + std::string(static_cast<std::size_t>(depth) * 2, ' ') + TlvTypeName(item.type);
        if (depth == 1 && !item.items.empty()) {
            AddItems(item.items, depth + 1, text);
            continue;
        }
        text += " " + DescribeValue(item);
        if (IsPicture(item.type)) {
            const std::string name = KeepPicture(item);
            text += name.empty() ? "" : " -> " + name;
        }
    }
}

// The name under which it was kept; empty when it was not.
std::string MetadataReceiver::KeepPicture(const TlvItem& item) {
    const std::uint64_t number = m_assembler.Stats().messages;
    ReceivedPicture picture{{}, TlvTypeName(item.type), item.length, number};
    if (!m_options.folder.empty()) {
        char head[48];
        std::snprintf(head, sizeof head, "metadata_%04llu_", static_cast<unsigned long long>(number));
        const std::string base = head + Lower(picture.tag);
        m_names.push_back(base);
        const auto before = std::count(m_names.begin(), m_names.end(), base);
        const std::string name = base + (before > 1 ? "_" + std::to_string(before) : "") + ".jpg";
        std::string error;
        if (WriteFile(m_options.folder + "/" + name, item, error)) {
            picture.file = name;
        } else if (m_stats.error.empty()) {
            m_stats.error = error;
        }
    }
    if (m_stats.pictures.size() < MetadataStats::kMaxPictures) {
        m_stats.pictures.push_back(picture);
    }
    return picture.file;
}

MetadataStats MetadataReceiver::Stats() const {
    MetadataStats stats = m_stats;
    stats.assembler = m_assembler.Stats();
    return stats;
}

Json::Value MetadataToJson(const MetadataStats& stats) {
    const auto number = [](std::uint64_t value) { return static_cast<Json::Value::UInt64>(value); };
    Json::Value value;
    value["packets"] = number(stats.assembler.packets);
    value["bytes"] = number(stats.assembler.bytes);
    value["messages"] = number(stats.assembler.messages);
    value["incomplete"] = number(stats.assembler.incomplete);
    value["broken"] = number(stats.assembler.broken);
    value["badPayloads"] = number(stats.assembler.badPayloads);
    value["lost"] = number(stats.assembler.lost);
    value["late"] = number(stats.assembler.late);
    value["restarts"] = number(stats.assembler.restarts);
    for (std::size_t kind = 0; kind < stats.kinds.size(); ++kind) {
        value["kinds"][MetadataKindName(static_cast<MetadataKind>(kind))] = number(stats.kinds[kind]);
    }
    value["pictures"] = Json::Value(Json::arrayValue);
    for (const ReceivedPicture& picture : stats.pictures) {
        Json::Value entry;
        entry["file"] = picture.file;
        entry["tag"] = picture.tag;
        entry["bytes"] = number(picture.bytes);
        entry["message"] = number(picture.message);
        value["pictures"].append(entry);
    }
    return value;
}

std::string MetadataFaults(const MetadataStats& stats) {
    std::string text = stats.error;
    AddFault(text, stats.assembler.lost, "metadata packets lost");
    AddFault(text, stats.assembler.late, "metadata packets late or twice");
    AddFault(text, stats.assembler.restarts, "restarts of the metadata's numbering");
    AddFault(text, stats.assembler.incomplete, "metadata messages incomplete");
    AddFault(text, stats.assembler.broken, "metadata messages broken");
    AddFault(text, stats.assembler.badPayloads, "metadata packets of no known form");
    return text;
}

std::string MetadataLine(const MetadataStats& stats) {
    if (!stats.wanted) {
        return {};
    }
    std::string kinds;
    for (std::size_t kind = 0; kind < stats.kinds.size(); ++kind) {
        AddFault(kinds, stats.kinds[kind], MetadataKindName(static_cast<MetadataKind>(kind)));
    }
    return ", metadata " + std::to_string(stats.assembler.messages) + " messages" +
           (kinds.empty() ? "" : " (" + kinds + ")") + " lost " + std::to_string(stats.assembler.lost);
}

}  // namespace gvxctl
