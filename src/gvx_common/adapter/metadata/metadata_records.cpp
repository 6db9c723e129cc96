#include "gvx_common/adapter/metadata/metadata_records.h"

#include "base/log.h"
#include "gvx_common/media_memory/MemHandler.h"

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

_META_RECT_S PlateRect(const stObjectRect& from) {
    _META_RECT_S rect;
    rect.usX = from.x;
    rect.usY = from.y;
    rect.usWidth = from.width;
    rect.usHeight = from.height;
    return rect;
}

unsigned int PlateTextLength(const TV_ITS_PLATE_INFO& plate) {
    return static_cast<unsigned int>(strnlen(plate.szPlateNumber, sizeof(plate.szPlateNumber)));
}

}  // namespace gvx
