#include "tools/qxhost/farm/job/OutputKind.h"

#include "tools/qxhost/media/write/FrameWriter.h"

namespace Qx::Program::Farm {

OutputKind kindOf(const ConvertOptions& options)
{
    if (Media::writesPictures(options.output)) {
        return OutputKind::pictures;
    }
    constexpr unsigned anySize = 16;
    const bool isRaw = options.format &&
                       Media::writesRawFrames(options.output, writtenLayout(*options.format, options.output,
                                                                            anySize, anySize, 0));
    return isRaw ? OutputKind::rawFile : OutputKind::clip;
}

} // namespace Qx::Program::Farm
