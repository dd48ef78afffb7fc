#pragma once

#include "tools/qxhost/commands/Command.h"
#include "tools/qxhost/commands/convert/FilterArguments.h"
#include "tools/qxhost/commands/convert/ManyConversions.h"
#include "tools/qxhost/commands/convert/Preset.h"
#include "tools/qxhost/pipeline/options/ConvertOptions.h"

#include <CLI/CLI.hpp>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Qx::Program {

/// "qxhost convert", and what takes the same options.
class ConvertCommand : public CommandWithOptions<ConvertOptions>
{
public:
    void addOptions(CLI::App& app) override;
    std::optional<std::vector<std::string>> expanded(const CLI::App& app) override;
    void check(const CLI::App& app) override;
    ExitCode run(Console& console) override;

protected:
    /// Adds the options of a conversion, but for those that say how it is run.
    void addConversion(CLI::App& app);
    /// The option "--to"; the caller gives it a group.
    CLI::Option* addTo(CLI::App& app, const char* value, const char* about);
    /// Takes the effects and LUTs in their order. Returns the value of the "--to" that belongs to none of
    /// them.
    std::optional<std::string> takeSteps(const CLI::App& app);
    /// Checks the options of a conversion, once its steps are taken.
    void checkConversion(const CLI::App& app);

    /// Adds "--preset".
    void addPreset(CLI::App& app);

    /// Adds "--segments" to a group of the help.
    void addSegments(CLI::App& app, const std::string& group);

    /// As they were given, but for those that say how the conversion is run and where.
    static std::vector<std::string> conversionArguments(const CLI::App& app);

    std::optional<std::int64_t> segments_; ///< 0: as many as is usual

private:
    void addMany(CLI::App& app);
    static void checkPreset(const Preset& preset);
    void collectInputs(const CLI::App& app, const std::optional<std::string>& to);
    void addEffects(CLI::App& app);
    ExitCode runInSegments(Console& console);

    std::string preset_;
    ShortFilters shortFilters_;
    ManyConversions many_;                      ///< without a name if there is one input
    std::vector<std::string> segmentArguments_; ///< of the conversion that is split
    std::int64_t segmentJobs_ = 0;              ///< 0: by the machine
    std::vector<std::string>
        texts_; ///< a target that the library wants; groupEffects() and groupBurnIns() read them
};

} // namespace Qx::Program
