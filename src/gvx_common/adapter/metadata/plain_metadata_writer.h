#pragma once

#include "gvx_common/records/gvx_metadata_records.h"

class TLV_Encoder;

namespace gvx {

// Writes a record with pictures by pointer as a message in the map form: the items of each layer leave sorted by their
// type. One message for each writer, on the thread of the lens's metadata.
class PlainMetadataWriter {
public:
    // The encoder is fresh and outlives the writer.
    explicit PlainMetadataWriter(TLV_Encoder& encoder) : m_encoder(encoder) {}

    // 0; 1 with an error line, the encoder then being cleared.
    int WritePlates(const ITSPlates& plates);
    int WriteFaces(const stFaceRects& faces);

private:
    static long PutPlateTarget(const ITSPlates& plates, TLV_Encoder& outer);
    static long PutPanoramaTarget(const stFaceRects& faces, TLV_Encoder& outer);
    static long PutFaceTarget(const FaceRect& face, TLV_Encoder& outer);
    int CloseMessage(const char* title, bool failed, TLV_Encoder& outer);

    TLV_Encoder& m_encoder;
};

}  // namespace gvx
