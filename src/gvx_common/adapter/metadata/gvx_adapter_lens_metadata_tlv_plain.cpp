#include "gvx_common/adapter/gvx_adapter_lens.h"

#include "base/log.h"
#include "gvx_common/adapter/metadata/gvx_adapter_lens_metadata_tlv.h"
#include "gvx_common/tlv/metadata_tags.h"
#include "gvx_common/tlv/tlv_encoder.h"

// Records with pictures by pointer, in the map form: the items of each layer leave sorted by their type.

namespace {

// Flattens a layer and makes it an item of the one around it.
long CloseLayer(int type, TLV_Encoder& inner, TLV_Encoder& outer) {
    const bool failed = inner.Encode() != 0 || outer.PutValue(type, inner) != 0;
    inner.Clear();
    return failed ? 1 : 0;
}

long PutCommon(unsigned long long pts, TLV_Encoder& outer) {
    TLV_Encoder inner;
    return inner.PutValue(PTS, pts) != 0 || CloseLayer(COMMON, inner, outer) != 0 ? 1 : 0;
}

long PutRect(int type, const _META_RECT_S& rect, TLV_Encoder& inner) {
    return inner.PutValue(type, reinterpret_cast<const unsigned char*>(&rect), sizeof(rect));
}

long PutPlateRect(int type, const stObjectRect& from, TLV_Encoder& inner) {
    _META_RECT_S rect;
    CAdapterLensBase::GetPlateRect(from, rect);
    return PutRect(type, rect, inner);
}

long PutPicture(int type, const ITSPlates& plates, int place, TLV_Encoder& inner) {
    if (!gvx::HasPicture(plates, place)) {
        return 0;
    }
    const _ITSSnapPictureInfo& picture = plates.astPicInfos[place];
    return inner.PutValue(type, picture.ptrPicBuffer, static_cast<unsigned long>(picture.iPicLen));
}

long PutVehicle(const TV_ITS_VEHICLE_INFO& vehicle, TLV_Encoder& inner) {
    return inner.PutValue(LANE_ID, vehicle.cLaneChannel) != 0 ||
                   inner.PutValue(VEHICLE_TYPE_TV, vehicle.stVehicleInfo.cVehicleType) != 0 ||
                   inner.PutValue(VEHICLE_COLOR, vehicle.stVehicleInfo.cVehicleColor) != 0 ||
                   inner.PutValue(PLATE_TYPE, vehicle.stPlateInfo.cPlateType) != 0 ||
                   inner.PutValue(PLATE_COLOR, vehicle.stPlateInfo.cPlateColor) != 0
               ? 1
               : 0;
}

long PutPlateRects(const ITSPlates& plates, TLV_Encoder& inner) {
    return PutPlateRect(PLATE_POS, plates.stPlatePos, inner) != 0 ||
                   PutPlateRect(PLATE_POS_COM, plates.platePosCom, inner) != 0 ||
                   PutPlateRect(PLATE_POS_ABS, plates.platePosAbs, inner) != 0 ||
                   PutPlateRect(VEHICLE_POS_COM, plates.vehiclePosCom, inner) != 0 ||
                   PutPlateRect(VEHICLE_POS_ABS, plates.vehiclePosAbs, inner) != 0
               ? 1
               : 0;
}

long PutPlateTarget(const ITSPlates& plates, TLV_Encoder& outer) {
    const TV_ITS_VEHICLE_INFO& vehicle = plates.vehicleInfo;
    const auto* text = reinterpret_cast<const unsigned char*>(vehicle.stPlateInfo.szPlateNumber);
    const unsigned long long snapTime = vehicle.uiSnapTime;
    const std::uint64_t objectId = plates.astPicInfos[ITS_PIC_PLATE].ulPicFileID;
    TLV_Encoder inner;
    return PutVehicle(vehicle, inner) != 0 || PutPlateRects(plates, inner) != 0 ||
                   inner.PutValue(PLATE_CHAR, text, gvx::PlateTextLength(vehicle.stPlateInfo)) != 0 ||
                   inner.PutValue(PIC_SNAPSHOT_TIME, snapTime) != 0 ||
                   inner.PutValue(VEHICLE_SPEED, vehicle.stVehicleInfo.iVehicleSpeed) != 0 ||
                   PutPicture(PLATE_PIC, plates, ITS_PIC_PLATE, inner) != 0 ||
                   PutPicture(PANORAMA_PIC, plates, ITS_PIC_PANORAMA, inner) != 0 ||
                   inner.PutValue(GLOBAL_OBJID, objectId) != 0 || CloseLayer(TARGET, inner, outer) != 0
               ? 1
               : 0;
}

long PutPanoramaTarget(const stFaceRects& faces, TLV_Encoder& outer) {
    TLV_Encoder inner;
    if (faces.ulPanoramaPicsize != 0 &&
        inner.PutValue(FACE_PANORAMA, faces.pPanoramaPicBuf, faces.ulPanoramaPicsize) != 0) {
        return 1;
    }
    const std::uint64_t alarmTime = faces.uAlarmTime;
    return inner.PutValue(FACE_PIC_TIME, alarmTime) != 0 || CloseLayer(TARGET, inner, outer) != 0 ? 1 : 0;
}

long PutFaceTarget(const FaceRect& face, TLV_Encoder& outer) {
    const std::uint64_t faceId = face.ulfaceid;
    const std::uint64_t faceTime = face.uFaceTime;
    const short score = face.neighbors;
    const short angle = face.angle;
    TLV_Encoder inner;
    if (PutRect(FACE_POS, gvx::FacePos(face), inner) != 0 || inner.PutValue(FACE_SCORE, score) != 0 ||
        inner.PutValue(FACE_ANGLE, angle) != 0 || inner.PutValue(FACE_ID, faceId) != 0 ||
        inner.PutValue(GLOBAL_OBJID, faceId) != 0 || inner.PutValue(FACE_PIC_TIME, faceTime) != 0) {
        return 1;
    }
    if (face.ulsize != 0 && inner.PutValue(FACE_PIC, face.pfacebuf, face.ulsize) != 0) {
        return 1;
    }
    return CloseLayer(TARGET, inner, outer);
}

long PutFaceTargets(const stFaceRects& faces, TLV_Encoder& outer) {
    for (unsigned int i = 0; i < gvx::FaceCount(faces); ++i) {
        if (PutFaceTarget(faces.faces[i], outer) != 0) {
            return 1;
        }
    }
    return 0;
}

// The last steps of every message, with the result of the ones before.
int CloseMessage(const char* title, long result, TLV_Encoder& outer, TLV_Encoder& encoder) {
    if (result == 0) {
        result = CloseLayer(METADATA_TYPE, outer, encoder) != 0 || encoder.Encode() != 0 ? 1 : 0;
    }
    if (result != 0) {
        GVX_LOG_ERR(title, "The message could not be put together, length[%lu]", outer.GetTlvDataLen());
        encoder.Clear();
        return ZVS_FAIL;
    }
    return ZVS_SUCCEED;
}

}  // namespace

int CAdapterLensBase::ITSMetaDataToTLV(const ITSPlates* plates, TLV_Encoder& encoder) {
    GVX_CHECK_NULL_RETURN(plates, ZVS_FAIL);
    TLV_Encoder outer;
    const unsigned long long snapTime = plates->vehicleInfo.uiSnapTime;
    const long result = PutCommon(snapTime, outer) != 0 || PutPlateTarget(*plates, outer) != 0 ? 1 : 0;
    return CloseMessage("ITSMetaDataToTLV", result, outer, encoder);
}

int CAdapterLensBase::FaceMetaDataToTLV(const stFaceRects* faces, TLV_Encoder& encoder) {
    GVX_CHECK_NULL_RETURN(faces, ZVS_FAIL);
    TLV_Encoder outer;
    const long result = PutCommon(gvx::FacePts(*faces), outer) != 0 || PutPanoramaTarget(*faces, outer) != 0 ||
                                PutFaceTargets(*faces, outer) != 0
                            ? 1
                            : 0;
    return CloseMessage("FaceMetaDataToTLV", result, outer, encoder);
}
