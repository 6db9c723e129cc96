#pragma once

#include "gvxctl/metadata_assembler.h"

#include <json/value.h>

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace gvxctl {

struct MetadataOptions {
    bool wanted = false;
    std::string folder;      // for the pictures, made when missing; empty: they are not kept
    std::uint16_t port = 0;  // over UDP; 0: any
    // Called for each message, as a tree on several lines, and for each fault; null for none. In the receiver's thread.
    std::function<void(const std::string&)> print;
};

struct ReceivedPicture {
    std::string file;  // name within the folder; empty when it was not kept
    std::string tag;
    std::uint64_t bytes = 0;
    std::uint64_t message = 0;  // number of its message, from 1
};

struct MetadataStats {
    static constexpr std::size_t kMaxPictures = 1000;

    bool wanted = false;
    AssemblerStats assembler;
    std::array<std::uint64_t, 5> kinds{};   // messages by MetadataKind
    std::vector<ReceivedPicture> pictures;  // the first kMaxPictures
    std::string error;                      // why a picture could not be written
};

// Takes the metadata packets of a stream: prints each message as a tree and writes its pictures. One thread.
class MetadataReceiver {
public:
    MetadataReceiver();

    // False when the folder cannot be made. Without it everything is ignored.
    bool Open(const MetadataOptions& options, std::string& error);
    bool IsOpen() const { return m_stats.wanted; }
    void Take(const RtpPacket& packet) { m_assembler.Take(packet); }
    void Finish() { m_assembler.Finish(); }
    MetadataStats Stats() const;

private:
    void TakeMessage(const MetadataAssembler::Message& message);
    void AddItems(const std::vector<TlvItem>& items, int depth, std::string& text);
    std::string KeepPicture(const TlvItem& item);
    void Print(const std::string& text) const;

    MetadataOptions m_options;
    MetadataStats m_stats;
    std::vector<std::string> m_names;  // of the pictures of the message in hand
    MetadataAssembler m_assembler;
};

Json::Value MetadataToJson(const MetadataStats& stats);
// Everything that was wrong, parted by "; "; empty when nothing was.
std::string MetadataFaults(const MetadataStats& stats);
// ", metadata 3 messages (1 plate; 1 face; 1 heartbeat) lost 0"; empty when metadata was not wanted.
std::string MetadataLine(const MetadataStats& stats);

}  // namespace gvxctl
