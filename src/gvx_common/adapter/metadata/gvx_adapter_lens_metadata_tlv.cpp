#include "gvx_common/adapter/metadata/gvx_adapter_lens_metadata_tlv.h"

#include "base/log.h"
#include "gvx_common/adapter/gvx_adapter_dev.h"
#include "gvx_common/adapter/gvx_adapter_lens.h"
#include "gvx_common/media_memory/MemHandler.h"
#include "gvx_common/tlv/metadata_tags.h"
#include "gvx_common/tlv/tlv_encoder.h"

#include <ace/Message_Block.h>

#include <algorithm>
#include <cstring>

namespace gvx {

const void* RecordAtHead(const MemHandler* record, std::size_t size, const char* title) {
    if (record->GetHead() == nullptr || record->GetLength() < size) {
        GVX_LOG_ERR(title, "The record needs %zu bytes, and the buffer holds %u.", size, record->GetLength());
        return nullptr;
    }
    return record->GetHead()->rd_ptr();
}

unsigned int FaceCount(const stFaceRects& faces) {
    const std::int32_t count = faces.count;
    return static_cast<unsigned int>(std::clamp(count, 0, GVX_MAX_FACES));
}

unsigned long long FacePts(const stFaceRects& faces) {
    return static_cast<unsigned long long>(faces.uiTimeStampH) << 32 | faces.uiTimeStampL;
}

_META_RECT_S FacePos(const FaceRect& face) {
    _META_RECT_S pos;
    pos.usX = static_cast<unsigned short>(face.x);
    pos.usY = static_cast<unsigned short>(face.y);
    pos.usWidth = static_cast<unsigned short>(face.width);
    pos.usHeight = static_cast<unsigned short>(face.height);
    return pos;
}

unsigned int PlateTextLength(const TV_ITS_PLATE_INFO& plate) {
    return static_cast<unsigned int>(strnlen(plate.szPlateNumber, sizeof(plate.szPlateNumber)));
}

}  // namespace gvx

void CAdapterLensBase::GetPlateRect(const stObjectRect& from, _META_RECT_S& to) {
    to.usX = from.x;
    to.usY = from.y;
    to.usWidth = from.width;
    to.usHeight = from.height;
}

int CAdapterLensBase::GetMetaTlv(_METADATE_TYPE metaDataType, const void* metaData, TLV_Encoder& encoder) {
    switch (metaDataType) {
        case METADATE_TYPE_FACE:
            return FaceMetaDataToTLV(static_cast<const stFaceRects*>(metaData), encoder);
        case METADATE_TYPE_PLATE:
            return ITSMetaDataToTLV(static_cast<const ITSPlates*>(metaData), encoder);
        case METADATA_TYPE_HEART_BEAT:
            if (encoder.PutValue(HEART_BEART_TYPE, static_cast<int>(HEART_BEART_TYPE)) != 0 || encoder.Encode() != 0) {
                encoder.Clear();
                return ZVS_FAIL;
            }
            return ZVS_SUCCEED;
        default:
            GVX_LOG_ERR("GetMetaTlv", "MetaDataType[%d]", static_cast<int>(metaDataType));
            return ZVS_FAIL;
    }
}

int CAdapterLensBase::GetMetaTlvEx(_METADATE_TYPE metaDataType, const void* metaData, TLV_Encoder& encoder) {
    switch (metaDataType) {
        case METADATE_TYPE_FACE:
            return FaceMetaDataToTLVEx(static_cast<const MemHandler*>(metaData), encoder);
        case METADATE_TYPE_PLATE:
            return ITSMetaDataToTLVEx(static_cast<const MemHandler*>(metaData), encoder);
        case METADATA_TYPE_HEART_BEAT:
            if (encoder.EncodeValue(HEART_BEART_TYPE, HEART_BEART_TYPE, sizeof(HEART_BEART_TYPE)) != 0) {
                encoder.Clear();
                return ZVS_FAIL;
            }
            return ZVS_SUCCEED;
        default:
            GVX_LOG_ERR("GetMetaTlvEx", "MetaDataType[%d]", static_cast<int>(metaDataType));
            return ZVS_FAIL;
    }
}
