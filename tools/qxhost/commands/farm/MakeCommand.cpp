#include "tools/qxhost/commands/OptionHelpers.h"
#include "tools/qxhost/commands/convert/ConversionArguments.h"
#include "tools/qxhost/commands/convert/ConvertCommand.h"
#include "tools/qxhost/console/Interruption.h"
#include "tools/qxhost/console/Json.h"
#include "tools/qxhost/farm/job/JobMaker.h"
#include "tools/qxhost/media/files/PartFiles.h"

#include <atomic>
#include <fmt/format.h>

namespace Qx::Program {

namespace {

constexpr const char* makeFooter = R"(Example:
  qxhost farm make clip.mov graded.mov --job film.job --segments 16 --effect cc3.fx --set gain=1.2
      Makes the folder film.job with the manifest job.json. OUTPUT will lie in it.

All options of 'qxhost convert' that say what is made are taken: 'qxhost convert --help-all'.)";

class FarmMakeCommand : public ConvertCommand
{
public:
    void addOptions(CLI::App& app) override
    {
        addFiles(app, options_, "The name of the output in the job's folder");
        app.add_option("--job", folder_, "The folder to make, which then holds all that the job needs")
            ->option_text("FOLDER")
            ->group("Pieces");
        addSegments(app, "Pieces");
        app.add_flag("--copy-input", copiesInput_, "Copy the input into the folder. Default: a link to it")
            ->group("Pieces");
        addConversion(app);
        addTo(app, "SPACE", "The colour space to make, after --ocio")->group("Effects");
        addPreset(app);
        addOther(app, options_);
        app.footer(makeFooter);
    }

    void check(const CLI::App& app) override
    {
        if (const std::optional<std::string> to = takeSteps(app)) {
            complain(app, fmt::format("--to {} belongs to an --ocio before it, and there is none", *to));
        }
        checkConversion(app);
        requireValue(app, folder_, "--job");
        if (options_.input == Media::standardName || options_.output == Media::standardName) {
            complain(app, "a job needs files: standard input and output (-) cannot be split");
        }
        if (options_.output.has_parent_path()) {
            complain(app,
                     fmt::format("{}: the output of a job lies in the job's folder; give its name alone, and "
                                 "'qxhost farm join --output' for another place",
                                 options_.output.string()));
        }
        arguments_ = conversionArguments(app);
    }

    ExitCode run(Console& console) override
    {
        std::atomic<bool> stopped{false};
        const Interruption interruption([&] { stopped = true; }, Media::PartFiles::removeAll);
        const Farm::Job job = Farm::makeJob({.options = options_,
                                             .arguments = arguments_,
                                             .folder = folder_,
                                             .pieces = segments_.value_or(0) > 0 ? segments_ : std::nullopt,
                                             .copiesInput = copiesInput_,
                                             .keepsDigests = true},
                                            stopped, console);
        console.note(fmt::format("{}: {} frames in {} pieces, numbered from 0", job.manifest().string(),
                                 job.frames, job.pieces.size()));
        if (options_.json) {
            console.data(jsonText(
                {{"job", job.manifest().string()}, {"frames", job.frames}, {"pieces", job.pieces.size()}}));
        }
        return ExitCode::ok;
    }

private:
    std::filesystem::path folder_;
    bool copiesInput_ = false;
    std::vector<std::string> arguments_;
};

const Registered<FarmMakeCommand>
    registeredFarmMake({.name = "farm make",
                        .order = 10,
                        .about = "Make a job: a folder with a manifest and all that it needs"});

} // namespace

} // namespace Qx::Program
