#include "gvx_common/adapter/metadata/plain_metadata_writer.h"

#include "base/log.h"
#include "gvx_common/adapter/metadata/metadata_records.h"
#include "gvx_common/tlv/metadata_tags.h"
#include "gvx_common/tlv/tlv_encoder.h"

namespace gvx {

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

long PutPicture(int type, const ITSPlates& plates, int place, TLV_Encoder& inner) {
    if (!HasPicture(plates, place)) {
        return 0;
    }
    const _ITSSnapPictureInfo& picture = plates.astPicInfos[place];
    return inner.PutValue(type, picture.ptrPicBuffer, static_cast<unsigned long>(picture.iPicLen));
}

}  // namespace

long PlainMetadataWriter::PutPlateTarget(const ITSPlates& plates, TLV_Encoder& outer) {
    const TV_ITS_VEHICLE_INFO& vehicle = plates.vehicleInfo;
    const auto* text = reinterpret_cast<const unsigned char*>(vehicle.stPlateInfo.szPlateNumber);
    const unsigned long long snapTime = vehicle.uiSnapTime;
    const std::uint64_t objectId = plates.astPicInfos[ITS_PIC_PLATE].ulPicFileID;
    TLV_Encoder inner;
    const bool failed = inner.PutValue(LANE_ID, vehicle.cLaneChannel) != 0 ||
                        inner.PutValue(VEHICLE_TYPE_TV, vehicle.stVehicleInfo.cVehicleType) != 0 ||
                        inner.PutValue(VEHICLE_COLOR, vehicle.stVehicleInfo.cVehicleColor) != 0 ||
                        inner.PutValue(PLATE_TYPE, vehicle.stPlateInfo.cPlateType) != 0 ||
                        inner.PutValue(PLATE_COLOR, vehicle.stPlateInfo.cPlateColor) != 0 ||
                        PutRect(PLATE_POS, PlateRect(plates.stPlatePos), inner) != 0 ||
                        PutRect(PLATE_POS_COM, PlateRect(plates.platePosCom), inner) != 0 ||
                        PutRect(PLATE_POS_ABS, PlateRect(plates.platePosAbs), inner) != 0 ||
                        PutRect(VEHICLE_POS_COM, PlateRect(plates.vehiclePosCom), inner) != 0 ||
                        PutRect(VEHICLE_POS_ABS, PlateRect(plates.vehiclePosAbs), inner) != 0 ||
                        inner.PutValue(PLATE_CHAR, text, PlateTextLength(vehicle.stPlateInfo)) != 0 ||
                        inner.PutValue(PIC_SNAPSHOT_TIME, snapTime) != 0 ||
                        inner.PutValue(VEHICLE_SPEED, vehicle.stVehicleInfo.iVehicleSpeed) != 0 ||
                        PutPicture(PLATE_PIC, plates, ITS_PIC_PLATE, inner) != 0 ||
                        PutPicture(PANORAMA_PIC, plates, ITS_PIC_PANORAMA, inner) != 0 ||
                        inner.PutValue(GLOBAL_OBJID, objectId) != 0 || CloseLayer(TARGET, inner, outer) != 0;
    return failed ? 1 : 0;
}

long PlainMetadataWriter::PutPanoramaTarget(const stFaceRects& faces, TLV_Encoder& outer) {
    TLV_Encoder inner;
    if (faces.ulPanoramaPicsize != 0 &&
        inner.PutValue(FACE_PANORAMA, faces.pPanoramaPicBuf, faces.ulPanoramaPicsize) != 0) {
        return 1;
    }
    const std::uint64_t alarmTime = faces.uAlarmTime;
    return inner.PutValue(FACE_PIC_TIME, alarmTime) != 0 || CloseLayer(TARGET, inner, outer) != 0 ? 1 : 0;
}

long PlainMetadataWriter::PutFaceTarget(const FaceRect& face, TLV_Encoder& outer) {
    const std::uint64_t faceId = face.ulfaceid;
    const std::uint64_t faceTime = face.uFaceTime;
    const short score = face.neighbors;
    const short angle = face.angle;
    TLV_Encoder inner;
    if (PutRect(FACE_POS, FacePos(face), inner) != 0 || inner.PutValue(FACE_SCORE, score) != 0 ||
        inner.PutValue(FACE_ANGLE, angle) != 0 || inner.PutValue(FACE_ID, faceId) != 0 ||
        inner.PutValue(GLOBAL_OBJID, faceId) != 0 || inner.PutValue(FACE_PIC_TIME, faceTime) != 0) {
        return 1;
    }
    if (face.ulsize != 0 && inner.PutValue(FACE_PIC, face.pfacebuf, face.ulsize) != 0) {
        return 1;
    }
    return CloseLayer(TARGET, inner, outer);
}

// The last steps of every message, unless one before has failed.
int PlainMetadataWriter::CloseMessage(const char* title, bool failed, TLV_Encoder& outer) {
    if (failed || CloseLayer(METADATA_TYPE, outer, m_encoder) != 0 || m_encoder.Encode() != 0) {
        GVX_LOG_ERR(title, "The message could not be put together, length[%lu]", outer.GetTlvDataLen());
        m_encoder.Clear();
        return ZVS_FAIL;
    }
    return ZVS_SUCCEED;
}

int PlainMetadataWriter::WritePlates(const ITSPlates& plates) {
    TLV_Encoder outer;
    const unsigned long long snapTime = plates.vehicleInfo.uiSnapTime;
    const bool failed = PutCommon(snapTime, outer) != 0 || PutPlateTarget(plates, outer) != 0;
    return CloseMessage("ITSMetaDataToTLV", failed, outer);
}

int PlainMetadataWriter::WriteFaces(const stFaceRects& faces) {
    TLV_Encoder outer;
    bool failed = PutCommon(FacePts(faces), outer) != 0 || PutPanoramaTarget(faces, outer) != 0;
    for (unsigned int i = 0; i < FaceCount(faces) && !failed; ++i) {
        failed = PutFaceTarget(faces.faces[i], outer) != 0;
    }
    return CloseMessage("FaceMetaDataToTLV", failed, outer);
}

}  // namespace gvx
