#pragma once

#include "tools/qxhost/studio/picture/Pixels.h"

#include <memory>
#include <string>

namespace Qx::Program::Studio {

/// Compresses pictures. One thread at a time.
class JpegEncoder
{
public:
    /// Throws Failure (failed) without memory.
    JpegEncoder();
    ~JpegEncoder();
    JpegEncoder(const JpegEncoder&) = delete;
    JpegEncoder& operator=(const JpegEncoder&) = delete;

    /// The picture as JPEG; alpha is left out. `quality` is 1 to 100: from 90 on, every pixel has its own
    /// chroma. Throws Failure (failed) for more than 65500 pixels a side.
    std::string encode(const PixelView& picture, int quality);

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

} // namespace Qx::Program::Studio
