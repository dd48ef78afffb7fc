#include "bench/comparison/Start.h"

#include "bench/Catalogue.h"
#include "bench/comparison/Peer.h"

#include <fmt/format.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sched.h>
#include <system_error>
#include <vector>

namespace Qx::Bench {
namespace {

namespace fs = std::filesystem;

struct Figures
{
    double load = 0;
    double medianDraw = 0;
    double longestDraw = 0;
};

/// The configuration of the host for a start.
struct Configuration
{
    const char* name;
    Variables variables;
};

const std::array<Configuration, 2>& configurations()
{
    static const std::array<Configuration, 2> both{
        {{"caches off, nothing ahead", {"QX_CACHE=0", "QX_EFFECTS_AHEAD=0", "QX_EFFECTS_WARM=0"}},
         {"as shipped", {"QX_CACHE=1", "QX_EFFECTS_AHEAD=1", "QX_EFFECTS_WARM=1"}}}};
    return both;
}

/// Restricts this process and its children to a number of its cores for the lifetime of the object.
class FewerCores
{
public:
    explicit FewerCores(int wanted)
    {
        CPU_ZERO(&before_);
        sched_getaffinity(0, sizeof before_, &before_);
        cpu_set_t fewer;
        CPU_ZERO(&fewer);
        for (std::size_t core = 0; core < CPU_SETSIZE && CPU_COUNT(&fewer) < wanted; ++core) {
            if (CPU_ISSET(core, &before_)) {
                CPU_SET(core, &fewer);
            }
        }
        sched_setaffinity(0, sizeof fewer, &fewer);
    }
    FewerCores(const FewerCores&) = delete;
    FewerCores& operator=(const FewerCores&) = delete;
    ~FewerCores() { sched_setaffinity(0, sizeof before_, &before_); }

private:
    cpu_set_t before_{};
};

int coresHere()
{
    cpu_set_t cores;
    CPU_ZERO(&cores);
    return sched_getaffinity(0, sizeof cores, &cores) == 0 ? CPU_COUNT(&cores) : 1;
}

/// Measures starts with a catalogue in a temporary directory.
class Starter
{
public:
    explicit Starter(std::string program) : program_(std::move(program))
    {
        std::string name = (fs::temp_directory_path() / "qx-compare-XXXXXX").string();
        if (mkdtemp(name.data()) != nullptr) {
            directory_ = name;
            writeCatalogue(directory_ / "catalogue");
        }
    }
    Starter(const Starter&) = delete;
    Starter& operator=(const Starter&) = delete;
    ~Starter()
    {
        std::error_code ignored;
        if (!directory_.empty()) {
            fs::remove_all(directory_, ignored);
        }
    }

    /// An unused directory for caches.
    fs::path newHome()
    {
        const fs::path home = directory_ / fmt::format("home-{}", homes_++);
        fs::create_directories(home);
        return home;
    }

    /// With all caches, including the driver's, in `home`.
    std::optional<Figures> start(const Configuration& configuration, const fs::path& home) const
    {
        const std::string output = (home / "figures").string();
        Variables settings = configuration.variables;
        for (const char* variable :
             {"XDG_CACHE_HOME=", "XDG_CONFIG_HOME=", "XDG_STATE_HOME=", "XDG_DATA_HOME="}) {
            settings.push_back(variable + home.string());
        }
        // The library's own effects are absent, so they are not compiled in the background.
        settings.push_back("QX_SHADERS_DIR=" + home.string());
        const std::string catalogue = std::string(catalogueOption) + (directory_ / "catalogue").string();
        if (directory_.empty() || !runProgram({program_, catalogue}, settings, output)) {
            return std::nullopt;
        }
        Figures figures;
        std::ifstream in(output);
        in >> figures.load >> figures.medianDraw >> figures.longestDraw;
        return in ? std::optional(figures) : std::nullopt;
    }

private:
    std::string program_;
    fs::path directory_;
    int homes_ = 0;
};

/// The first starts with a configuration, and the next ones.
using FirstAndNext = std::array<std::vector<Figures>, 2>;

double medianOf(const std::vector<Figures>& all, double Figures::*member)
{
    std::vector<double> values;
    for (const Figures& figures : all) {
        values.push_back(figures.*member);
    }
    const auto spread = spreadOf(std::move(values));
    return spread ? spread->median : 0.0;
}

std::string tableOf(const std::array<FirstAndNext, 2>& measured)
{
    std::string table = fmt::format("| {} effect files |", catalogueFiles);
    std::string rule = "\n|---|";
    for (const Configuration& configuration : configurations()) {
        table += fmt::format(" {}: first start | next start |", configuration.name);
        rule += "---:|---:|";
    }
    table += rule + '\n';
    const auto row = [&](const char* name, double Figures::*member, int decimals) {
        table += fmt::format("| {} |", name);
        for (const FirstAndNext& starts : measured) {
            for (const std::vector<Figures>& figures : starts) {
                table += fmt::format(" {:.{}f} ms |", medianOf(figures, member), decimals);
            }
        }
        table += '\n';
    };
    row("start until every effect is loaded", &Figures::load, 0);
    row("first draw of a technique, median", &Figures::medianDraw, 2);
    row("first draw of a technique, longest", &Figures::longestDraw, 2);
    return table;
}

/// Measures a first start with default settings on a number of cores. Returns milliseconds, 0 on failure.
double coldStart(Starter& starter, int cores)
{
    const FewerCores fewer(cores);
    const auto figures = starter.start(configurations()[1], starter.newHome());
    return figures ? figures->load : 0.0;
}

} // namespace

std::optional<Starts> measureStarts(const std::string& program, int rounds, std::string& why)
{
    Starter starter(program);
    std::array<FirstAndNext, 2> measured;
    std::vector<Pair> cores;
    for (int round = 0; round < rounds; ++round) {
        for (std::size_t c = 0; c < configurations().size(); ++c) {
            const fs::path home = starter.newHome();
            for (std::vector<Figures>& start : measured.at(c)) {
                const auto figures = starter.start(configurations().at(c), home);
                if (!figures) {
                    why = "the catalogue of effects could not be loaded and drawn";
                    return std::nullopt;
                }
                start.push_back(*figures);
            }
        }
        if (coresHere() > 1) {
            cores.push_back({coldStart(starter, 1), coldStart(starter, 2)});
        }
    }
    std::vector<double> shares;
    for (std::size_t i = 0; i < measured[1][0].size(); ++i) {
        shares.push_back(100 * measured[1][1][i].load / measured[1][0][i].load);
    }
    return Starts{tableOf(measured), spreadOf(shares), ratiosOf(cores)};
}

} // namespace Qx::Bench
