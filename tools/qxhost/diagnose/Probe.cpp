#include "tools/qxhost/diagnose/Probe.h"

#include "platform/GPUService.h"
#include "platform/GraphicPrimitives.h"
#include "platform/OS.h"

namespace Qx::Diagnosis {

void Probe::beginStep(const std::string& name, const std::string& title)
{
    step_ = name;
    operations_ = 0;
    life_.doing(title);
    send_(StepBegun{name, title});
}

bool Probe::operation()
{
    life_.again();
    return aid_.permits(step_, ++operations_);
}

Qx::Ptr<iGPUImage> Probe::upload(const Qx::Ptr<iHostImage>& image)
{
    return operation() ? OS().gpu().uploadImage(image, 0) : Qx::Ptr<iGPUImage>();
}

Image::Surface Probe::upload(const Image::Surface& frame)
{
    return operation() ? frame.uploadToGPU() : Image::Surface();
}

Qx::Ptr<iHostImage> Probe::download(const Qx::Ptr<iGPUImage>& image)
{
    return operation() ? OS().gpu().downloadImage(image) : Qx::Ptr<iHostImage>();
}

bool Probe::finish()
{
    // One queue, in order: what is drawn last is done last. One texel costs nothing beside a frame.
    if (!last_) {
        last_ = OS().gpu().createGPUImage({1, 1}, iGPUImage::eARGB8);
    }
    const Qx::Ptr<iGraphicPrimitivesRenderer> renderer =
        last_ ? last_->getPrimitivesRenderer(1) : Qx::Ptr<iGraphicPrimitivesRenderer>();
    if (!renderer || !renderer->draw(RectDescription{{0, 0, 1, 1}, {}, {}, 0}, 1)) {
        return false;
    }
    const Qx::Ptr<iHostImage> image = OS().gpu().downloadImage(last_);
    const bool done = image && image->map(iHostImage::Read) != nullptr;
    life_.beat();
    return done;
}

} // namespace Qx::Diagnosis
