#include "tools/qxhost/pipeline/input/UploadChoice.h"

#include "tools/qxhost/pipeline/input/FrameInput.h"

namespace Qx::Program {

Media::Depth uploadDepth(const Media::StreamInfo& info, Media::Depth pictures,
                         std::optional<Media::Depth> chosen)
{
    if (holdsFullChroma(info)) {
        return info.subsamplesChroma ? Media::Depth::bits16 : info.naturalDepth;
    }
    return holdsRgb(info) || chosen ? pictures : info.packingDepth;
}

int uploadBits(const Media::StreamInfo& info, Media::Depth upload, Media::Range range)
{
    // Codes of full range would be rounded on their way to 16 bits, and once more when RGB is made of them.
    const bool isDeep = upload == Media::Depth::bits16 && info.naturalDepth == Media::Depth::bits16;
    return info.packsCodes && isDeep && range == Media::Range::full ? info.bitsPerComponent : 0;
}

} // namespace Qx::Program
