#include "lut/LUTManager.h"
#include "platform/Text.h"
#include "tools/qxhost/commands/Command.h"
#include "tools/qxhost/commands/OptionHelpers.h"
#include "tools/qxhost/commands/lut/WithoutDevice.h"
#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/console/Json.h"
#include "tools/qxhost/pipeline/effects/LutFile.h"

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <iterator>

namespace Qx::Program {

namespace {

namespace fs = std::filesystem;

constexpr const char* installFooter = R"(Examples:
  qxhost lut install film.cube contrast.spi1d
  qxhost convert clip.mov graded.mov --lut film.cube

Copies LUT files into the user's LUT directory. A file counts as installed, and is not copied, if its
path begins with the name of a LUT directory in any letter case. This includes a directory next to it
whose name begins with that name. Exit codes: 0 done, 3 a file is missing or not a LUT (the others are
installed), 4 the copy failed or a different file of the name exists.)";

struct InstallOptions
{
    std::vector<fs::path> files;
    bool force = false;
    bool json = false;
};

LightweightString<wchar_t> asText(const fs::path& path)
{
    return fromUTF8(LightweightString<char>(std::string_view(path.native())));
}

std::string contentsOf(const fs::path& file)
{
    std::ifstream stream;
    do { // again if a signal interrupts it
        stream.clear();
        errno = 0;
        stream.open(file, std::ios::binary);
    } while (!stream.is_open() && errno == EINTR);
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

/// The reason why a file that was not copied counts as installed.
std::string whyInstalled(const fs::path& file)
{
    for (const fs::path& directory : lutDirectories()) {
        std::error_code ignored;
        if (!directory.empty() && fs::equivalent(file.parent_path(), directory, ignored)) {
            return "is in a LUT directory already";
        }
    }
    return "counts as installed, because its path begins with the name of a LUT directory (" +
           lutDirectories().front().string() + " or " + lutDirectories().back().string() +
           "); move it elsewhere to install it";
}

class Installation
{
public:
    Installation(const InstallOptions& options, Console& console) : options_(options), console_(console) {}

    ExitCode run()
    {
        const fs::path directory = lutDirectories().front();
        if (directory.empty()) {
            throw Failure(ExitCode::output, "there is no LUT directory to install into; set luts_dir in the "
                                            "settings, or QX_LUTS_DIR");
        }
        std::error_code ignored; // the copy then fails and reports it
        fs::create_directories(directory, ignored);
        for (const fs::path& file : options_.files) {
            take(fs::absolute(file).lexically_normal());
        }
        return worst_;
    }

    const Json& report() const { return report_; }

private:
    void take(const fs::path& file)
    {
        const std::string reason = Host::readLUT(file).failure;
        if (!reason.empty()) {
            complain(ExitCode::input, file, reason);
            return;
        }
        const fs::path destination = lutDirectories().front() / file.filename();
        std::error_code ignored;
        const bool inTheWay = fs::exists(destination, ignored) && !fs::equivalent(file, destination, ignored);
        if (inTheWay && !options_.force && contentsOf(destination) != contentsOf(file)) {
            complain(ExitCode::output, file,
                     destination.string() + ": exists already and differs; --force replaces it");
            return;
        }
        install(file);
    }

    void install(const fs::path& file)
    {
        LightweightVector<LightweightString<wchar_t>> files;
        files.push_back(asText(file));
        const auto copies = LUTManager::instance().installLUTs(files);
        const std::string copy(toUTF8(copies[0]).view());
        if (copy.empty()) {
            console_.note(file.string() + ": " + whyInstalled(file));
            report_.push_back({{"file", file.string()}, {"installed", nullptr}});
            return;
        }
        if (contentsOf(copy) != contentsOf(file)) {
            complain(ExitCode::output, file,
                     copy + ": could not be written; check free space and permissions");
            return;
        }
        const std::string unlisted = whyNotListed(copy);
        console_.note(copy + ": installed" + (unlisted.empty() ? "" : ", but it is not listed: " + unlisted));
        report_.push_back({{"file", file.string()}, {"installed", copy}});
    }

    void complain(ExitCode code, const fs::path& file, const std::string& reason)
    {
        console_.error(reason);
        report_.push_back({{"file", file.string()}, {"error", reason}});
        worst_ = std::max(worst_, code);
    }

    const InstallOptions& options_;
    Console& console_;
    Json report_ = Json::array();
    ExitCode worst_ = ExitCode::ok;
};

ExitCode install(const InstallOptions& options, Console& console)
{
    const WithoutDevice host(console);
    Installation installation(options, console);
    const ExitCode code = installation.run();
    if (options.json) {
        console.data(jsonText(installation.report()));
    }
    return code;
}

class InstallCommand : public CommandWithOptions<InstallOptions>
{
public:
    void addOptions(CLI::App& app) override
    {
        app.add_option("FILE", options_.files, "LUT files")->option_text(" ");
        app.add_flag("--force", options_.force, "Replace existing files there");
        app.add_flag("--json", options_.json, "Print JSON");
        app.footer(installFooter);
    }

    void check(const CLI::App& app) override
    {
        requireValue(app, options_.files.empty() ? "" : options_.files.front(), "FILE");
    }

    ExitCode run(Console& console) override { return install(options_, console); }
};

const Registered<InstallCommand> registeredInstall({.name = "lut install",
                                                    .order = 20,
                                                    .about = "Copy LUT files into the user's LUT directory"});

} // namespace

} // namespace Qx::Program
