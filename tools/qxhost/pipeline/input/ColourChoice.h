#pragma once

#include "tools/qxhost/media/read/ClipReader.h"
#include "tools/qxhost/pipeline/options/ConvertOptions.h"

#include <string>
#include <vector>

namespace Qx::Program {

/// How the input's codes are interpreted.
struct ColourChoice
{
    Media::Range range = Media::Range::video; ///< of RGB, if the input is kept as RGB
    Media::Matrix matrix = Media::Matrix::bt709;
    bool rangeGuessed = false;
    bool matrixGuessed = false;

    /// For the writer: the matrix above, with the stream's tags where they do not contradict it.
    Media::Colour forWriting;

    /// What was guessed, a line each for the user.
    std::vector<std::string> notes;
};

/// Decides between the stream's tags and the user's options, which win. Throws Failure (input) if the tags
/// name unsupported colours and the user chose no matrix.
ColourChoice chooseColour(const ConvertOptions& options, const Media::StreamInfo& info);

const char* nameOf(Media::Range range);
const char* nameOf(Media::Matrix matrix); ///< "BT.601", "BT.709"

} // namespace Qx::Program
