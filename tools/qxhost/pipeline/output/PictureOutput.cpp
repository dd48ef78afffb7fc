#include "tools/qxhost/pipeline/output/PictureOutput.h"

#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/media/files/NumberedNames.h"
#include "tools/qxhost/media/write/FrameWriter.h"

namespace Qx::Program {

void requirePicture(const std::filesystem::path& output, const std::string& what)
{
    if (output.has_extension() && !Media::writesPictures(output)) {
        throw Failure(ExitCode::output, output.string() + ": " + what +
                                            " is a picture; choose a name that ends in .png, .jpg, .tif or "
                                            "another ending of pictures");
    }
}

void requireOnePicture(const std::filesystem::path& output, const std::string& what)
{
    requirePicture(output, what);
    if (Media::NumberedNames(output).isPattern()) {
        throw Failure(ExitCode::output, output.string() + ": is a pattern for numbered pictures, and " +
                                            what + " is one picture; choose a name without it");
    }
}

std::string writtenFiles(const std::vector<std::filesystem::path>& files, const std::filesystem::path& output)
{
    const std::string first = files.empty() ? output.string() : files.front().string();
    return first + (files.size() > 1 ? " to " + files.back().filename().string() : "");
}

} // namespace Qx::Program
