#include "Qx/Version.h"
#include "tools/qxhost/commands/Command.h"
#include "tools/qxhost/commands/OptionHelpers.h"
#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/console/Interruption.h"
#include "tools/qxhost/console/Json.h"
#include "tools/qxhost/console/ProgressDisplay.h"
#include "tools/qxhost/diagnose/MeasuringProcess.h"
#include "tools/qxhost/diagnose/Page.h"
#include "tools/qxhost/diagnose/ReportJson.h"
#include "tools/qxhost/diagnose/SavedRuns.h"
#include "tools/qxhost/diagnose/Scratch.h"
#include "tools/qxhost/diagnose/Steps.h"
#include "tools/qxhost/diagnose/TextReport.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <ctime>
#include <fmt/format.h>
#include <set>
#include <sys/eventfd.h>
#include <unistd.h>

namespace Qx::Program {

using namespace Diagnosis;
namespace fs = std::filesystem;

namespace {

constexpr const char* diagnoseFooter = R"(Examples:
  qxhost diagnose
      Measures everything in a minute or two, longer without a GPU, and tells whether the GPU path is
      healthy and fast enough.
  qxhost diagnose --quick --html report.html
      Takes some seconds, without the suite; the page has plots and needs no network.
  qxhost diagnose --save
  qxhost diagnose --compare last
      Keeps the run, and later shows what has changed.
  qxhost diagnose --only transfers,conversions
      Those steps only.
  qxhost diagnose --from last --html report.html
      Shows a kept run again without measuring.

Exit codes: 0 healthy, 1 not healthy (a step failed, hung, crashed or gave wrong results), 3 a run to
compare with cannot be read, 4 a file cannot be written, 5 no usable device, 130 interrupted (what was
measured until then is shown and marked as partial).)";

struct DiagnoseOptions
{
    bool quick = false;
    std::vector<std::string> only; ///< steps; empty for all
    std::string device;
    std::filesystem::path html;     ///< the page to write; empty for none
    std::filesystem::path jsonFile; ///< the same as JSON
    bool page = false;              ///< the page goes to standard output instead of the text
    bool json = false;              ///< the JSON does
    bool save = false;
    std::string compare; ///< a file, or a saved run's name, or "last"; empty for none
    std::string from;    ///< a run to show instead of measuring, named the same way
    double limit = 30;   ///< seconds without a sign of life after which the device counts as hung
    bool force = false;
};

/// Now, as ISO 8601 with the offset from UTC.
std::string dateText()
{
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    ::localtime_r(&now, &local);
    std::array<char, 32> date{};
    std::strftime(date.data(), date.size(), "%Y-%m-%dT%H:%M:%S", &local);
    const long minutes = local.tm_gmtoff / 60;
    return fmt::format("{}{}{:02}:{:02}", date.data(), minutes < 0 ? '-' : '+', std::labs(minutes) / 60,
                       std::labs(minutes) % 60);
}

/// A file descriptor that becomes readable and stays so.
class StopSign
{
public:
    StopSign() : file_(::eventfd(0, EFD_CLOEXEC))
    {
        if (file_ < 0) {
            throw Failure(ExitCode::failed, "cannot handle Ctrl-C: too many files are open");
        }
    }
    ~StopSign() { ::close(file_); }
    StopSign(const StopSign&) = delete;
    StopSign& operator=(const StopSign&) = delete;

    void raise() const { ::eventfd_write(file_, 1); }
    int file() const { return file_; }

private:
    int file_;
};

/// Shows the progress of measuring as a bar, on terminals only.
class Bar
{
public:
    explicit Bar(Console& console) : console_(console), begin_(Clock::now()) {}
    ~Bar() { console_.endStatus(false); }
    Bar(const Bar&) = delete;
    Bar& operator=(const Bar&) = delete;

    void expect(int steps) { steps_ = steps; }
    void nextStep() { ++step_; }
    void show(const std::string& doing)
    {
        if (!console_.interactive()) {
            return;
        }
        constexpr int width = 24;
        const int filled = steps_ > 0 ? width * std::max(step_ - 1, 0) / steps_ : 0;
        const std::chrono::duration<double> elapsed = Clock::now() - begin_;
        const std::string text = fmt::format(
            "[{}{}] {}, {}", std::string(static_cast<std::size_t>(filled), '#'),
            std::string(static_cast<std::size_t>(width - filled), '.'), clockText(elapsed.count()), doing);
        console_.status(text.substr(0, console_.columns() - 1));
    }

private:
    using Clock = std::chrono::steady_clock;

    Console& console_;
    Clock::time_point begin_;
    int steps_ = 0;
    int step_ = 0;
};

/// Standard output. If its reader goes away, the measurements can still be written to files.
class Screen
{
public:
    Screen(const DiagnoseOptions& options, Console& console)
        : console_(console), keeps_(options.save || !options.html.empty() || !options.jsonFile.empty())
    {
    }

    /// Throws Failure (output) if standard output is lost and no files are to be written.
    void show(std::string_view text)
    {
        if (lost_) {
            return;
        }
        try {
            console_.data(text);
        } catch (const Failure& failure) {
            if (!keeps_) {
                throw;
            }
            lost_ = failure;
        }
    }

    const std::optional<Failure>& lost() const { return lost_; }

private:
    Console& console_;
    bool keeps_; ///< files are to be written too
    std::optional<Failure> lost_;
};

bool showsText(const DiagnoseOptions& options)
{
    return !options.json && !options.page;
}

/// Collects the messages of the measuring process, and shows them as they arrive.
class Collector
{
public:
    /// `shows`: the text goes to standard output.
    Collector(Report& report, Console& console, Screen& screen, Bar& bar, bool shows)
        : report_(report), console_(console), screen_(screen), bar_(bar), shows_(shows)
    {
    }

    void operator()(const Begun& begun)
    {
        report_.device = begun.device;
        report_.machine = begun.machine;
        bar_.expect(begun.steps);
    }
    void operator()(const NoDevice& none) { report_.machine = none.machine; }
    void operator()(const StepBegun&) { bar_.nextStep(); }
    void operator()(const SuiteLine& line)
    {
        report_.suite.push_back(line);
        show(TextReport::line(line));
    }
    void operator()(const Figure& figure)
    {
        report_.figures.push_back(figure);
        show(text_.figure(figure));
    }
    void operator()(const Remark& remark) { console_.note(remark.text); }
    void operator()(const Finished&) {}

private:
    void show(const std::string& text)
    {
        if (shows_) {
            console_.endStatus(false);
            screen_.show(text);
        }
    }

    Report& report_;
    Console& console_;
    Screen& screen_;
    Bar& bar_;
    TextReport text_;
    bool shows_;
};

Report measure(const DiagnoseOptions& options, Console& console, Screen& screen)
{
    Report report;
    report.date = dateText();
    report.program = QX_VERSION;
    report.quick = options.quick;
    report.only = options.only;
    const Scratch scratch;
    const StopSign stop;
    const Interruption interruption([&] { stop.raise(); });
    Bar bar(console);
    Collector collector(report, console, screen, bar, showsText(options));
    MeasureOptions measure;
    measure.quick = options.quick;
    measure.only = options.only;
    measure.device = options.device;
    measure.scratch = scratch.path();
    MeasuringProcess process(measure);
    const std::chrono::milliseconds limit(static_cast<std::int64_t>(options.limit * 1000));
    report.ending = process.watch(limit, stop.file(),
                                  {[&](const Message& message) { std::visit(collector, message); },
                                   [&](const std::string& line) { console.note(line); },
                                   [&] { bar.show(process.doing()); }});
    return report;
}

/// Fails before the work if a file would be in its way at the end.
void checkPlace(const fs::path& file, bool force)
{
    std::error_code ignored;
    if (!file.empty() && !force && fs::exists(file, ignored)) {
        throw Failure(ExitCode::output,
                      file.string() + ": exists already; choose another name or add --force");
    }
}

ExitCode codeOf(const Report& report, const Verdict& verdict)
{
    using Kind = Ending::Kind;
    if (report.ending.kind == Kind::interrupted) {
        return ExitCode::interrupted;
    }
    if (report.ending.kind == Kind::noDevice) {
        return ExitCode::device;
    }
    return verdict.health == Health::unhealthy || verdict.health == Health::unknown ? ExitCode::failed
                                                                                    : ExitCode::ok;
}

/// Writes one of the files. A failure is reported and changes only the exit code.
template <class Write>
void attempt(Console& console, ExitCode& code, Write write)
{
    try {
        write();
    } catch (const Failure& failure) {
        console.error(failure.what(), failure.details());
        code = failure.code();
    }
}

/// Shows an earlier run again.
Report recall(const DiagnoseOptions& options, Screen& screen)
{
    Report report = loadRun(options.from).report;
    if (showsText(options)) {
        TextReport text;
        for (const SuiteLine& line : report.suite) {
            screen.show(TextReport::line(line));
        }
        for (const Figure& figure : report.figures) {
            screen.show(text.figure(figure));
        }
    }
    return report;
}

Json everything(const Report& report, const std::optional<Comparison>& comparison)
{
    Json json = toJson(report);
    if (comparison) {
        json["comparison"] = toJson(*comparison);
    }
    return json;
}

void conclude(const DiagnoseOptions& options, const Report& report, const Verdict& verdict,
              const std::optional<Comparison>& comparison, Screen& screen)
{
    if (options.json) {
        screen.show(jsonText(everything(report, comparison)));
    } else if (options.page) {
        screen.show(pageOf(report, comparison));
    } else {
        screen.show(TextReport::end(report, verdict));
        screen.show(comparison ? TextReport::comparison(*comparison) : "");
    }
}

void writeFiles(const DiagnoseOptions& options, const Report& report,
                const std::optional<Comparison>& comparison, Console& console, ExitCode& code)
{
    if (!options.html.empty()) {
        attempt(console, code, [&] {
            writeFile(options.html, pageOf(report, comparison), options.force);
            console.note(options.html.string() + ": written");
        });
    }
    if (!options.jsonFile.empty()) {
        attempt(console, code, [&] {
            writeFile(options.jsonFile, jsonText(everything(report, comparison)), options.force);
            console.note(options.jsonFile.string() + ": written");
        });
    }
    if (options.save) {
        attempt(console, code, [&] { console.note("kept as " + saveRun(report).string()); });
    }
}

ExitCode runDiagnose(const DiagnoseOptions& options, Console& console)
{
    checkPlace(options.html, options.force);
    checkPlace(options.jsonFile, options.force);
    std::optional<NamedReport> earlier;
    if (!options.compare.empty()) {
        earlier = loadRun(options.compare);
    }
    Screen screen(options, console);
    const Report report = options.from.empty() ? measure(options, console, screen) : recall(options, screen);
    std::optional<Comparison> comparison;
    if (earlier) {
        comparison = compare(earlier->report, report, earlier->name);
    }
    const Verdict verdict = judge(report);
    conclude(options, report, verdict, comparison, screen);
    ExitCode code = codeOf(report, verdict);
    writeFiles(options, report, comparison, console, code);
    if (screen.lost()) {
        console.error(screen.lost()->what());
        code = screen.lost()->code();
    }
    return code;
}

std::vector<std::string> stepNames()
{
    std::vector<std::string> names;
    for (const Step& step : steps()) {
        names.emplace_back(step.name);
    }
    return names;
}

class DiagnoseCommand : public CommandWithOptions<DiagnoseOptions>
{
public:
    void addOptions(CLI::App& app) override
    {
        addMeasuring(app);
        app.add_option("--html", options_.html, "Write a page with plots; - prints it instead of the text")
            ->option_text("FILE|-");
        app.add_option("--json", options_.jsonFile,
                       "Write everything as JSON; - prints it instead of the text")
            ->option_text("FILE|-");
        app.add_flag("--save", options_.save, "Keep this run for later comparisons");
        app.add_option("--compare", options_.compare,
                       "Show what changed since a run: a file, a kept run's name, or last")
            ->option_text("RUN");
        app.add_option("--from", options_.from, "Show that run without measuring")->option_text("RUN");
        addLimit(app);
        app.add_flag("--force", options_.force, "Replace existing files");
        app.footer(diagnoseFooter);
    }

    void check(const CLI::App& app) override
    {
        if (!options_.from.empty() &&
            (options_.quick || options_.save || !options_.only.empty() || !options_.device.empty())) {
            complain(app, "--from shows a run that was measured before; --quick, --only, --device and --save "
                          "apply to a new one");
        }
        for (const char* option : {"--html", "--json", "--compare", "--from", "--device"}) {
            if (app.count(option) > 0 && app.get_option(option)->as<std::string>().empty()) {
                complain(app, std::string(option) + " is empty; give it a value or leave it out");
            }
        }
        if (std::isnan(options_.limit)) {
            complain(app, "--limit: invalid value \"nan\": expected a number of seconds");
        }
        chooseOutput(app);
    }

    ExitCode run(Console& console) override { return runDiagnose(options_, console); }

private:
    void addMeasuring(CLI::App& app)
    {
        const std::vector<std::string> names = stepNames();
        app.add_flag("--quick", options_.quick, "Skip the timed suite, and measure for less time");
        app.add_option("--only", options_.only,
                       fmt::format("Run only these steps, separated by commas: {}", fmt::join(names, ", ")))
            ->delimiter(',')
            ->check(CLI::IsMember(std::set(names.begin(), names.end())))
            ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
            ->option_text("STEP[,STEP...]");
        addDevice(app, options_.device);
    }

    void addLimit(CLI::App& app)
    {
        constexpr double shortest = 0.1;
        constexpr double longest = 86400;
        app.add_option("--limit", options_.limit,
                       "Seconds without a sign of life after which the device\ncounts as hung (30)")
            ->check(CLI::Range(shortest, longest))
            ->option_text("SECONDS");
    }

    /// A file called "-" stands for standard output.
    void chooseOutput(const CLI::App& app)
    {
        options_.json = options_.jsonFile == "-";
        options_.page = options_.html == "-";
        if (options_.json && options_.page) {
            complain(app, "--html - and --json - both use standard output; give one of them a file");
        }
        if (options_.json) {
            options_.jsonFile.clear();
        }
        if (options_.page) {
            options_.html.clear();
        }
    }
};

const Registered<DiagnoseCommand> registeredDiagnose(
    {.name = "diagnose",
     .order = 90,
     .about = "Tell whether the GPU path is healthy and fast enough",
     .examples =
         "  qxhost diagnose                                  whether the GPU path is healthy and fast "
         "enough\n"});

} // namespace

} // namespace Qx::Program
