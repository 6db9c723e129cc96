#include "file/metadata_sender.h"

#include "base/clock.h"
#include "gvx_common/media_memory/MemHandler.h"

#include <algorithm>

class ACE_Message_Block;

namespace gvxfile {
namespace {

_METADATE_TYPE TypeOf(MetadataKind kind) {
    switch (kind) {
        case MetadataKind::Face:
            return METADATE_TYPE_FACE;
        case MetadataKind::Heartbeat:
            return METADATA_TYPE_HEART_BEAT;
        default:
            return METADATE_TYPE_PLATE;
    }
}

// The core reads the pictures of a record and never writes to them.
unsigned char* Bytes(const Picture& picture) {
    return picture == nullptr ? nullptr
                              : const_cast<unsigned char*>(reinterpret_cast<const unsigned char*>(picture->data()));
}

std::uint32_t Length(const Picture& picture) {
    return picture == nullptr ? 0 : static_cast<std::uint32_t>(picture->size());
}

stFaceRects FacesNow(const MetadataMessage& message, std::uint64_t pts) {
    stFaceRects faces = message.faces;
    const auto now = static_cast<std::uint64_t>(gvx::CurrentClock().WallMicroseconds() / 1000);
    faces.uAlarmTime = now;
    faces.uiTimeStampH = static_cast<std::uint32_t>(pts >> 32);
    faces.uiTimeStampL = static_cast<std::uint32_t>(pts);
    faces.ulPanoramaPicsize = Length(message.pictures[0]);
    for (std::int32_t i = 0; i < faces.count; ++i) {
        faces.faces[i].uFaceTime = now;
        faces.faces[i].ulsize = Length(message.pictures[static_cast<std::size_t>(i) + 1]);
    }
    return faces;
}

ITSPlatesTrim PlatesNow(const MetadataMessage& message, std::uint64_t pts) {
    ITSPlatesTrim plates = message.plates;
    plates.vehicleInfo.uiSnapTime = pts;
    for (int place = 0; place < GVX_ITS_PIC_NUM; ++place) {
        plates.astPicInfos[place].iPicLen =
            static_cast<std::int32_t>(Length(message.pictures[static_cast<std::size_t>(place)]));
    }
    return plates;
}

// The record with the long texts, which no message carries.
ITSPlates WithTexts(const ITSPlatesTrim& from) {
    ITSPlates plates{};
    plates.iPicCnt = from.iPicCnt;
    plates.vehicleInfo.cLaneChannel = from.vehicleInfo.cLaneChannel;
    plates.vehicleInfo.uiSnapTime = from.vehicleInfo.uiSnapTime;
    plates.vehicleInfo.stPlateInfo = from.vehicleInfo.stPlateInfo;
    plates.vehicleInfo.stVehicleInfo = from.vehicleInfo.stVehicleInfo;
    plates.stPlatePos = from.stPlatePos;
    plates.platePosCom = from.platePosCom;
    plates.platePosAbs = from.platePosAbs;
    plates.vehiclePosCom = from.vehiclePosCom;
    plates.vehiclePosAbs = from.vehiclePosAbs;
    for (int place = 0; place < GVX_ITS_PIC_NUM; ++place) {
        plates.astPicInfos[place].iPicLen = from.astPicInfos[place].iPicLen;
        plates.astPicInfos[place].ulPicFileID = from.astPicInfos[place].ulPicFileID;
    }
    return plates;
}

// A buffer of the media pool, in a block of its own.
class PoolRecord {
public:
    PoolRecord() { CreateMemHandler(&m_block); }
    ~PoolRecord() {
        if (m_block != nullptr) {
            ReleaseMemHandler(&m_block);
        }
    }
    PoolRecord(const PoolRecord&) = delete;
    PoolRecord& operator=(const PoolRecord&) = delete;

    // Null when the pool is exhausted.
    MemHandler* Get() const { return m_block == nullptr ? nullptr : GetMemHandler(m_block); }

private:
    ACE_Message_Block* m_block = nullptr;
};

// Where each picture will lie: one behind the other, behind the record.
std::vector<unsigned int> Positions(const std::vector<Picture>& pictures, std::size_t recordBytes) {
    std::vector<unsigned int> positions;
    auto next = static_cast<unsigned int>(recordBytes);
    for (const Picture& picture : pictures) {
        positions.push_back(next);
        next += Length(picture);
    }
    return positions;
}

// The record first, then its pictures. The record goes in complete: a page that is written once more ends, for whoever
// reads it, where the last writing did.
template <typename Record, typename SetPositions>
bool FillMemory(const MetadataMessage& message, Record record, MemHandler& memory, SetPositions setPositions) {
    setPositions(record, Positions(message.pictures, sizeof(record)));
    unsigned int pos = 0;
    if (memory.AddCharBuf(reinterpret_cast<const char*>(&record), sizeof(record), pos) != 0) {
        return false;
    }
    return std::all_of(message.pictures.begin(), message.pictures.end(), [&](const Picture& picture) {
        return Length(picture) == 0 || memory.AddCharBuf(picture->data(), Length(picture), pos) == 0;
    });
}

bool FillMemory(const MetadataMessage& message, std::uint64_t pts, MemHandler& memory) {
    if (message.kind == MetadataKind::Face) {
        return FillMemory(message, FacesNow(message, pts), memory, [](stFaceRects& faces, const auto& positions) {
            faces.panoramaPicBufPos = positions[0];
            for (std::int32_t i = 0; i < faces.count; ++i) {
                faces.faces[i].facebufPos = positions[static_cast<std::size_t>(i) + 1];
            }
        });
    }
    return FillMemory(message, PlatesNow(message, pts), memory, [](ITSPlatesTrim& plates, const auto& positions) {
        for (int place = 0; place < GVX_ITS_PIC_NUM; ++place) {
            plates.astPicInfos[place].picBufferPos = positions[static_cast<std::size_t>(place)];
        }
    });
}

}  // namespace

int MetadataSender::Send(const MetadataMessage& message, std::uint64_t pts) {
    return message.ex ? SendEx(message, pts) : SendPlain(message, pts);
}

int MetadataSender::SendPlain(const MetadataMessage& message, std::uint64_t pts) {
    const auto send = [&](const void* record) {
        return m_lens.MetaDataToRtpAndSend(TypeOf(message.kind), record, Channel(m_overTcp), m_userInfo, m_overTcp);
    };
    if (message.kind == MetadataKind::Heartbeat) {
        return send(nullptr);
    }
    if (message.kind == MetadataKind::Face) {
        stFaceRects faces = FacesNow(message, pts);
        faces.pPanoramaPicBuf = Bytes(message.pictures[0]);
        for (std::int32_t i = 0; i < faces.count; ++i) {
            faces.faces[i].pfacebuf = Bytes(message.pictures[static_cast<std::size_t>(i) + 1]);
        }
        return send(&faces);
    }
    ITSPlates plates = WithTexts(PlatesNow(message, pts));
    for (int place = 0; place < GVX_ITS_PIC_NUM; ++place) {
        plates.astPicInfos[place].ptrPicBuffer = Bytes(message.pictures[static_cast<std::size_t>(place)]);
    }
    return send(&plates);
}

int MetadataSender::SendEx(const MetadataMessage& message, std::uint64_t pts) {
    const PoolRecord memory;
    if (message.kind != MetadataKind::Heartbeat &&
        (memory.Get() == nullptr || !FillMemory(message, pts, *memory.Get()))) {
        return ZVS_FAIL;
    }
    return m_lens.MetaDataToRtpAndSendEx(TypeOf(message.kind), memory.Get(), Channel(m_overTcp), m_userInfo, m_overTcp);
}

}  // namespace gvxfile
