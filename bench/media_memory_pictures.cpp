#include "media_memory.h"

#include "gvx_common/adapter/gvx_adapter_defaults.h"
#include "gvx_common/media_memory/MemHandler.h"
#include "gvx_common/records/gvx_metadata_records.h"

#include <ace/Message_Block.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr int kChannel = STREAM_TYPE_METADATA;
constexpr std::size_t kPacketBytes = 1390;
constexpr std::int64_t kLeastRunNs = 300000000;
constexpr int kRounds = 7;

class Device : public CAdapterDevDefaults {};

class Lens : public CAdapterLensDefaults {
public:
    explicit Lens(CAdapterDevBase& device) : CAdapterLensDefaults("BENCH", 0, device) {}
    void Prepare(SEND_STREAM_FUNC* func) {
        getMidiaChannel(kChannel)->m_pSendStreamFunc = func;
        getMidiaChannel(kChannel)->m_pMediaBufWithRTP = new ACE_Message_Block(GVX_MEDIA_BUF_MIN_SIZE);
    }
};

std::uint64_t g_packets = 0;

int Count(MEDIA_DATA*, STREAM_TYPE_EX*) {
    ++g_packets;
    return 0;
}

// A plate record with its picture behind it, as a plug-in hands it over; null when the pool is exhausted.
ACE_Message_Block* NewRecord(const std::string& picture) {
    ACE_Message_Block* mb = nullptr;
    if (CreateMemHandlerAndAlloc(&mb, sizeof(ITSPlatesTrim), 0) != 0) {
        return nullptr;
    }
    MemHandler* handler = GetMemHandler(mb);
    auto* record = new (handler->GetHead()->rd_ptr()) ITSPlatesTrim{};
    unsigned int pos = 0;
    handler->AddCharBuf(picture.data(), static_cast<unsigned int>(picture.size()), pos);
    record->iPicCnt = 2;
    record->astPicInfos[ITS_PIC_PANORAMA].iPicLen = static_cast<std::int32_t>(picture.size());
    record->astPicInfos[ITS_PIC_PANORAMA].picBufferPos = pos;
    std::strcpy(record->vehicleInfo.stPlateInfo.szPlateNumber, "AB 123");
    return mb;
}

// The floor: the same pages straight into packets.
void CopyPages(const MemHandler& handler, char* packet) {
    for (const ACE_Message_Block* page = handler.GetHead(); page != nullptr; page = page->cont()) {
        std::size_t left = page->length();
        const char* from = page->rd_ptr();
        while (left != 0) {
            const std::size_t chunk = std::min(left, kPacketBytes);
            std::memcpy(packet, from, chunk);
            asm volatile("" : : "r"(packet) : "memory");
            from += chunk;
            left -= chunk;
        }
    }
}

// Bytes a CPU second of passes over all records.
template <typename Pass>
double BytesPerCpuSecond(Pass pass, std::size_t bytesPerPass) {
    std::uint64_t passes = 0;
    const std::int64_t before = bench::ThreadCpuNs();
    std::int64_t used = 0;
    while (used < kLeastRunNs) {
        pass();
        ++passes;
        used = bench::ThreadCpuNs() - before;
    }
    return static_cast<double>(passes * bytesPerPass) * 1e9 / static_cast<double>(used);
}

bool Measure(bench::Table& table, Lens& lens, std::size_t pictureBytes, std::size_t records, bool goal) {
    std::vector<ACE_Message_Block*> all;
    const std::string picture(pictureBytes, 'p');
    for (std::size_t i = 0; i < records; ++i) {
        all.push_back(NewRecord(picture));
        if (all.back() == nullptr) {
            return false;
        }
    }
    bool sent = true;
    const auto send = [&] {
        for (ACE_Message_Block* mb : all) {
            sent = lens.MetaDataToRtpAndSendEx(METADATE_TYPE_PLATE, GetMemHandler(mb), kChannel, &lens, false) == 0 &&
                   sent;
        }
    };
    char packet[kPacketBytes];
    const auto copy = [&] {
        for (ACE_Message_Block* mb : all) {
            CopyPages(*GetMemHandler(mb), packet);
        }
    };
    send();
    const std::uint64_t allocations = bench::Allocations();
    send();
    const std::uint64_t perPass = bench::Allocations() - allocations;
    std::vector<double> ours;
    std::vector<double> floor;
    for (int round = 0; round < kRounds; ++round) {
        ours.push_back(BytesPerCpuSecond(send, pictureBytes * records) / 1e6);
        floor.push_back(BytesPerCpuSecond(copy, pictureBytes * records) / 1e6);
    }
    const std::string name = std::to_string(pictureBytes / 1024) + " KB, " + std::to_string(records) +
                             (records == 1 ? " picture again and again" : " pictures in turn");
    table.Row(name, bench::Median(ours), bench::Median(floor), "MB/CPU s",
              goal ? bench::Goal::AtLeast : bench::Goal::None, 0.3);
    table.Plain(name + ": heap allocations a picture", static_cast<double>(perPass) / static_cast<double>(records), "");
    for (ACE_Message_Block*& mb : all) {
        ReleaseMemHandler(&mb);
    }
    return sent;
}

}  // namespace

bool MeasurePictures(bench::Table& table) {
    Device device;
    Lens lens(device);
    lens.Prepare(&Count);
    // Pictures come one after another and not twice: 160 of them are more than the caches hold.
    return Measure(table, lens, 300u * 1024, 160, true) && Measure(table, lens, 300u * 1024, 1, false) &&
           Measure(table, lens, 10u * 1024 * 1024, 2, false);
}
