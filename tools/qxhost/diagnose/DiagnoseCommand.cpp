#include "tools/qxhost/commands/Commands.h"
#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/console/Interruption.h"
#include "tools/qxhost/console/Json.h"
#include "tools/qxhost/console/ProgressDisplay.h"
#include "tools/qxhost/diagnose/MeasuringProcess.h"
#include "tools/qxhost/diagnose/Page.h"
#include "tools/qxhost/diagnose/ReportJson.h"
#include "tools/qxhost/diagnose/SavedRuns.h"
#include "tools/qxhost/diagnose/Scratch.h"
#include "tools/qxhost/diagnose/TextReport.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <fmt/format.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace Qx::Program {

using namespace Diagnosis;
namespace fs = std::filesystem;

namespace {

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

/// A file descriptor that becomes readable once and for all.
class StopSign
{
public:
    StopSign() : file_(::eventfd(0, EFD_CLOEXEC))
    {
        if (file_ < 0) {
            throw Failure(ExitCode::failed, "cannot watch for Ctrl-C: too many files are open");
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

/// Shows how far the measuring is: a bar, on a terminal alone.
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

/// Standard output. When its reader goes away, what is measured can still be kept in files.
class Screen
{
public:
    Screen(const DiagnoseOptions& options, Console& console)
        : console_(console), keeps_(options.save || !options.html.empty() || !options.jsonFile.empty())
    {
    }

    /// Throws Failure (output) when nobody would get to know anything.
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
    bool keeps_; ///< files are asked for, too
    std::optional<Failure> lost_;
};

bool showsText(const DiagnoseOptions& options)
{
    return !options.json && !options.page;
}

/// Takes in what the measuring process sends, and shows it as it comes.
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

/// Says before the work what would be in its way at the end.
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

/// Writes one of the files; a failure is told, and spoils the exit code alone.
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

/// What was measured and shown before, shown again.
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

} // namespace

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

} // namespace Qx::Program
