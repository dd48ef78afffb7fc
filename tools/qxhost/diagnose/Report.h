#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// What a run of "qxhost diagnose" found out: plain values, made by the measuring process, kept as JSON,
/// shown as text and as a page.
namespace Qx::Diagnosis {

/// What a figure's time is the time of.
enum class Basis
{
    device,    ///< the device's own clock says how long it was at work
    waited,    ///< the process's clock, from the order until the device was done
    submitted, ///< the process's clock until the order was accepted: the device may still be at work
    processor, ///< the process's clock around work of the processor alone
    counted,   ///< no time is in it
};

enum class Better
{
    higher,
    lower,
    neither,
};

/// One thing that was measured, or could not be.
struct Figure
{
    std::string id;              ///< names the figure in comparisons: never changes its meaning
    std::string group;           ///< the id of a Group
    std::string title;           ///< for people
    std::optional<double> value; ///< empty: not measured, and `note` says why
    std::string unit;            ///< "frames/s", "GB/s" (10^9 bytes), "ms", "MiB", "wrong"
    Better better = Better::higher;
    Basis basis = Basis::waited;
    std::optional<double> yardstick; ///< what a plain copy of the same bytes makes here, in the same unit
    std::string yardstickName;       ///< which copy
    std::string note;                ///< one line
    bool failed = false;             ///< not measured because something failed, which is a fault
    std::vector<double> samples;     ///< milliseconds a frame, in the order in which they were taken
};

/// The note of a transfer that a device does without copying, because its images lie in the host's memory.
inline constexpr std::string_view nothingCopied = "nothing is copied: the device works in the host's memory";

struct Group
{
    std::string_view id;
    std::string_view title;
};

/// The groups in the order in which they are shown.
const std::vector<Group>& groups();

struct Device
{
    std::string name;
    std::string type;
    std::string driver;
    bool software = false;
};

/// How much work the whole machine had in the minute before the measuring, which takes processors from it.
struct Load
{
    double average = 0; ///< processes that ran or waited to run
    int processors = 0; ///< the machine's; the process may be allowed fewer
};

struct Machine
{
    std::string system; ///< name and release of the operating system
    int processors = 0;
    std::uint64_t memory = 0; ///< bytes
    std::uint64_t memoryAvailable = 0;
    std::optional<Load> load; ///< empty: not known, as in runs that were kept before it was measured
};

/// A line of the diagnostic suite, as it stands.
struct SuiteLine
{
    int category = 0; ///< of LoggerBase: 0 a result, 4 a failure, 5 a heading
    std::string text;
};

/// How the run ended.
struct Ending
{
    enum class Kind
    {
        complete,
        interrupted, ///< a person ended it
        hung,        ///< the measuring process showed no sign of life and was ended
        died,        ///< the measuring process ended by itself, unasked
        noDevice,    ///< there was nothing to measure
    };

    Kind kind = Kind::complete;
    std::string reason; ///< what happened, for people
    std::string doing;  ///< the last thing that the device was asked for
    std::string said;   ///< the last lines of the measuring process's standard error
};

struct Report
{
    std::string date;    ///< ISO 8601 with the offset from UTC
    std::string program; ///< the version of qxhost
    bool quick = false;
    std::vector<std::string> only; ///< the steps that were chosen; empty for all
    Device device;
    Machine machine;
    std::vector<SuiteLine> suite; ///< empty when it was left out
    std::vector<Figure> figures;
    Ending ending;
};

/// Whether a run is meant to hold the figures of a group, as it was asked for.
bool wantsPacked(const Report& report, std::string_view group);

/// The figure that fails if the effects to draw with are unavailable: a fault of the installation.
inline constexpr std::string_view effectsFigure = "effects";

/// The figure of that id; null when the run has none.
const Figure* find(const Report& report, std::string_view id);

/// Its value; empty when there is none.
std::optional<double> valueOf(const Report& report, std::string_view id);

/// "a load of 5.7 on 2 processors"; empty unless at least half of the processors were busy.
std::string busyness(const Machine& machine);

/// How a figure came about, in a few words: "by the device's clock".
std::string_view describe(Basis basis);

/// By how much longer frames took at the end than at the beginning, where they took longer and longer all
/// the way; empty where they did not, or where there are too few to tell.
std::optional<double> slowdown(const std::vector<double>& samples);

} // namespace Qx::Diagnosis
