#include "tools/qxhost/diagnose/DiagnoseCommandLine.h"

#include "tools/qxhost/diagnose/Steps.h"

namespace Qx::Program {

namespace {

constexpr const char* footer = R"(Examples:
  qxhost diagnose
      Measures everything, in a minute or two, and says whether the GPU path is healthy and fast enough.
  qxhost diagnose --quick --html report.html
      In some seconds, without the suite; the page has plots and needs no network.
  qxhost diagnose --save
  qxhost diagnose --compare last
      Keeps the run, and shows next month what has changed.
  qxhost diagnose --only transfers,conversions
      Those alone.
  qxhost diagnose --from last --html report.html
      Shows a kept run again, and measures nothing.

Exit codes: 0 healthy, 1 not healthy (something failed, hung, died or came out wrong), 3 a run to
compare with cannot be read, 4 a file cannot be written, 5 no usable device, 130 interrupted (what was
measured until then is shown, and marked as a part).)";

std::set<std::string> stepNames()
{
    std::set<std::string> names;
    for (const Diagnosis::Step& step : Diagnosis::steps()) {
        names.emplace(step.name);
    }
    return names;
}

std::string listOfSteps()
{
    std::string text;
    for (const Diagnosis::Step& step : Diagnosis::steps()) {
        text += (text.empty() ? "" : ", ") + std::string(step.name);
    }
    return text;
}

} // namespace

CLI::App* addDiagnose(CLI::App& app, DiagnoseOptions& options)
{
    CLI::App* diagnose =
        app.add_subcommand("diagnose", "Say whether the GPU path is healthy and fast enough");
    constexpr double longest = 86400;
    diagnose->add_flag("--quick", options.quick, "Leave the timed suite out, and measure for less time");
    diagnose
        ->add_option("--only", options.only, "Run these steps alone, separated by commas: " + listOfSteps())
        ->delimiter(',')
        ->check(CLI::IsMember(stepNames()))
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->option_text("STEP[,STEP...]");
    diagnose
        ->add_option("--device", options.device,
                     "GPU to use: part of its name, or its number in 'qxhost devices'")
        ->option_text("NAME|N");
    diagnose->add_option("--html", options.html, "Write a page with plots; - prints it instead of the text")
        ->option_text("FILE|-");
    diagnose
        ->add_option("--json", options.jsonFile, "Write everything as JSON; - prints it instead of the text")
        ->option_text("FILE|-");
    diagnose->add_flag("--save", options.save, "Keep this run for later comparisons");
    diagnose
        ->add_option("--compare", options.compare,
                     "Show what changed since a run: a file, a kept run's name, or last")
        ->option_text("RUN");
    diagnose->add_option("--from", options.from, "Show that run, and measure nothing")->option_text("RUN");
    diagnose
        ->add_option("--limit", options.limit,
                     "Seconds without a sign of life after which the device hangs (30)")
        ->check(CLI::Range(0.1, longest))
        ->option_text("SECONDS");
    diagnose->add_flag("--force", options.force, "Replace files that exist");
    diagnose->footer(footer);
    return diagnose;
}

} // namespace Qx::Program
