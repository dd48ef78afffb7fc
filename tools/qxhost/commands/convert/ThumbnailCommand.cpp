#include "tools/qxhost/commands/Command.h"
#include "tools/qxhost/commands/OptionHelpers.h"
#include "tools/qxhost/commands/convert/Conversion.h"
#include "tools/qxhost/commands/convert/ConversionArguments.h"

namespace Qx::Program {

namespace {

constexpr const char* thumbnailFooter = R"(Examples:
  qxhost thumbnail clip.mov small.jpg --size 320x180
      The first frame, as large as fits into that size.
  qxhost thumbnail clip.mov small.png --size 320x180 --start 100
      The frame after the first 100.
  qxhost thumbnail clip.mov small.png --size 320x180 --start 00:01:02.5
      The frame at that time.)";

class ThumbnailCommand : public CommandWithOptions<ConvertOptions>
{
public:
    void addOptions(CLI::App& app) override
    {
        addFiles(app, options_, "A picture");
        const std::string picture = "Picture";
        addSize(app, "--size", shrink_.width, shrink_.height, "Largest width and height in pixels")
            ->group(picture);
        app.add_flag("--stretch", shrink_.stretch, "Make it exactly that size, whatever the frame's shape")
            ->group(picture);
        addRange(app, options_.picked, picture, false);
        const auto setLook = [this](const std::string& word) {
            options_.effects.resize(1);
            options_.effects.front().look = word;
        };
        app.add_option_function<std::string>("--look", setLook, "The steps of a look, a .look.toml file")
            ->option_text("FILE")
            ->group(picture);
        addColour(app, options_);
        addRawInput(app, options_.raw, SizeOption::ofOutput);
        addOutput(app, options_);
        addOther(app, options_);
        app.footer(thumbnailFooter);
    }

    void check(const CLI::App& app) override
    {
        checkFiles(app, options_);
        requireSize(app, shrink_.width);
        if (!options_.effects.empty()) {
            requireValue(app, options_.effects.front().look, "--look");
        }
        options_.step = shrink_;
        checkRange(app);
        options_.picked.frames = 1;
        options_.audio = false;
    }

    ExitCode run(Console& console) override { return runConversion(options_, console); }

private:
    ShrinkPicture shrink_;
};

const Registered<ThumbnailCommand>
    registeredThumbnail({.name = "thumbnail", .order = 30, .about = "Make a small picture of a frame"});

} // namespace

} // namespace Qx::Program
