#include "gputests/GPUTests.h"
#include "host/diagnostics/TestRecorder.h"
#include "tools/qxhost/diagnose/Steps.h"

#include <array>
#include <charconv>
#include <fmt/format.h>

namespace Qx::Diagnosis {

namespace {

constexpr int resultCategory = 0;
constexpr int headingCategory = 5;

/// The figure that a test's rate becomes. Which test a rate is of goes by the order in which they run.
struct SuiteRate
{
    const char* id;
    const char* title;
};

constexpr std::array suiteRates{
    SuiteRate{"suite-upload", "Suite: uploads"},
    SuiteRate{"suite-download", "Suite: downloads"},
    SuiteRate{"suite-shader", "Suite: draws through cc3.fx"},
    SuiteRate{"suite-playback", "Suite: playback (upload, draw)"},
    SuiteRate{"suite-render", "Suite: render (upload, draw, download)"},
};

/// The rate of a line such as "123.45fps".
std::optional<double> rateOf(const std::string& line)
{
    constexpr std::string_view unit = "fps";
    double rate = 0;
    const char* end = line.data() + line.size();
    const auto [stopped, error] = std::from_chars(line.data(), end, rate);
    const bool read =
        error == std::errc() && std::string_view(stopped, static_cast<std::size_t>(end - stopped)) == unit;
    return read ? std::optional(rate) : std::nullopt;
}

/// The rate of the suite's test of that number; empty where it has none.
std::optional<double> rateOf(const std::vector<Host::TestLine>& lines, int test)
{
    for (const Host::TestLine& line : lines) {
        if (line.test == test && line.category == resultCategory) {
            return rateOf(line.text);
        }
    }
    return std::nullopt;
}

} // namespace

void runSuite(Probe& probe, Yardsticks&)
{
    Host::TestRecorder log([&probe](const Host::TestLine& line) {
        if (line.category == headingCategory) {
            probe.doing("running the suite: " + line.text);
        }
        probe.send(SuiteLine{line.category, line.text});
        probe.operation();
    });
    GPUTests::runAllTests(log);
    // The next step is not to wait for what the suite left to the device.
    probe.doing("finishing what the suite ordered");
    static_cast<void>(probe.finish());
    for (std::size_t i = 0; i < suiteRates.size(); ++i) {
        Figure figure = notMeasured(suiteRates.at(i).id, "suite", suiteRates.at(i).title, "frames/s",
                                    "the suite's test failed");
        figure.value = rateOf(log.lines(), static_cast<int>(i));
        if (figure.value) {
            figure.basis = Basis::submitted;
            figure.note.clear();
        }
        probe.send(figure);
    }
}

} // namespace Qx::Diagnosis
