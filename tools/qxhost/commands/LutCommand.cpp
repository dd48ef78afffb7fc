#include "host/Host.h"
#include "host/core/Printable.h"
#include "lut/LUTManager.h"
#include "platform/Text.h"
#include "tools/qxhost/commands/Commands.h"
#include "tools/qxhost/commands/LutPicture.h"
#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/console/Json.h"
#include "tools/qxhost/media/write/FrameWriter.h"
#include "tools/qxhost/pipeline/device/HostSession.h"
#include "tools/qxhost/pipeline/effects/LutFile.h"
#include "tools/qxhost/pipeline/output/PictureOutput.h"

#include <algorithm>
#include <fmt/format.h>
#include <fstream>
#include <iterator>
#include <limits>

namespace Qx::Program {

namespace {

namespace fs = std::filesystem;

/// The reference host for commands that need no device.
class WithoutDevice
{
public:
    explicit WithoutDevice(Console& console)
    {
        Host::start({.argc = 0, .argv = nullptr, .device = nullptr, .quiet = true});
        tellComplaints(console);
    }
    ~WithoutDevice() { Host::stop(); }
    WithoutDevice(const WithoutDevice&) = delete;
    WithoutDevice& operator=(const WithoutDevice&) = delete;
};

std::string tableText(const Host::LUTReading& reading)
{
    const std::string size = fmt::format("{0} x {0} x {0}", reading.table->getSize());
    return reading.facts.baked ? size + ", made from it, off by at most " + errorInCodes(reading.facts.error)
                               : size;
}

// ---- list

Json describe(const fs::path& file)
{
    const Host::LUTReading reading = Host::readLUT(file);
    Json entry{{"name", file.filename().string()}, {"directory", file.parent_path().string()}};
    entry["readable"] = static_cast<bool>(reading.table);
    if (reading.table) {
        entry["contents"] = reading.facts.contents;
        entry["size"] = reading.table->getSize();
        entry["baked"] = reading.facts.baked;
        entry["error"] = reading.facts.error;
    } else {
        entry["reason"] = reading.failure;
    }
    return entry;
}

std::string listText(const Json& luts)
{
    std::size_t name = 4;
    std::size_t holds = 5;
    const auto contents = [](const Json& lut) {
        return lut["readable"].get<bool>() ? lut["contents"].get<std::string>() : "cannot be read";
    };
    for (const Json& lut : luts) {
        name = std::max(name, lut["name"].get<std::string>().size());
        holds = std::max(holds, contents(lut).size());
    }
    std::string text = fmt::format("{:<{}}  {:<{}}  {}\n", "NAME", name, "HOLDS", holds, "DIRECTORY");
    for (const Json& lut : luts) {
        text += fmt::format("{:<{}}  {:<{}}  {}\n", Host::printable(lut["name"].get<std::string>()), name,
                            contents(lut), holds, Host::printable(lut["directory"].get<std::string>()));
    }
    return text;
}

/// Says of the directories' other files why they are not listed, where that may surprise.
void noteUnlisted(Console& console)
{
    for (const fs::path& directory : lutDirectories()) {
        std::error_code error;
        for (fs::directory_iterator at(directory, error); !error && at != fs::directory_iterator();
             at.increment(error)) {
            const std::string reason = whyNotListed(at->path());
            if (!reason.empty() && hasLutExtension(at->path())) {
                console.note(at->path().string() + " is not listed: " + reason);
            }
        }
    }
}

ExitCode list(const LutOptions& options, Console& console)
{
    Json luts = Json::array();
    for (const fs::path& file : listedLuts()) {
        luts.push_back(describe(file));
    }
    if (options.json) {
        console.data(jsonText(luts));
    } else if (luts.empty()) {
        console.note("no LUTs are installed; 'qxhost lut install FILE' puts them into " +
                     lutDirectories().front().string());
    } else {
        console.data(listText(luts));
    }
    noteUnlisted(console);
    const bool broken =
        std::any_of(luts.begin(), luts.end(), [](const Json& lut) { return !lut["readable"].get<bool>(); });
    if (broken) {
        console.note("'qxhost lut info FILE' says what is wrong with a LUT that cannot be read");
    }
    return ExitCode::ok;
}

// ---- install

LightweightString<wchar_t> asText(const fs::path& path)
{
    return fromUTF8(LightweightString<char>(std::string_view(path.native())));
}

std::string contentsOf(const fs::path& file)
{
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

/// Why a file that was not copied counts as installed.
std::string whyInstalled(const fs::path& file)
{
    for (const fs::path& directory : lutDirectories()) {
        std::error_code ignored;
        if (!directory.empty() && fs::equivalent(file.parent_path(), directory, ignored)) {
            return "lies in a LUT directory already";
        }
    }
    return "counts as installed, because its path begins with the name of a LUT directory (" +
           lutDirectories().front().string() + " or " + lutDirectories().back().string() +
           "); move it elsewhere to install it";
}

class Installation
{
public:
    Installation(const LutOptions& options, Console& console) : options_(options), console_(console) {}

    ExitCode run()
    {
        const fs::path directory = lutDirectories().front();
        if (directory.empty()) {
            throw Failure(ExitCode::output, "there is no LUT directory to install into; set luts_dir in the "
                                            "settings, or QX_LUTS_DIR");
        }
        std::error_code ignored; // a copy that fails tells
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
                     destination.string() + ": is there already and differs; --force replaces it");
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
            complain(ExitCode::output, file, copy + ": could not be written; is there room, and may you?");
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

    const LutOptions& options_;
    Console& console_;
    Json report_ = Json::array();
    ExitCode worst_ = ExitCode::ok;
};

ExitCode install(const LutOptions& options, Console& console)
{
    Installation installation(options, console);
    const ExitCode code = installation.run();
    if (options.json) {
        console.data(jsonText(installation.report()));
    }
    return code;
}

// ---- info

struct Extent
{
    float low = std::numeric_limits<float>::max();
    float high = std::numeric_limits<float>::lowest();
};

Extent extentOf(const iHostImage3D& table)
{
    Extent extent;
    const auto edge = static_cast<std::size_t>(table.getSize());
    for (std::size_t i = 0; i < 4 * edge * edge * edge; ++i) {
        if (i % 4 != 3) {
            extent.low = std::min(extent.low, table.getData()[i]);
            extent.high = std::max(extent.high, table.getData()[i]);
        }
    }
    return extent;
}

Json describe(const fs::path& file, const Host::LUTReading& reading)
{
    const Extent extent = extentOf(*reading.table);
    const TableDomain domain = reading.table->getDomain();
    const std::vector<fs::path> listed = listedLuts();
    Json info;
    info["file"] = file.string();
    info["title"] = reading.facts.title;
    info["contents"] = reading.facts.contents;
    info["size"] = reading.table->getSize();
    info["baked"] = reading.facts.baked;
    info["error"] = reading.facts.error;
    info["domain"]["min"] = domain.min;
    info["domain"]["max"] = domain.max;
    info["lowest"] = extent.low;
    info["highest"] = extent.high;
    info["remarks"] = reading.facts.remarks;
    info["listed"] = std::any_of(listed.begin(), listed.end(), [&](const fs::path& other) {
        std::error_code ignored;
        return fs::equivalent(other, file, ignored);
    });
    return info;
}

std::string listedText(const Json& info, const fs::path& file)
{
    if (info["listed"].get<bool>()) {
        return "yes; 'convert --lut " + file.filename().string() + "' finds it by its name";
    }
    const std::string reason = whyNotListed(file);
    return "no; " + (reason.empty() ? "'qxhost lut install' makes it so" : reason);
}

std::string domainText(const TableDomain& domain)
{
    const auto text = [](const std::array<float, 3>& c) {
        return c[0] == c[1] && c[1] == c[2] ? fmt::format("{}", c[0])
                                            : fmt::format("({}, {}, {})", c[0], c[1], c[2]);
    };
    return text(domain.min) + " to " + text(domain.max);
}

ExitCode info(const LutOptions& options, Console& console)
{
    const fs::path file = lutPath(options.file.string());
    const Host::LUTReading reading = readLut(file.string());
    const Json described = describe(file, reading);
    if (options.json) {
        console.data(jsonText(described));
        return ExitCode::ok;
    }
    std::string text = Host::printable(file.string()) + "\n";
    const auto row = [&](const char* name, const std::string& value) {
        text += fmt::format("  {:<8} {}\n", name, value);
    };
    if (!reading.facts.title.empty()) {
        row("title", reading.facts.title);
    }
    row("holds", reading.facts.contents);
    row("table", tableText(reading));
    row("domain", domainText(reading.table->getDomain()) + "; colours outside are held to it");
    row("colours",
        fmt::format("{} to {}", described["lowest"].get<float>(), described["highest"].get<float>()));
    for (const std::string& remark : reading.facts.remarks) {
        row("remark", remark);
    }
    row("listed", Host::printable(listedText(described, file)));
    console.data(text);
    return ExitCode::ok;
}

// ---- preview

ExitCode preview(const LutOptions& options, Console& console)
{
    requireOnePicture(options.output, "a preview");
    const Host::LUTReading reading = readLut(options.file.string());
    const std::string name = options.file.filename().string();
    const LutPicture picture = drawLut(*reading.table, name, reading.facts.contents);
    Media::OutputSettings settings;
    settings.width = picture.width;
    settings.height = picture.height;
    settings.force = options.force;
    settings.expectedFrames = 1;
    auto writer = Media::openWriter(options.output, settings);
    if (!writer) {
        throw Failure(ExitCode::output, writer.text());
    }
    Media::Status status =
        writer.value()->write(picture.bytes.data(), std::ptrdiff_t{4} * picture.width, {0, 1, {}});
    if (status) {
        status = writer.value()->finish();
    }
    if (!status) {
        throw Failure(ExitCode::output, status.text());
    }
    console.note(options.output.string() + ": before and after, curves of grey, and ramps of " +
                 reading.facts.contents);
    return ExitCode::ok;
}

} // namespace

ExitCode runLut(const LutOptions& options, Console& console)
{
    const WithoutDevice host(console);
    switch (options.action) {
    case LutOptions::Action::list:
        return list(options, console);
    case LutOptions::Action::install:
        return install(options, console);
    case LutOptions::Action::info:
        return info(options, console);
    case LutOptions::Action::preview:
        break;
    }
    return preview(options, console);
}

} // namespace Qx::Program
