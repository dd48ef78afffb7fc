#include "tools/qxhost/commands/Command.h"
#include "tools/qxhost/commands/FormatPicture.h"
#include "tools/qxhost/console/Json.h"
#include "tools/qxhost/media/write/StoredContainers.h"
#include "tools/qxhost/pipeline/formats/PixelFormat.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <fmt/format.h>
#include <sstream>

namespace Qx::Program {

namespace {

using Host::FormatInfo;
using Host::Planes;
using Host::RowLayout;

constexpr std::uint32_t largestNumber = 255; // codes above are four characters

/// "YUY2", or the number that the code is.
std::string codeText(const FormatInfo& info)
{
    const auto code = static_cast<std::uint32_t>(info.format);
    if (code <= largestNumber) {
        return std::to_string(code);
    }
    std::string text;
    for (unsigned shift = 0; shift < 32; shift += 8) {
        text += static_cast<char>(code >> shift & 0xffU);
    }
    return text;
}

std::vector<PixelFormat> depthsOf(const FormatInfo& info)
{
    std::vector<PixelFormat> all = pixelFormats();
    std::erase_if(all, [&](const PixelFormat& each) { return each.info != &info; });
    return all;
}

std::vector<std::string> containersOf(const PixelFormat& format)
{
    return Media::containersOf(format.info->format, static_cast<int>(format.bits));
}

std::string ffmpegName(const PixelFormat& format)
{
    return Media::ffmpegNameOf(format.info->format, static_cast<int>(format.bits));
}

const char* kindOf(const FormatInfo& info)
{
    if (info.kind == Host::FormatKind::RGB) {
        return "RGB";
    }
    return info.planes == Planes::OneAndTwoHalf ? "YCbCr 4:2:0" : "YCbCr 4:2:2";
}

/// "2 pixels in 4 bytes".
std::string blockText(const PixelFormat& format)
{
    if (format.info->planes != Planes::One) {
        return format.isDeep() ? "planes of 16-bit words" : "planes of bytes";
    }
    const RowLayout& layout = format.info->layout(format.bits);
    return fmt::format("{} {} in {} bytes", layout.blockPixels, layout.blockPixels == 1 ? "pixel" : "pixels",
                       layout.blockBytes);
}

Json describeDepth(const PixelFormat& format)
{
    const RowLayout& layout = format.info->layout(format.bits);
    Json depth;
    depth["name"] = format.name();
    depth["bits"] = format.bits;
    depth["bitsPerPixel"] = layout.bitsPerPixel;
    depth["blockPixels"] = layout.blockPixels;
    depth["blockBytes"] = layout.blockBytes;
    depth["rowAlignment"] = layout.rowAlignment;
    depth["components"] = Json::array();
    for (const Host::ComponentBits& part : Host::componentsOf(*format.info, format.bits)) {
        depth["components"].push_back(
            {{"name", part.component}, {"bit", part.bit}, {"bits", part.bits}, {"valueBit", part.valueBit}});
    }
    depth["containers"] = containersOf(format);
    const std::string same = ffmpegName(format);
    depth["ffmpeg"] = same.empty() ? Json(nullptr) : Json(same);
    return depth;
}

Json describeTable()
{
    Json table = Json::array();
    for (const FormatInfo& info : Host::formatTable()) {
        Json entry;
        entry["name"] = info.word;
        entry["code"] = static_cast<std::uint32_t>(info.format);
        entry["characters"] = codeText(info);
        entry["kind"] = kindOf(info);
        entry["order"] = info.order;
        entry["planes"] = info.planes == Planes::One ? 1 : 3;
        entry["usualBits"] = info.usualDepth;
        entry["depths"] = Json::array();
        for (const PixelFormat& format : depthsOf(info)) {
            entry["depths"].push_back(describeDepth(format));
        }
        entry["note"] = info.note;
        table.push_back(entry);
    }
    return table;
}

std::string plainTable()
{
    std::string text = fmt::format("{:<11} {:<7} {:<12} {:<12} {:<26} {:<16} {}\n", "name", "code", "kind",
                                   "in memory", "layout", "containers", "FFmpeg");
    for (const PixelFormat& format : pixelFormats()) {
        const std::vector<std::string> containers = containersOf(format);
        const std::string same = ffmpegName(format);
        text +=
            fmt::format("{:<11} {:<7} {:<12} {:<12} {:<26} {:<16} {}\n", format.name(),
                        codeText(*format.info), kindOf(*format.info), format.info->order, blockText(format),
                        containers.empty() ? "-" : fmt::format("{}", fmt::join(containers, " ")),
                        same.empty() ? "-" : same);
    }
    return text +
           "\nAll of them can also be written to and read from raw files. NAME:BITS is another depth.\n"
           "'qxhost formats --markdown' draws the layouts.\n";
}

constexpr const char* markdownIntroduction = R"(# Pixel formats

`qxhost formats --markdown` generates this page from the format table; a test compares the two.

A name stands for a format at its usual depth. `NAME:BITS`, as in `uyvy:16`, is another depth. `qxhost convert --format
NAME` writes a format and `--raw NAME` reads it: raw files, which hold frames and nothing else (`.raw`, `.yuv`, `.rgb`,
`.bin`, `.data`, or the format's name), and the containers listed, which other programs open. Words of 16 and 32 bits
are little-endian in memory and in raw files. Codes of more than 8 bits that do not fill their 16-bit word use its upper
bits. The column FFmpeg names the pixel format of the same bytes, for `ffmpeg -f rawvideo -pix_fmt`.
)";

std::string markdownRow(const PixelFormat& format)
{
    const std::vector<std::string> containers = containersOf(format);
    const std::string same = ffmpegName(format);
    const RowLayout& layout = format.info->layout(format.bits);
    std::string rows = blockText(format);
    if (layout.rowAlignment > 1) {
        rows += fmt::format("; rows of whole {} bytes", layout.rowAlignment);
    }
    return fmt::format("| `{}` | `{}`, 0x{:08x} | {} | {} | {} | {} |\n", format.name(),
                       codeText(*format.info), static_cast<std::uint32_t>(format.info->format), rows,
                       layout.bitsPerPixel,
                       containers.empty() ? "" : fmt::format("{}", fmt::join(containers, ", ")),
                       same.empty() ? "" : "`" + same + "`");
}

/// The text in lines of at most 120 columns.
std::string wrapped(const std::string& text)
{
    constexpr std::size_t columns = 120;
    std::string lines;
    std::size_t used = 0;
    std::istringstream words(text);
    for (std::string word; words >> word;) {
        const bool fits = used + 1 + word.size() <= columns;
        lines += used == 0 ? "" : (fits ? " " : "\n");
        used = used == 0 || !fits ? word.size() : used + 1 + word.size();
        lines += word;
    }
    return lines + "\n";
}

std::string markdownSection(const FormatInfo& info)
{
    const std::vector<PixelFormat> depths = depthsOf(info);
    std::string text = fmt::format("\n## {}\n\n", info.word) +
                       wrapped(fmt::format("{}, {} bits{}. {}", kindOf(info), info.usualDepth,
                                           depths.size() > 1 ? " by default" : "", info.note));
    for (const PixelFormat& format : depths) {
        text += fmt::format("\n`{}`:\n\n```text\n{}```\n", format.name(), drawLayout(info, format.bits));
    }
    return text;
}

std::string markdownPage()
{
    std::string text = markdownIntroduction;
    text += "\n| name | code | in memory | bits a pixel | containers | FFmpeg |\n|---|---|---|---|---|---|\n";
    for (const PixelFormat& format : pixelFormats()) {
        text += markdownRow(format);
    }
    text +=
        "\nIn the drawings, a box is a component and stands under its first byte. If several share a unit of "
        "memory, its highest\nbit is on the left, and `9:2` after a name means the bits of the value that "
        "lie "
        "there.\n";
    for (const FormatInfo& info : Host::formatTable()) {
        text += markdownSection(info);
    }
    return text;
}

struct FormatsOptions
{
    bool json = false;
    bool markdown = false;
};

class FormatsCommand : public CommandWithOptions<FormatsOptions>
{
public:
    void addOptions(CLI::App& app) override
    {
        app.add_flag("--json", options_.json, "Print JSON");
        app.add_flag("--markdown", options_.markdown, "Print a page with drawings of the layouts");
    }

    void check(const CLI::App& app) override
    {
        if (options_.json && options_.markdown) {
            complain(app, "--json and --markdown print different things; give one of them");
        }
    }

    ExitCode run(Console& console) override
    {
        if (options_.json) {
            console.data(jsonText(describeTable()));
        } else {
            console.data(options_.markdown ? markdownPage() : plainTable());
        }
        return ExitCode::ok;
    }
};

const Registered<FormatsCommand>
    registeredFormats({.name = "formats",
                       .order = 60,
                       .about = "List the pixel formats and their memory layouts",
                       .examples = "  qxhost formats                                   the pixel formats\n"});

} // namespace

} // namespace Qx::Program
