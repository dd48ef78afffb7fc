#include "tools/qxhost/studio/picture/Jpeg.h"

#include "tools/qxhost/console/Failure.h"

#include <algorithm>
#include <turbojpeg.h>

namespace Qx::Program::Studio {

struct JpegEncoder::Impl
{
    tjhandle handle = ::tjInitCompress();
    unsigned char* buffer = nullptr;
    unsigned long size = 0;
};

JpegEncoder::JpegEncoder() : impl_(std::make_unique<Impl>())
{
    if (impl_->handle == nullptr) {
        throw Failure(ExitCode::failed, "no memory for compressing pictures");
    }
}

JpegEncoder::~JpegEncoder()
{
    ::tjFree(impl_->buffer);
    ::tjDestroy(impl_->handle);
}

std::string JpegEncoder::encode(const PixelView& picture, int quality)
{
    constexpr int wholeChroma = 90;
    const int sampling = quality >= wholeChroma ? TJSAMP_444 : TJSAMP_420;
    unsigned long length = impl_->size;
    const int result =
        ::tjCompress2(impl_->handle, picture.pixels, picture.width, static_cast<int>(picture.pitch),
                      picture.height, TJPF_XRGB, &impl_->buffer, &length, sampling, quality, 0);
    if (result != 0) {
        throw Failure(ExitCode::failed,
                      std::string("a picture cannot be compressed: ") + ::tjGetErrorStr2(impl_->handle));
    }
    // What the library has enlarged the buffer to is at least that.
    impl_->size = std::max(impl_->size, length);
    return {reinterpret_cast<const char*>(impl_->buffer), length};
}

} // namespace Qx::Program::Studio
