#include "tools/qxhost/pipeline/input/InputNotes.h"

#include "tools/qxhost/media/write/FrameWriter.h"
#include "tools/qxhost/pipeline/burnin/TimeCode.h"
#include "tools/qxhost/pipeline/input/FrameInput.h"

namespace Qx::Program {

std::vector<std::string> inputNotes(const ConvertOptions& options, const Media::StreamInfo& info)
{
    std::vector<std::string> notes = info.remarks;
    if (!info.timeCode.empty() && !Media::writesPictures(options.output) &&
        !TimeCode::startingAt(info.timeCode, info.frameRate)) {
        notes.push_back("time code " + info.timeCode +
                        " is left out: it is invalid at the clip's frame rate");
    }
    const bool keepsAlpha = options.format && !options.format->isYCrCb();
    if (info.hasAlpha && !keepsAlpha) {
        notes.push_back(options.inputName() + " has alpha, which is left out; the output is opaque");
    }
    if (info.hasFullChroma && !holdsRgb(info)) {
        notes.push_back(options.inputName() + " (" + info.pixelFormat +
                        ") has full chroma resolution; it passes through 4:2:2, which keeps half of it");
    }
    return notes;
}

std::string wayToGpu(const Media::StreamInfo& info)
{
    if (holdsRgb(info)) {
        return "RGB, with unchanged codes";
    }
    return info.packsCodes ? "4:2:2, with unchanged codes"
                           : "4:2:2, computed from " + info.pixelFormat + " at 16 bits";
}

} // namespace Qx::Program
