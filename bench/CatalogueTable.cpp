#include "bench/Catalogue.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <optional>
#include <spawn.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>
#include <vector>

extern char** environ; // NOLINT: POSIX declares it nowhere

namespace Qx::Bench {
namespace {

namespace fs = std::filesystem;

constexpr int repetitions = 5;

/// How the host is set up for a start.
struct Configuration
{
    const char* name;
    std::vector<std::string> variables;
};

const std::array<Configuration, 2>& configurations()
{
    static const std::array<Configuration, 2> both{
        {{"caches off, nothing ahead", {"QX_CACHE=0", "QX_EFFECTS_AHEAD=0", "QX_EFFECTS_WARM=0"}},
         {"as shipped", {"QX_CACHE=1", "QX_EFFECTS_AHEAD=1", "QX_EFFECTS_WARM=1"}}}};
    return both;
}

struct Figures
{
    double load = 0;
    double medianDraw = 0;
    double longestDraw = 0;
};

/// Runs this program anew over the catalogue, with all caches, the driver's too, in `home`.
std::optional<Figures> startOnce(const Configuration& configuration, const fs::path& catalogue,
                                 const fs::path& home)
{
    const std::string output = (home / "figures").string();
    std::vector<std::string> texts{"/proc/self/exe", std::string(catalogueOption) + catalogue.string()};
    std::vector<char*> arguments{texts[0].data(), texts[1].data(), nullptr};
    std::vector<std::string> settings = configuration.variables;
    for (const char* variable :
         {"XDG_CACHE_HOME=", "XDG_CONFIG_HOME=", "XDG_STATE_HOME=", "XDG_DATA_HOME="}) {
        settings.push_back(variable + home.string());
    }
    // The library's own effects are not there to be compiled in the background meanwhile.
    settings.push_back("QX_SHADERS_DIR=" + home.string());
    for (char** each = environ; *each != nullptr; ++each) {
        settings.emplace_back(*each); // an earlier one of the same name wins
    }
    std::vector<char*> environment;
    for (std::string& setting : settings) {
        environment.push_back(setting.data());
    }
    environment.push_back(nullptr);
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    constexpr int mode = 0600;
    posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, output.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                     mode);
    pid_t child = 0;
    const int error =
        posix_spawn(&child, "/proc/self/exe", &files, nullptr, arguments.data(), environment.data());
    posix_spawn_file_actions_destroy(&files);
    int status = 0;
    if (error != 0 || waitpid(child, &status, 0) != child || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        return std::nullopt;
    }
    Figures figures;
    std::ifstream in(output);
    in >> figures.load >> figures.medianDraw >> figures.longestDraw;
    return in ? std::optional(figures) : std::nullopt;
}

template <class Member>
double medianOf(const std::vector<Figures>& all, Member member)
{
    std::vector<double> values;
    for (const Figures& figures : all) {
        values.push_back(figures.*member);
    }
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

/// The first start with that configuration, and the next one.
using Starts = std::array<std::vector<Figures>, 2>;

std::string tableOf(const std::array<Starts, 2>& measured)
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
        for (const Starts& starts : measured) {
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

} // namespace

std::string measureCatalogue()
{
    std::string name = (fs::temp_directory_path() / "qx-bench-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) {
        return {};
    }
    const fs::path directory = name;
    writeCatalogue(directory / "catalogue");
    std::array<Starts, 2> measured;
    bool complete = true;
    for (int repetition = 0; repetition < repetitions && complete; ++repetition) {
        for (std::size_t c = 0; c < configurations().size(); ++c) {
            const fs::path home = directory / fmt::format("home-{}-{}", repetition, c);
            fs::create_directories(home);
            for (std::vector<Figures>& start : measured.at(c)) {
                const auto figures = startOnce(configurations().at(c), directory / "catalogue", home);
                complete = complete && figures;
                start.push_back(figures.value_or(Figures()));
            }
        }
    }
    std::error_code ignored;
    fs::remove_all(directory, ignored);
    if (!complete) {
        std::fprintf(stderr, "the catalogue could not be measured\n");
        return {};
    }
    return tableOf(measured);
}

} // namespace Qx::Bench
