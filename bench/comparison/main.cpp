#include "bench/LookFile.h"
#include "bench/comparison/Comparisons.h"
#include "bench/comparison/Page.h"
#include "bench/comparison/Peer.h"
#include "bench/comparison/PingPong.h"
#include "bench/comparison/Programs.h"
#include "bench/comparison/Start.h"
#include "bench/peers/Participant.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <sys/utsname.h>
#include <thread>

namespace Qx::Bench {
namespace {

namespace fs = std::filesystem;

struct Options
{
    std::vector<std::string> only;
    bool quick = false;
    int rounds = 5;
    double seconds = 0.4;
    std::string output;

    bool wants(const std::string& part) const
    {
        return only.empty() || std::find(only.begin(), only.end(), part) != only.end();
    }
};

/// The values of --only: the others, and the parts with ours only.
std::vector<std::string> allParts()
{
    std::vector<std::string> parts;
    for (const Program& program : programs()) {
        if (std::string_view(program.name) != "ours") {
            parts.emplace_back(program.name);
        }
    }
    parts.insert(parts.end(), {"limits", "costs", "start", "figures"});
    return parts;
}

fs::path programFolder()
{
    std::error_code error;
    return fs::read_symlink("/proc/self/exe", error).parent_path();
}

std::string firstValue(const char* file, const std::string& key, char separator)
{
    std::ifstream in(file);
    for (std::string line; std::getline(in, line);) {
        if (line.starts_with(key)) {
            const std::size_t at = line.find(separator);
            const std::size_t begin = line.find_first_not_of(" \t\"", at + 1);
            const std::size_t end = line.find_last_not_of(" \t\"");
            return at == std::string::npos || begin == std::string::npos
                       ? ""
                       : line.substr(begin, end - begin + 1);
        }
    }
    return "";
}

std::string machine()
{
    utsname system{};
    uname(&system);
    const double kibibytes = std::atof(firstValue("/proc/meminfo", "MemTotal", ':').c_str());
    return fmt::format("{}, {} cores, {:.0f} GiB of memory, {}, Linux {}",
                       firstValue("/proc/cpuinfo", "model name", ':'), std::thread::hardware_concurrency(),
                       kibibytes / 1024 / 1024, firstValue("/etc/os-release", "PRETTY_NAME=", '='),
                       system.release);
}

/// A temporary folder for results, removed with the object.
class Scratch
{
public:
    Scratch()
    {
        std::string name = (fs::temp_directory_path() / "qx-compare-XXXXXX").string();
        path_ = mkdtemp(name.data()) != nullptr ? name : "";
    }
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;
    ~Scratch()
    {
        std::error_code ignored;
        if (!path_.empty()) {
            fs::remove_all(path_, ignored);
        }
    }

    std::string file(const char* name) const { return (path_ / name).string(); }

private:
    fs::path path_;
};

/// The run: its participants and the measurements so far.
class Run
{
public:
    explicit Run(Options options) : options_(std::move(options))
    {
        variables_ = {std::string(lookVariable) + '=' + lookFile().string()};
    }

    /// Returns false, after a message, if the library itself cannot be measured.
    bool begin()
    {
        Peer* const ours = open("ours", programs().front());
        if (ours == nullptr) {
            std::fprintf(stderr, "this library does not take part: %s\n", page_.absences.back().why.c_str());
            return false;
        }
        page_.machine = machine();
        page_.device = ours->description();
        page_.rounds = options_.rounds;
        page_.seconds = options_.seconds;
        variables_.push_back(std::string(deviceVariable) + '=' + ours->device());
        return true;
    }

    /// Returns false if a requested part could not be measured at all.
    bool measure()
    {
        openOthers();
        const std::vector<Comparison> comparisons = collect();
        std::size_t done = 0;
        for (const Comparison& comparison : comparisons) {
            std::fprintf(stderr, "%zu of %zu: %s | %s", ++done, comparisons.size(), comparison.title.c_str(),
                         comparison.against.c_str());
            Result result = compare(comparison);
            std::fprintf(stderr, " | %s\n",
                         result.ratio ? textOf(*result.ratio).c_str() : result.failure.c_str());
            const std::string part = result.comparison.part;
            (part == "limits"  ? page_.limits
             : part == "costs" ? page_.costs
                               : page_.peers)
                .push_back(std::move(result));
        }
        const bool complete = measureOurs();
        page_.pingPong = spreadOf(pingPongs_);
        for (const auto& [key, times] : restarts_) {
            page_.participants.push_back(
                fmt::format("{} hung or ended {} times and was started again", peers_[key]->name(), times));
        }
        finishBars();
        return complete;
    }

    Page& page() { return page_; }

private:
    using Peers = std::map<std::string, std::unique_ptr<Peer>>;

    /// The other side of comparisons of ours with ours; not another participant.
    static constexpr const char* secondOfOurs = "ours, too";

    static std::string programOf(const std::string& key)
    {
        const Program* found = &programs().front();
        for (const Program& program : programs()) {
            found = key == program.name ? &program : found;
        }
        return (programFolder() / found->file).string();
    }

    Peer* open(const std::string& key, const Program& program)
    {
        const std::string file = programOf(program.name);
        if (!fs::exists(file)) {
            page_.absences.push_back({program.title, "not built, as what it needs is not installed",
                                      packagesFor(program.name, QX_PEERS_PACKAGES)});
            return nullptr;
        }
        auto peer = std::make_unique<Peer>(file, variables_);
        if (!peer->alive()) {
            page_.absences.push_back({program.title, peer->failure(), ""});
            return nullptr;
        }
        page_.participants.push_back(peer->name() + ": " + peer->description());
        return (peers_[key] = std::move(peer)).get();
    }

    void openOthers()
    {
        for (const Program& program : programs()) {
            const std::string name = program.name;
            // libplacebo's passes are among the limits too.
            if (name != "ours" && (options_.wants(name) || (name == "placebo" && options_.wants("limits")))) {
                open(name, program);
            }
        }
        if (options_.wants("limits") || options_.wants("costs")) {
            peers_[secondOfOurs] = std::make_unique<Peer>(programOf("ours"), variables_);
        }
    }

    std::vector<Comparison> collect()
    {
        std::vector<Comparison> all;
        const auto append = [&all](std::vector<Comparison> more) {
            all.insert(all.end(), more.begin(), more.end());
        };
        for (const Program& program : programs()) {
            const auto found = peers_.find(program.name);
            if (found != peers_.end() && found->first != "ours" && options_.wants(program.name)) {
                append(besideOther(program.name, *found->second));
            }
        }
        if (options_.wants("limits")) {
            const auto placebo = peers_.find("placebo");
            append(besideLimits(*peers_["ours"], placebo != peers_.end() ? placebo->second.get() : nullptr));
        }
        if (options_.wants("costs")) {
            append(ourCosts());
        }
        return all;
    }

    /// Some drivers hang occasionally. The participant is restarted, with a message.
    Result compare(const Comparison& comparison)
    {
        constexpr int attempts = 3;
        Result result;
        for (int attempt = 0; attempt < attempts; ++attempt) {
            result = tryToCompare(comparison);
            bool ended = false;
            for (auto& [key, peer] : peers_) {
                if (!peer->alive()) {
                    ended = true;
                    ++restarts_[key];
                    peer = std::make_unique<Peer>(programOf(key), variables_);
                }
            }
            if (!ended) {
                break;
            }
        }
        return result;
    }

    Result tryToCompare(const Comparison& c)
    {
        Result result;
        result.comparison = c;
        Peer& ours = *peers_["ours"];
        Peer& theirs = *peers_[c.theirs.program == "ours" ? secondOfOurs : c.theirs.program];
        const auto fail = [&result](const char* who, const Peer& peer) {
            result.failure = fmt::format("{}: {}", who, peer.failure());
        };
        if (!ours.prepare(c.ours.work, c.ours.method)) {
            fail("ours", ours);
            return result;
        }
        if (!theirs.prepare(c.theirs.work, c.theirs.method)) {
            fail("theirs", theirs);
            return result;
        }
        for (int round = 0; round < options_.rounds; ++round) {
            pingPongs_.push_back(pingPong());
            const auto one = ours.run(options_.seconds);
            const auto other = theirs.run(options_.seconds);
            if (!one || !other) {
                one ? fail("theirs", theirs) : fail("ours", ours);
                return result;
            }
            result.pairs.push_back(
                {c.ourWeight * one->amount / one->seconds, c.theirWeight * other->amount / other->seconds});
        }
        if (c.work && ours.writeResult(scratch_.file("ours")) &&
            theirs.writeResult(scratch_.file("theirs"))) {
            result.difference = differenceOf(*c.work, scratch_.file("ours"), scratch_.file("theirs"));
        }
        result.ratio = ratiosOf(result.pairs);
        return result;
    }

    bool measureOurs()
    {
        if (options_.wants("costs")) {
            measureApplication();
        }
        if (options_.wants("limits")) {
            measureDraw();
        }
        return (!options_.wants("start") || measureStart()) && (!options_.wants("figures") || readFigures());
    }

    void measureApplication()
    {
        Peer& ours = *peers_["ours"];
        std::vector<double> microseconds;
        std::vector<double> allocations;
        std::string note;
        for (int round = 0; round < options_.rounds && ours.prepare("application", "ours"); ++round) {
            if (const auto ran = ours.run(options_.seconds)) {
                microseconds.push_back(1e6 * ran->seconds / ran->amount);
                allocations.push_back(std::atof(ran->note.c_str())); // which begins with ours
                note = ran->note;
            }
        }
        if (const auto spread = spreadOf(microseconds)) {
            page_.absolutes.push_back(
                {"one technique application, on the caller's thread, without the device's", "us", *spread,
                 "allocations an application: " + note});
            microseconds_ = spread;
            allocations_ = spreadOf(allocations);
        }
    }

    void measureDraw()
    {
        Peer& ours = *peers_["ours"];
        std::vector<double> microseconds;
        for (int round = 0; round < options_.rounds && ours.prepare("draw", "empty"); ++round) {
            if (const auto ran = ours.run(options_.seconds)) {
                microseconds.push_back(1e6 * ran->seconds / ran->amount);
            }
        }
        if (const auto spread = spreadOf(microseconds)) {
            page_.absolutes.push_back(
                {"a draw of two texels, until the device has done it", "us", *spread, ""});
        }
    }

    bool measureStart()
    {
        std::fprintf(stderr, "starts with a catalogue of effects\n");
        std::string why;
        const auto starts = measureStarts((programFolder() / "qx_bench").string(), options_.rounds, why);
        if (!starts) {
            std::fprintf(stderr, "%s\n", why.c_str());
            return false;
        }
        page_.start = starts->table;
        warmShare_ = starts->warmShare;
        secondCore_ = starts->secondCore;
        return true;
    }

    bool readFigures()
    {
        std::fprintf(stderr, "absolute figures\n");
        const std::string sections = scratch_.file("sections");
        const std::vector<std::string> arguments{
            (programFolder() / "qx_bench").string(),
            "--markdown=" + sections,
            fmt::format("--benchmark_repetitions={}", options_.rounds),
            "--benchmark_enable_random_interleaving=true",
            fmt::format("--benchmark_min_time={}{}", options_.quick ? 0.02 : 0.2, QX_BENCHMARK_SECONDS),
            "--benchmark_min_warmup_time=1.5", // native code is asked for after some pictures
            "--benchmark_report_aggregates_only=true"};
        if (!runProgram(arguments, {}, scratch_.file("console"))) {
            std::fprintf(stderr, "the absolute figures could not be measured\n");
            return false;
        }
        std::ifstream in(sections);
        page_.figures.assign(std::istreambuf_iterator<char>(in), {});
        return true;
    }

    void finishBars()
    {
        const Measured measured{
            page_.peers,  page_.limits, page_.costs, microseconds_,
            allocations_, warmShare_,   secondCore_, page_.device.find("software") != std::string::npos};
        page_.bars = barsOf(measured);
        if (!options_.only.empty()) {
            std::erase_if(page_.bars, [](const Bar& bar) { return bar.verdict == Bar::NotMeasured; });
        }
    }

    Options options_;
    Variables variables_;
    Scratch scratch_;
    Peers peers_;
    Page page_;
    std::vector<double> pingPongs_;
    std::map<std::string, int> restarts_;
    std::optional<Spread> microseconds_;
    std::optional<Spread> allocations_;
    std::optional<Spread> warmShare_;
    std::optional<Spread> secondCore_;
};

bool writeFile(const fs::path& file, const std::string& text)
{
    std::ofstream out(file);
    out << text;
    out.flush();
    if (!out.good()) {
        std::fprintf(stderr, "%s: cannot be written\n", file.c_str());
    }
    return out.good();
}

/// To the file, with the plot beside it, or to standard output.
bool isHeading(const std::string& line)
{
    return line.starts_with("## ");
}

/// The sections of the page so far that other programs wrote: those whose headings `text` lacks.
std::string sectionsOfOthers(const std::string& file, const std::string& text)
{
    std::ifstream page(file);
    std::string sections;
    bool isTheirs = false;
    for (std::string line; std::getline(page, line);) {
        isTheirs = isHeading(line) ? text.find(line + '\n') == std::string::npos : isTheirs;
        const bool isSecondBlank = line.empty() && (sections.empty() || sections.ends_with("\n\n"));
        if (isTheirs && !isSecondBlank) {
            sections += (isHeading(line) && !sections.ends_with("\n\n") ? "\n" : "") + line + '\n';
        }
    }
    while (sections.ends_with("\n\n")) {
        sections.pop_back();
    }
    return sections;
}

bool publish(Page& page, const std::string& output)
{
    if (output.empty()) {
        std::fputs(markdownOf(page).c_str(), stdout);
        return true;
    }
    fs::path plot = output;
    plot.replace_extension(".svg");
    const bool drawn = !page.peers.empty() || !page.limits.empty();
    page.plotName = drawn ? plot.filename().string() : "";
    const std::string text = markdownOf(page);
    return (!drawn || writeFile(plot, plotOf(page))) &&
           writeFile(output, text + sectionsOfOthers(output, text));
}

int compareAll(const Options& options)
{
    Run run(options);
    if (!run.begin()) {
        return 1;
    }
    const bool complete = run.measure();
    const bool published = publish(run.page(), options.output);
    for (const Absence& absence : run.page().absences) {
        std::fprintf(stderr, "%s did not take part: %s%s%s\n", absence.name.c_str(), absence.why.c_str(),
                     absence.packages.empty() ? "" : "; apt-get install ", absence.packages.c_str());
    }
    return complete && published ? 0 : 1;
}

} // namespace
} // namespace Qx::Bench

int main(int argc, char** argv)
{
    using namespace Qx::Bench;
    std::signal(SIGPIPE, SIG_IGN); // a dead participant is noticed at the next request
    Options options;
    CLI::App app{"Measures this library and others in turn, on the same frames and the same device.",
                 "compare"};
    std::string parts;
    for (const std::string& part : allParts()) {
        parts += ' ' + part;
    }
    app.add_option("--only", options.only, "only this part, or these:" + parts)
        ->check(CLI::IsMember(allParts()))
        ->type_name("PART");
    app.add_flag("--quick", options.quick, "three rounds of 0.1 s: to see that it works, not to be believed");
    CLI::Option* const rounds =
        app.add_option("--rounds", options.rounds, "turns of each of two that are compared")
            ->check(CLI::Range(1, 1000))
            ->capture_default_str();
    CLI::Option* const seconds = app.add_option("--seconds", options.seconds, "length of a turn")
                                     ->check(CLI::Range(0.01, 60.0))
                                     ->capture_default_str();
    app.add_option(
        "--output", options.output,
        "page to write, with a plot beside it whose name ends in .svg; standard output when not given");
    CLI11_PARSE(app, argc, argv);
    if (options.quick) {
        options.rounds = rounds->count() != 0 ? options.rounds : 3;
        options.seconds = seconds->count() != 0 ? options.seconds : 0.1;
    }
    return compareAll(options);
}
