#pragma once

#include "tools/qxhost/pipeline/frames/FrameProcessor.h"

#include <cstdint>
#include <optional>

extern "C" {
#include <framework/mlt.h>
}

namespace Qx::Mlt {

/// The image format in which a picture is asked of MLT, so that what was asked for, or what MLT converts it
/// to, loses nothing: 4:2:2 of 8 or 16 bits, or R G B A of 8.
mlt_image_format workingFormat(mlt_image_format asked);

/// An image in MLT's memory, in one of the working formats.
struct Image
{
    std::uint8_t* data = nullptr;
    mlt_image_format format = mlt_image_none;
    int width = 0;
    int height = 0;
};

/// The frame's image in a working format, the one for `asked`: its data are empty if there is none. Rows of
/// 4:2:2 of an odd width end with half a pair: such images are R G B A. Returns MLT's error.
int imageOf(mlt_frame frame, mlt_image_format asked, int width, int height, bool writable, Image& image);

/// What the frame says of its image; empty if the image is in no working format. Colours that the frame does
/// not state are those of the profile.
std::optional<Program::FrameForm> formOf(const Image& image, mlt_frame frame, mlt_profile profile);

/// The form in which results go back: YCbCr always has video range.
Program::FrameForm resultForm(Program::FrameForm form);

/// MLT's number for the matrix, its property "colorspace".
int colourSpaceOf(Media::Matrix matrix);

/// Copies the image's rows to or from packed rows, in slices.
void copyFrom(const Image& image, void* rows, std::ptrdiff_t pitch);
void copyTo(const Image& image, const void* rows, std::ptrdiff_t pitch);

} // namespace Qx::Mlt
