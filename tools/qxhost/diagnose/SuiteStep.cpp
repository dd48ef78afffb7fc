#include "gputests/GPUTests.h"
#include "platform/Log.h"
#include "platform/Text.h"
#include "tools/qxhost/diagnose/Steps.h"

#include <array>
#include <charconv>
#include <fmt/format.h>

namespace Qx::Diagnosis {

namespace {

constexpr int resultCategory = 0;
constexpr int headingCategory = 5;

/// A rate of the suite, by its test's heading. The tests for playback and render may not be told apart by
/// their headings alone, so the order counts too.
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

/// Sends the suite's lines as they are written, and keeps the rates.
class SuiteLog final : public LoggerBase
{
public:
    explicit SuiteLog(Probe& probe) : probe_(probe) {}

    void logLine(const LightweightString<wchar_t>& text, int category) override
    {
        const std::string line(toUTF8(text).view());
        if (category == headingCategory) {
            probe_.doing("running the suite: " + line);
        }
        probe_.send(SuiteLine{category, line});
        probe_.operation();
        if (category == resultCategory && test_ >= 0) {
            rates_.at(static_cast<std::size_t>(test_)) = rateOf(line);
        }
    }

    void beginTests(int) override { test_ = 0; }
    void endTests() override { test_ = -1; }
    void endTest() override { test_ = std::min(test_ + 1, static_cast<int>(rates_.size()) - 1); }

    const std::array<std::optional<double>, suiteRates.size()>& rates() const { return rates_; }

private:
    Probe& probe_;
    int test_ = -1;
    std::array<std::optional<double>, suiteRates.size()> rates_{};
};

} // namespace

void runSuite(Probe& probe, Yardsticks&)
{
    SuiteLog log(probe);
    GPUTests::runAllTests(log);
    // The next step is not to wait for what the suite left to the device.
    probe.doing("finishing what the suite ordered");
    static_cast<void>(probe.finish());
    for (std::size_t i = 0; i < suiteRates.size(); ++i) {
        Figure figure = notMeasured(suiteRates.at(i).id, "suite", suiteRates.at(i).title, "frames/s",
                                    "the suite's test failed");
        figure.value = log.rates().at(i);
        if (figure.value) {
            figure.basis = Basis::submitted;
            figure.note.clear();
        }
        probe.send(figure);
    }
}

} // namespace Qx::Diagnosis
