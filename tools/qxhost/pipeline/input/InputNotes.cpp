#include "tools/qxhost/pipeline/input/InputNotes.h"

#include "tools/qxhost/media/write/FrameWriter.h"
#include "tools/qxhost/pipeline/burnin/TimeCode.h"
#include "tools/qxhost/pipeline/input/FrameInput.h"

#include <cstring>

namespace Qx::Program {

bool keepsAlpha(const ConvertOptions& options, const Media::StreamInfo& info)
{
    const bool holdsIt = !options.format || std::strchr(options.format->info->order, 'A') != nullptr;
    return info.hasAlpha && options.alpha != Media::AlphaKind::none && holdsIt &&
           !std::holds_alternative<ShrinkPicture>(options.step);
}

std::vector<std::string> inputNotes(const ConvertOptions& options, const Media::StreamInfo& info)
{
    std::vector<std::string> notes = info.remarks;
    if (!info.timeCode.empty() && !Media::writesPictures(options.namedOutput()) &&
        !TimeCode::startingAt(info.timeCode, info.frameRate)) {
        notes.push_back("time code " + info.timeCode +
                        " is left out: it is invalid at the clip's frame rate");
    }
    if (info.hasAlpha && options.alpha != Media::AlphaKind::none && !keepsAlpha(options, info)) {
        notes.push_back(options.inputName() + " has alpha, which is left out; the output is opaque");
    }
    if (info.hasFullChroma && !holdsRgb(info) && options.format && options.format->isYCrCb()) {
        notes.push_back(options.inputName() + " (" + info.pixelFormat +
                        ") has full chroma resolution, of which " + options.format->name() + " keeps half");
    }
    return notes;
}

std::string wayToGpu(const Media::StreamInfo& info)
{
    if (holdsRgb(info)) {
        return "RGB, with unchanged codes";
    }
    if (holdsFullChroma(info)) {
        return info.subsamplesChroma ? "4:4:4 with alpha, computed from " + info.pixelFormat + " at 16 bits"
                                     : std::string("4:4:4, with unchanged codes");
    }
    return info.packsCodes ? "4:2:2, with unchanged codes"
                           : "4:2:2, computed from " + info.pixelFormat + " at 16 bits";
}

} // namespace Qx::Program
