// Plays a clip through an effect in a window. The application makes its own Vulkan device and lends it to the
// host; the library converts and grades on it, and the swapchain copies from the result. After the upload of
// a decoded frame no picture leaves the device.
//
//   window CLIP [EFFECT.fx] [--frames N] [--hold]
//
// --frames N ends after N frames; --hold then keeps the last one until the window is closed. Escape closes it
// too.

#include "Clip.h"
#include "Swapchain.h"
#include "VulkanDevice.h"

#include <QxFxResources/GPUColourConverter.h>
#include <SDL.h>
#include <SDL_vulkan.h>
#include <host/Host.h>
#include <host/gpu/GPUService.h>
#include <image/TechniqueApplication.h>
#include <platform/Text.h>

#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <thread>
#include <utility>

namespace {

using Qx::Image::Surface;

struct Arguments
{
    std::string clip{};
    std::string effect{};
    long frames = -1; ///< all
    bool holds = false;
};

bool parse(int argc, char** argv, Arguments& arguments)
{
    for (int i = 1; i < argc; ++i) {
        const std::string_view argument = argv[i];
        if (argument == "--hold") {
            arguments.holds = true;
        } else if (argument == "--frames") {
            const std::string_view number = i + 1 < argc ? argv[++i] : "";
            const auto [end, error] =
                std::from_chars(number.data(), number.data() + number.size(), arguments.frames);
            if (error != std::errc() || end != number.data() + number.size() || arguments.frames < 1) {
                std::fprintf(stderr, "window: --frames expects a number of at least 1\n");
                return false;
            }
        } else if (arguments.clip.empty() && !argument.starts_with("-")) {
            arguments.clip = argument;
        } else if (arguments.effect.empty() && !argument.starts_with("-")) {
            arguments.effect = argument;
        } else {
            std::fprintf(stderr, "window: unexpected argument \"%s\"\n", argv[i]);
            return false;
        }
    }
    if (arguments.clip.empty()) {
        std::fprintf(stderr, "usage: window CLIP [EFFECT.fx] [--frames N] [--hold]\n");
    }
    return !arguments.clip.empty();
}

/// SDL with one window, for the length of main.
class Window
{
public:
    ~Window()
    {
        if (window_ != nullptr) {
            SDL_DestroyWindow(window_);
        }
        SDL_Quit();
    }

    bool open(const Clip& clip, std::string& failure)
    {
        if (SDL_Init(SDL_INIT_VIDEO) != 0) {
            failure = std::string("there is no display: ") + SDL_GetError();
            return false;
        }
        window_ = SDL_CreateWindow("window", SDL_WINDOWPOS_CENTERED, SDL_WINDOWPOS_CENTERED,
                                   static_cast<int>(clip.width()), static_cast<int>(clip.height()),
                                   SDL_WINDOW_VULKAN | SDL_WINDOW_RESIZABLE);
        if (window_ == nullptr) {
            failure = std::string("no window could be opened for Vulkan: ") + SDL_GetError();
        }
        return window_ != nullptr;
    }

    SDL_Window* handle() const { return window_; }

    /// Takes what the user did. False once the window is closed.
    bool isOpen()
    {
        SDL_Event event;
        while (SDL_PollEvent(&event) != 0) {
            const bool escape = event.type == SDL_KEYDOWN && event.key.keysym.sym == SDLK_ESCAPE;
            isOpen_ = isOpen_ && event.type != SDL_QUIT && !escape;
            isStale_ = isStale_ || event.type == SDL_WINDOWEVENT;
        }
        return isOpen_;
    }

    /// Whether it was resized or uncovered since the last call.
    bool takeStale() { return std::exchange(isStale_, false); }

private:
    SDL_Window* window_ = nullptr;
    bool isOpen_ = true;
    bool isStale_ = false;
};

/// What happens to a decoded frame on the device.
class Grading
{
public:
    Grading(unsigned width, unsigned height) : width_(width), height_(height) {}

    bool load(const std::string& effect, std::string& failure)
    {
        order_ = compiled(EFFECTS "rgba.fx", failure);
        if (order_ && !effect.empty()) {
            effect_ = compiled(effect, failure);
        }
        return order_ && (effect.empty() || effect_);
    }

    /// The next frame in R G B A; empty at the end of the clip or if the device failed.
    Qx::Ptr<iGPUImage> next(Clip& clip)
    {
        using namespace Qx::Image;
        Surface frame(width_, height_, YUY2, false, 8, 0, 0);
        const Qx::Ptr<iHostImage> rows = frame.allocateHost() ? frame.getHostImage() : Qx::Ptr<iHostImage>();
        auto* const bytes = rows ? static_cast<unsigned char*>(rows->map(iHostImage::Write)) : nullptr;
        if (bytes == nullptr || !clip.read(bytes, static_cast<int>(rows->getPitch()))) {
            return {};
        }
        frame.setColourSpace(clip.isBT709() ? ColourSpace::BT709 : ColourSpace::BT601);
        frame.setGamutScaling(clip.isFullRange() ? GamutScaling::Unscaled : GamutScaling::Video);
        const Surface onDevice = frame.uploadToGPU();
        Surface picture = frame.createDestARGBGPUSurface(iGPUImage::eARGB8);
        if (!ColourConversion::convertYCrCb422ToRGB(onDevice, picture, GamutScaling::Unscaled,
                                                    Filter::CatmullRom)) {
            return {};
        }
        if (effect_) {
            picture = through(effect_, picture);
        }
        return through(order_, picture).getGPUSurface();
    }

private:
    static Qx::Ptr<iShaderEffect> compiled(const std::string& file, std::string& failure)
    {
        EffectCompileResult result = Qx::Host::gpuService().compileEffectFile(fromUTF8(file.c_str()), {});
        if (!result.effect) {
            failure = result.errors.c_str();
        }
        return result.effect;
    }

    Surface through(const Qx::Ptr<iShaderEffect>& effect, const Surface& picture) const
    {
        Surface result = picture.createDestARGBGPUSurface(iGPUImage::eARGB8);
        applyTechnique(effect, picture, result, effect->getTechniqueNames().front(),
                       static_cast<float>(width_));
        return result;
    }

    unsigned width_;
    unsigned height_;
    Qx::Ptr<iShaderEffect> effect_;
    Qx::Ptr<iShaderEffect> order_;
};

/// The clip in the window.
class Player
{
public:
    Player(Clip& clip, Window& window, Swapchain& swapchain)
        : clip_(clip), window_(window), swapchain_(swapchain), sharing_(Qx::Host::gpuService())
    {
    }

    /// Shows frame after frame, `frames` at most unless it is negative. Returns the number of those shown;
    /// -1 if the device failed.
    long play(Grading& grading, long frames)
    {
        const std::chrono::duration<double> period(1.0 / clip_.framesPerSecond());
        const auto start = std::chrono::steady_clock::now();
        long shown = 0;
        while (shown != frames && window_.isOpen()) {
            Qx::Ptr<iGPUImage> picture = grading.next(clip_);
            if (!picture) {
                break;
            }
            last_ = picture;
            if (!show()) {
                return -1;
            }
            ++shown;
            std::this_thread::sleep_until(start + shown * period);
        }
        return Qx::Host::gpuService().isLost() ? -1 : shown;
    }

    /// Keeps the last frame in the window until that is closed. False if the device failed.
    bool hold()
    {
        while (last_ && window_.isOpen()) {
            if (window_.takeStale() && !show()) {
                return false;
            }
            SDL_Delay(20);
        }
        return true;
    }

private:
    /// The picture is the application's until the window has it.
    bool show()
    {
        const auto given = sharing_.giveImage(last_, VK_IMAGE_LAYOUT_TRANSFER_SRC_OPTIMAL);
        const auto read = given ? swapchain_.show(*given, {clip_.width(), clip_.height()}) : std::nullopt;
        return read && sharing_.takeImage(last_, given->layout, *read);
    }

    Clip& clip_;
    Window& window_;
    Swapchain& swapchain_;
    Qx::Host::ImageSharing sharing_;
    Qx::Ptr<iGPUImage> last_;
};

int run(int argc, char** argv, const Arguments& arguments)
{
    std::string failure;
    const std::unique_ptr<Clip> clip = Clip::open(arguments.clip, failure);
    Window window;
    VulkanDevice vulkan;
    if (clip == nullptr || !window.open(*clip, failure) || !vulkan.open(window.handle(), failure)) {
        std::fprintf(stderr, "window: %s\n", failure.c_str());
        return 1;
    }
    const Qx::Host::ApplicationDevice shared = vulkan.shared();
    Qx::Host::StartOptions options;
    options.argc = argc;
    options.argv = argv;
    options.quiet = true;
    options.sharedDevice = &shared;
    Qx::Host::start(options);
    long shown = -1;
    {
        Swapchain swapchain(vulkan);
        Grading grading(clip->width(), clip->height());
        if (!Qx::Host::gpuService().start()) {
            failure = Qx::Host::gpuService().failure();
        } else if (grading.load(arguments.effect, failure) &&
                   swapchain.open({clip->width(), clip->height()}, failure)) {
            Player player(*clip, window, swapchain);
            shown = player.play(grading, arguments.frames);
            if (shown >= 0) {
                std::printf("%ld frames shown, %u x %u\n", shown, clip->width(), clip->height());
                std::fflush(stdout);
            }
            if (shown < 0 || (arguments.holds && !player.hold())) {
                failure = "a frame could not be shown; see the host's log";
                shown = -1;
            }
        }
    }
    Qx::Host::stop(); // before the device is destroyed
    if (Qx::Host::gpuService().holdsDevice()) {
        vulkan.abandon();
    }
    if (shown < 0) {
        std::fprintf(stderr, "window: %s\n", failure.c_str());
    } else if (shown == 0) {
        std::fprintf(stderr, "window: %s: no frame could be decoded\n", arguments.clip.c_str());
    }
    return shown > 0 ? 0 : 1;
}

} // namespace

int main(int argc, char** argv)
{
    Arguments arguments;
    return parse(argc, argv, arguments) ? run(argc, argv, arguments) : 2;
}
