#include "gvx_common/adapter/gvx_adapter_lens.h"

#include "base/log.h"
#include "gvx_common/adapter/metadata/gvx_adapter_lens_metadata_tlv.h"
#include "gvx_common/media_memory/MemHandler.h"
#include "gvx_common/tlv/metadata_tags.h"
#include "gvx_common/tlv/tlv_encoder.h"

// Records that lie in pool pages with their pictures, in the memory form: items leave in the order in which they are
// appended, and a picture goes from page to page.

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

long EncodePlateRect(int type, const stObjectRect& from, TLV_Encoder& inner) {
    _META_RECT_S rect;
    CAdapterLensBase::GetPlateRect(from, rect);
    return EncodeRect(type, rect, inner);
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
    if (!gvx::HasPicture(plates, place)) {
        return 0;
    }
    const _ITSSnapPictureInfoTrim& picture = plates.astPicInfos[place];
    return EncodePicture(type, picture.picBufferPos, static_cast<unsigned int>(picture.iPicLen), record, inner);
}

// The memory form has no item without a value: a plate that was not read has no text.
long EncodePlateText(const TV_ITS_PLATE_INFO& plate, TLV_Encoder& inner) {
    const unsigned int length = gvx::PlateTextLength(plate);
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

// The last steps of every message, with the result of the ones before.
int CloseMessage(const char* title, long result, TLV_Encoder& outer, TLV_Encoder& encoder) {
    const unsigned int length = outer.GetMemBufLength();
    if (result != 0 || CloseLayer(METADATA_TYPE, outer, encoder) != 0) {
        GVX_LOG_ERR(title, "The message could not be put together, length[%u]", length);
        encoder.Clear();
        return ZVS_FAIL;
    }
    return ZVS_SUCCEED;
}

}  // namespace

int CAdapterLensBase::ITSVehicleMetaDataToTLVEx(const ITSPlatesTrim* plates, TLV_Encoder& encoder) {
    GVX_CHECK_NULL_RETURN(plates, ZVS_FAIL);
    const TV_ITS_VEHICLE_INFO_TRIM& vehicle = plates->vehicleInfo;
    return EncodeChar(LANE_ID, vehicle.cLaneChannel, encoder) != 0 ||
                   EncodeChar(VEHICLE_TYPE_TV, vehicle.stVehicleInfo.cVehicleType, encoder) != 0 ||
                   EncodeChar(VEHICLE_COLOR, vehicle.stVehicleInfo.cVehicleColor, encoder) != 0 ||
                   EncodeChar(PLATE_TYPE, vehicle.stPlateInfo.cPlateType, encoder) != 0 ||
                   EncodeChar(PLATE_COLOR, vehicle.stPlateInfo.cPlateColor, encoder) != 0
               ? ZVS_FAIL
               : ZVS_SUCCEED;
}

int CAdapterLensBase::ITSPlateRectMetaDataToTLVEx(const ITSPlatesTrim* plates, TLV_Encoder& encoder) {
    GVX_CHECK_NULL_RETURN(plates, ZVS_FAIL);
    return EncodePlateRect(PLATE_POS, plates->stPlatePos, encoder) != 0 ||
                   EncodePlateRect(PLATE_POS_COM, plates->platePosCom, encoder) != 0 ||
                   EncodePlateRect(PLATE_POS_ABS, plates->platePosAbs, encoder) != 0 ||
                   EncodePlateRect(VEHICLE_POS_COM, plates->vehiclePosCom, encoder) != 0 ||
                   EncodePlateRect(VEHICLE_POS_ABS, plates->vehiclePosAbs, encoder) != 0
               ? ZVS_FAIL
               : ZVS_SUCCEED;
}

int CAdapterLensBase::ITSMetaDataToTLVEx(const MemHandler* record, TLV_Encoder& encoder) {
    GVX_CHECK_NULL_RETURN(record, ZVS_FAIL);
    const auto* plates = gvx::RecordOf<ITSPlatesTrim>(record, "ITSMetaDataToTLVEx");
    if (plates == nullptr) {
        encoder.Clear();
        return ZVS_FAIL;
    }
    const TV_ITS_VEHICLE_INFO_TRIM& vehicle = plates->vehicleInfo;
    const unsigned long long snapTime = vehicle.uiSnapTime;
    const int speed = vehicle.stVehicleInfo.iVehicleSpeed;
    TLV_Encoder outer;
    TLV_Encoder inner;
    const bool failed = EncodeCommon(snapTime, outer) != 0 || ITSVehicleMetaDataToTLVEx(plates, inner) != 0 ||
                        ITSPlateRectMetaDataToTLVEx(plates, inner) != 0 ||
                        EncodePlateText(vehicle.stPlateInfo, inner) != 0 ||
                        inner.EncodeValue(PIC_SNAPSHOT_TIME, snapTime, sizeof(snapTime)) != 0 ||
                        inner.EncodeValue(VEHICLE_SPEED, speed, sizeof(speed)) != 0 ||
                        EncodePlatePictures(*plates, *record, inner) != 0 || CloseLayer(TARGET, inner, outer) != 0;
    return CloseMessage("ITSMetaDataToTLVEx", failed ? 1 : 0, outer, encoder);
}

int CAdapterLensBase::FaceInfoMetaDataToTLVEx(const stFaceRects* faces, TLV_Encoder& encoder, const MemHandler* record,
                                              unsigned int index) {
    GVX_CHECK_NULL_RETURN(faces, ZVS_FAIL);
    GVX_CHECK_NULL_RETURN(record, ZVS_FAIL);
    if (index >= GVX_MAX_FACES) {
        GVX_LOG_ERR("FaceInfoMetaDataToTLVEx", "index[%u]", index);
        return ZVS_FAIL;
    }
    const FaceRect& face = faces->faces[index];
    const std::uint64_t faceId = face.ulfaceid;
    const std::uint64_t faceTime = face.uFaceTime;
    const short score = face.neighbors;
    const short angle = face.angle;
    if (EncodeRect(FACE_POS, gvx::FacePos(face), encoder) != 0 ||
        encoder.EncodeValue(FACE_SCORE, score, sizeof(score)) != 0 ||
        encoder.EncodeValue(FACE_ANGLE, angle, sizeof(angle)) != 0 ||
        encoder.EncodeValue(FACE_ID, faceId, sizeof(faceId)) != 0 ||
        encoder.EncodeValue(GLOBAL_OBJID, faceId, sizeof(faceId)) != 0 ||
        encoder.EncodeValue(FACE_PIC_TIME, faceTime, sizeof(faceTime)) != 0) {
        return ZVS_FAIL;
    }
    if (face.ulsize != 0 && EncodePicture(FACE_PIC, face.facebufPos, face.ulsize, *record, encoder) != 0) {
        return ZVS_FAIL;
    }
    return ZVS_SUCCEED;
}

int CAdapterLensBase::FaceMetaDataToTLVEx(const MemHandler* record, TLV_Encoder& encoder) {
    GVX_CHECK_NULL_RETURN(record, ZVS_FAIL);
    const auto* faces = gvx::RecordOf<stFaceRects>(record, "FaceMetaDataToTLVEx");
    if (faces == nullptr) {
        encoder.Clear();
        return ZVS_FAIL;
    }
    TLV_Encoder outer;
    bool failed = EncodeCommon(gvx::FacePts(*faces), outer) != 0 || EncodePanoramaTarget(*faces, *record, outer) != 0;
    for (unsigned int i = 0; i < gvx::FaceCount(*faces) && !failed; ++i) {
        TLV_Encoder inner;
        failed = FaceInfoMetaDataToTLVEx(faces, inner, record, i) != 0 || CloseLayer(TARGET, inner, outer) != 0;
    }
    return CloseMessage("FaceMetaDataToTLVEx", failed ? 1 : 0, outer, encoder);
}
