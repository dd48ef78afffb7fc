#include "tools/qxhost/commands/Command.h"
#include "tools/qxhost/commands/OptionHelpers.h"
#include "tools/qxhost/commands/convert/Conversion.h"
#include "tools/qxhost/commands/convert/ConversionArguments.h"

namespace Qx::Program {

namespace {

constexpr const char* fieldsFooter = R"(Examples:
  qxhost fields tape.mov field_%05d.png
      Two pictures per frame, each of half its height; the field that was first in time comes first.
  qxhost fields tape.avi fields.mkv --order bottom
      A clip of twice the frame rate, from an input whose field order is missing or wrong.)";

const Names<Media::FieldOrder> fieldOrders{{"top", Media::FieldOrder::topFirst},
                                           {"bottom", Media::FieldOrder::bottomFirst}};

class FieldsCommand : public CommandWithOptions<ConvertOptions>
{
public:
    void addOptions(CLI::App& app) override
    {
        addFiles(app, options_, "A clip of twice the rate, or a pattern such as field_%05d.png");
        const std::string frames = "Frames";
        addChoice(app, "--order", fields_.order, fieldOrders,
                  "Which field comes first. Default: the input's order,\nor top if it names none")
            ->group(frames);
        addRange(app, options_.picked, frames, true);
        addColour(app, options_);
        addRawInput(app, options_.raw, SizeOption::ofInput);
        addOutput(app, options_);
        addOther(app, options_);
        app.footer(fieldsFooter);
    }

    void check(const CLI::App& app) override
    {
        checkFiles(app, options_);
        checkRange(app);
        options_.step = fields_;
        options_.audio = false; // its packets have the frames' times
    }

    ExitCode run(Console& console) override { return runConversion(options_, console); }

private:
    SeparateFields fields_;
};

const Registered<FieldsCommand> registeredFields(
    {.name = "fields", .order = 20, .about = "Separate the frames of a clip into their fields"});

} // namespace

} // namespace Qx::Program
