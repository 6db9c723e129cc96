#include "gvx_common/adapter/metadata/ex_metadata_writer.h"

#include "base/log.h"
#include "gvx_common/adapter/metadata/metadata_records.h"
#include "gvx_common/media_memory/MemHandler.h"
#include "gvx_common/tlv/metadata_tags.h"
#include "gvx_common/tlv/tlv_encoder.h"

namespace gvx {

namespace {

// Appends a layer as an item of the one around it.
long CloseLayer(int type, TLV_Encoder& inner, TLV_Encoder& outer) {
    const long result = outer.EncodeMemBuf(type, 0, inner.GetMemBufLength(), *inner.GetMemHandler());
    inner.Clear();
    return result;
}

long EncodeCommon(unsigned long long pts, TLV_Encoder& outer) {
    TLV_Encoder inner;
    return inner.EncodeValue(PTS, pts, sizeof(pts)) != 0 || CloseLayer(COMMON, inner, outer) != 0 ? 1 : 0;
}

long EncodeRect(int type, const _META_RECT_S& rect, TLV_Encoder& inner) {
    return inner.EncodePtrValue(type, reinterpret_cast<const unsigned char*>(&rect), sizeof(rect));
}

long EncodeChar(int type, char value, TLV_Encoder& inner) {
    return inner.EncodeValue(type, value, sizeof(value));
}

// A picture of the record, which must lie within it.
long EncodePicture(int type, unsigned int pos, unsigned int len, const MemHandler& record, TLV_Encoder& inner) {
    if (pos > record.GetLength() || len > record.GetLength() - pos) {
        GVX_LOG_ERR("EncodePicture", "type:%x,pos:%u,len:%u lies outside the buffer of %u bytes",
                    static_cast<unsigned int>(type), pos, len, record.GetLength());
        return 1;
    }
    return inner.EncodeMemBuf(type, pos, len, record);
}

long EncodePlatePicture(int type, const ITSPlatesTrim& plates, int place, const MemHandler& record,
                        TLV_Encoder& inner) {
    if (!HasPicture(plates, place)) {
        return 0;
    }
    const _ITSSnapPictureInfoTrim& picture = plates.astPicInfos[place];
    return EncodePicture(type, picture.picBufferPos, static_cast<unsigned int>(picture.iPicLen), record, inner);
}

// The memory form has no item without a value: a plate that was not read has no text.
long EncodePlateText(const TV_ITS_PLATE_INFO& plate, TLV_Encoder& inner) {
    const unsigned int length = PlateTextLength(plate);
    const auto* text = reinterpret_cast<const unsigned char*>(plate.szPlateNumber);
    return length == 0 ? 0 : inner.EncodePtrValue(PLATE_CHAR, text, length);
}

long EncodePlatePictures(const ITSPlatesTrim& plates, const MemHandler& record, TLV_Encoder& inner) {
    const std::uint64_t objectId = plates.astPicInfos[ITS_PIC_PLATE].ulPicFileID;
    return EncodePlatePicture(PLATE_PIC, plates, ITS_PIC_PLATE, record, inner) != 0 ||
                   EncodePlatePicture(PANORAMA_PIC, plates, ITS_PIC_PANORAMA, record, inner) != 0 ||
                   inner.EncodeValue(GLOBAL_OBJID, objectId, sizeof(objectId)) != 0
               ? 1
               : 0;
}

long EncodePanoramaTarget(const stFaceRects& faces, const MemHandler& record, TLV_Encoder& outer) {
    TLV_Encoder inner;
    if (faces.ulPanoramaPicsize != 0 &&
        EncodePicture(FACE_PANORAMA, faces.panoramaPicBufPos, faces.ulPanoramaPicsize, record, inner) != 0) {
        return 1;
    }
    const std::uint64_t alarmTime = faces.uAlarmTime;
    return inner.EncodeValue(FACE_PIC_TIME, alarmTime, sizeof(alarmTime)) != 0 || CloseLayer(TARGET, inner, outer) != 0
               ? 1
               : 0;
}

}  // namespace

int ExMetadataWriter::WriteVehicle(const ITSPlatesTrim& plates) {
    const TV_ITS_VEHICLE_INFO_TRIM& vehicle = plates.vehicleInfo;
    return EncodeChar(LANE_ID, vehicle.cLaneChannel, m_encoder) != 0 ||
                   EncodeChar(VEHICLE_TYPE_TV, vehicle.stVehicleInfo.cVehicleType, m_encoder) != 0 ||
                   EncodeChar(VEHICLE_COLOR, vehicle.stVehicleInfo.cVehicleColor, m_encoder) != 0 ||
                   EncodeChar(PLATE_TYPE, vehicle.stPlateInfo.cPlateType, m_encoder) != 0 ||
                   EncodeChar(PLATE_COLOR, vehicle.stPlateInfo.cPlateColor, m_encoder) != 0
               ? ZVS_FAIL
               : ZVS_SUCCEED;
}

int ExMetadataWriter::WritePlateRects(const ITSPlatesTrim& plates) {
    return EncodeRect(PLATE_POS, PlateRect(plates.stPlatePos), m_encoder) != 0 ||
                   EncodeRect(PLATE_POS_COM, PlateRect(plates.platePosCom), m_encoder) != 0 ||
                   EncodeRect(PLATE_POS_ABS, PlateRect(plates.platePosAbs), m_encoder) != 0 ||
                   EncodeRect(VEHICLE_POS_COM, PlateRect(plates.vehiclePosCom), m_encoder) != 0 ||
                   EncodeRect(VEHICLE_POS_ABS, PlateRect(plates.vehiclePosAbs), m_encoder) != 0
               ? ZVS_FAIL
               : ZVS_SUCCEED;
}

int ExMetadataWriter::WriteFace(const FaceRect& face, const MemHandler& record) {
    const std::uint64_t faceId = face.ulfaceid;
    const std::uint64_t faceTime = face.uFaceTime;
    const short score = face.neighbors;
    const short angle = face.angle;
    if (EncodeRect(FACE_POS, FacePos(face), m_encoder) != 0 ||
        m_encoder.EncodeValue(FACE_SCORE, score, sizeof(score)) != 0 ||
        m_encoder.EncodeValue(FACE_ANGLE, angle, sizeof(angle)) != 0 ||
        m_encoder.EncodeValue(FACE_ID, faceId, sizeof(faceId)) != 0 ||
        m_encoder.EncodeValue(GLOBAL_OBJID, faceId, sizeof(faceId)) != 0 ||
        m_encoder.EncodeValue(FACE_PIC_TIME, faceTime, sizeof(faceTime)) != 0) {
        return ZVS_FAIL;
    }
    return face.ulsize != 0 && EncodePicture(FACE_PIC, face.facebufPos, face.ulsize, record, m_encoder) != 0
               ? ZVS_FAIL
               : ZVS_SUCCEED;
}

// The last steps of every message, unless one before has failed.
int ExMetadataWriter::CloseMessage(const char* title, bool failed, TLV_Encoder& outer) {
    const unsigned int length = outer.GetMemBufLength();
    if (failed || CloseLayer(METADATA_TYPE, outer, m_encoder) != 0) {
        GVX_LOG_ERR(title, "The message could not be put together, length[%u]", length);
        m_encoder.Clear();
        return ZVS_FAIL;
    }
    return ZVS_SUCCEED;
}

int ExMetadataWriter::WritePlates(const MemHandler& record) {
    constexpr const char* kTitle = "ITSMetaDataToTLVEx";
    const auto* plates = RecordOf<ITSPlatesTrim>(&record, kTitle);
    if (plates == nullptr) {
        m_encoder.Clear();
        return ZVS_FAIL;
    }
    const TV_ITS_VEHICLE_INFO_TRIM& vehicle = plates->vehicleInfo;
    const unsigned long long snapTime = vehicle.uiSnapTime;
    const int speed = vehicle.stVehicleInfo.iVehicleSpeed;
    TLV_Encoder outer;
    TLV_Encoder inner;
    ExMetadataWriter target(inner);
    const bool failed = EncodeCommon(snapTime, outer) != 0 || target.WriteVehicle(*plates) != 0 ||
                        target.WritePlateRects(*plates) != 0 || EncodePlateText(vehicle.stPlateInfo, inner) != 0 ||
                        inner.EncodeValue(PIC_SNAPSHOT_TIME, snapTime, sizeof(snapTime)) != 0 ||
                        inner.EncodeValue(VEHICLE_SPEED, speed, sizeof(speed)) != 0 ||
                        EncodePlatePictures(*plates, record, inner) != 0 || CloseLayer(TARGET, inner, outer) != 0;
    return CloseMessage(kTitle, failed, outer);
}

int ExMetadataWriter::WriteFaces(const MemHandler& record) {
    constexpr const char* kTitle = "FaceMetaDataToTLVEx";
    const auto* faces = RecordOf<stFaceRects>(&record, kTitle);
    if (faces == nullptr) {
        m_encoder.Clear();
        return ZVS_FAIL;
    }
    TLV_Encoder outer;
    bool failed = EncodeCommon(FacePts(*faces), outer) != 0 || EncodePanoramaTarget(*faces, record, outer) != 0;
    for (unsigned int i = 0; i < FaceCount(*faces) && !failed; ++i) {
        TLV_Encoder inner;
        failed =
            ExMetadataWriter(inner).WriteFace(faces->faces[i], record) != 0 || CloseLayer(TARGET, inner, outer) != 0;
    }
    return CloseMessage(kTitle, failed, outer);
}

}  // namespace gvx
