// Movit's headers need this before OpenGL's.
#include <epoxy/egl.h>
#include <epoxy/gl.h>

#include "bench/peers/Participant.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <movit/effect_chain.h>
#include <movit/flat_input.h>
#include <movit/image_format.h>
#include <movit/init.h>
#include <movit/version.h>
#include <movit/ycbcr.h>
#include <movit/ycbcr_422interleaved_input.h>
#include <string>

// The participant for Movit, on OpenGL without a window. It reads UYVY and only supports linear interpolation
// of chroma; it writes 4:4:4, because it cannot write 4:2:2.

namespace Qx::Bench {
namespace {

constexpr int framesTogether = 16;

/// An OpenGL context that draws into textures only, for the lifetime of the program.
bool makeContext()
{
    const EGLDisplay display =
        eglGetPlatformDisplayEXT(EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY, nullptr);
    if (display == EGL_NO_DISPLAY || eglInitialize(display, nullptr, nullptr) != EGL_TRUE ||
        eglBindAPI(EGL_OPENGL_API) != EGL_TRUE) {
        return false;
    }
    const EGLint attributes[] = {EGL_CONTEXT_MAJOR_VERSION,
                                 3,
                                 EGL_CONTEXT_MINOR_VERSION,
                                 2,
                                 EGL_CONTEXT_OPENGL_PROFILE_MASK,
                                 EGL_CONTEXT_OPENGL_CORE_PROFILE_BIT,
                                 EGL_NONE};
    const EGLContext context = eglCreateContext(display, EGL_NO_CONFIG_KHR, EGL_NO_CONTEXT, attributes);
    return context != EGL_NO_CONTEXT &&
           eglMakeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, context) == EGL_TRUE;
}

movit::YCbCrFormat videoFormat(int subsampling)
{
    movit::YCbCrFormat format{};
    format.luma_coefficients = movit::YCBCR_REC_709;
    format.full_range = false;
    format.num_levels = 256;
    format.chroma_subsampling_x = static_cast<unsigned>(subsampling);
    format.chroma_subsampling_y = 1;
    format.cb_x_position = 0.0F; // on the even pixel
    format.cr_x_position = 0.0F;
    format.cb_y_position = 0.5F;
    format.cr_y_position = 0.5F;
    return format;
}

movit::ImageFormat imageFormat()
{
    movit::ImageFormat format{};
    format.color_space = movit::COLORSPACE_REC_709;
    format.gamma_curve = movit::GAMMA_REC_709;
    return format;
}

/// A chain of effects from a frame in memory to a texture.
class Conversion : public Job
{
public:
    explicit Conversion(const Work& work)
        : work_(work), frame_(sourceFrame(work)), chain_(frameWidth, frameHeight)
    {
        work.kind == WorkKind::Decode ? decode() : encode();
        chain_.set_dither_bits(0);
        chain_.finalize();
        glGenTextures(targetsInTurn, targets_.data());
        glGenFramebuffers(targetsInTurn, framebuffers_.data());
        for (std::size_t i = 0; i < targetsInTurn; ++i) {
            glBindTexture(GL_TEXTURE_2D, targets_.at(i));
            glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA8, frameWidth, frameHeight, 0, GL_RGBA, GL_UNSIGNED_BYTE,
                         nullptr);
            glBindFramebuffer(GL_FRAMEBUFFER, framebuffers_.at(i));
            glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, targets_.at(i), 0);
        }
        picture_.resize(frameBytes(FrameLayout::Colour, 8));
    }
    Conversion(const Conversion&) = delete;
    Conversion& operator=(const Conversion&) = delete;
    ~Conversion() override
    {
        glDeleteFramebuffers(targetsInTurn, framebuffers_.data());
        glDeleteTextures(targetsInTurn, targets_.data());
    }

    int frames() override
    {
        if (work_.place == Place::Memory) {
            setFrame();
            chain_.render_to_fbo(framebuffers_.front(), frameWidth, frameHeight);
            read();
            return 1;
        }
        for (std::size_t i = 0; i < framesTogether; ++i) {
            chain_.render_to_fbo(framebuffers_.at(i % targetsInTurn), frameWidth, frameHeight);
        }
        glFinish();
        return framesTogether;
    }

    std::vector<std::byte> result() override
    {
        if (work_.kind == WorkKind::Encode) {
            return {}; // 4:4:4 cannot be compared with 4:2:2
        }
        read();
        const std::size_t row = rowBytes(FrameLayout::Colour, 8);
        std::vector<std::byte> upright; // OpenGL stores the bottom row first
        for (std::size_t y = frameHeight; y-- > 0;) {
            const auto begin = picture_.begin() + static_cast<std::ptrdiff_t>(y * row);
            upright.insert(upright.end(), begin, begin + static_cast<std::ptrdiff_t>(row));
        }
        return upright;
    }

private:
    void decode()
    {
        for (std::size_t at = 0; at < frame_.size(); at += 2) {
            std::swap(frame_[at], frame_[at + 1]); // to UYVY
        }
        video_ = new movit::YCbCr422InterleavedInput(imageFormat(), videoFormat(2), frameWidth, frameHeight);
        chain_.add_input(video_); // which owns it
        setFrame();
        chain_.add_output(imageFormat(), movit::OUTPUT_ALPHA_FORMAT_POSTMULTIPLIED);
    }

    void encode()
    {
        colour_ = new movit::FlatInput(imageFormat(), movit::FORMAT_RGBA_POSTMULTIPLIED_ALPHA,
                                       GL_UNSIGNED_BYTE, frameWidth, frameHeight);
        chain_.add_input(colour_);
        setFrame();
        chain_.add_ycbcr_output(imageFormat(), movit::OUTPUT_ALPHA_FORMAT_POSTMULTIPLIED, videoFormat(1));
    }

    void setFrame()
    {
        const auto* const pixels = reinterpret_cast<const unsigned char*>(frame_.data());
        video_ != nullptr ? video_->set_pixel_data(pixels) : colour_->set_pixel_data(pixels);
    }

    void read()
    {
        glBindFramebuffer(GL_READ_FRAMEBUFFER, framebuffers_.front());
        glReadPixels(0, 0, frameWidth, frameHeight, GL_RGBA, GL_UNSIGNED_BYTE, picture_.data());
    }

    Work work_;
    std::vector<std::byte> frame_;
    movit::EffectChain chain_;
    movit::YCbCr422InterleavedInput* video_ = nullptr;
    movit::FlatInput* colour_ = nullptr;
    std::array<GLuint, targetsInTurn> targets_{};
    std::array<GLuint, targetsInTurn> framebuffers_{};
    std::vector<std::byte> picture_;
};

} // namespace
} // namespace Qx::Bench

int main()
{
    using namespace Qx::Bench;
    if (!makeContext() || !movit::init_movit(QX_MOVIT_DATA, movit::MOVIT_DEBUG_OFF)) {
        std::fprintf(stderr, "there is no OpenGL that Movit can use\n");
        return 1;
    }
    const std::string driver = reinterpret_cast<const char*>(glGetString(GL_RENDERER));
    Participant participant{"Movit " + std::to_string(MOVIT_VERSION),
                            driver,
                            "OpenGL on " + driver + ", " +
                                reinterpret_cast<const char*>(glGetString(GL_VERSION)),
                            {}};
    for (const Work& work : allWorks()) {
        const bool decode = work.kind == WorkKind::Decode && work.filter == ChromaFilter::CatmullRom;
        const bool encode = work.kind == WorkKind::Encode && work.filter == ChromaFilter::Point;
        if (work.depth == 8 && (decode || encode)) {
            participant.offers.push_back({work.key(), "effect chain",
                                          decode ? "another driver, OpenGL; linear chroma; from UYVY"
                                                 : "another driver, OpenGL; to 4:4:4",
                                          [work] { return std::make_unique<Conversion>(work); }});
        }
    }
    return serve(participant);
}
