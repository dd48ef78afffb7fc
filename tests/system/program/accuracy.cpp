// Runs the program on clips and raw frames and measures the codes that it writes against exact arithmetic,
// and against zimg. Prints a section of docs/accuracy.md; scripts/accuracy runs it.

#include "tests/TemporaryDirectory.h"
#include "tests/pixels/ClipReference.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using namespace Qx::Pixels;

using Bytes = std::vector<std::uint8_t>;

constexpr int width = 288; // whole groups of every packed format
constexpr int height = 64;

/// How codes lie to exact values.
struct Tally
{
    std::uint64_t samples = 0;
    std::uint64_t nearest = 0; ///< or one of two, where the exact value is half way between them
    std::uint64_t within = 0;  ///< nearer than a whole code
    double worst = 0;          ///< distance in codes

    void add(double code, double exact)
    {
        constexpr double tie = 1e-6;
        const double away = std::abs(code - exact);
        ++samples;
        nearest += away <= 0.5 + tie ? 1U : 0U;
        within += away <= 1.0 ? 1U : 0U;
        worst = std::max(worst, away);
    }

    double percent(std::uint64_t part) const
    {
        return 100.0 * static_cast<double>(part) / static_cast<double>(samples);
    }
};

/// The directory of the files, and the programs run in it.
class Workplace
{
public:
    explicit Workplace(std::string program) : program_(std::move(program)) {}

    void qxhost(const std::string& arguments) const
    {
        run("XDG_STATE_HOME=. XDG_CACHE_HOME=. '" + program_ + "' " + arguments + " --quiet --force");
    }

    void ffmpeg(const std::string& arguments) const { run("ffmpeg -nostdin -v error -y " + arguments); }

    Bytes read(const std::string& name) const
    {
        std::ifstream file(directory_.path() / name, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    void write(const std::string& name, const Bytes& bytes) const
    {
        std::ofstream file(directory_.path() / name, std::ios::binary);
        file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    }

    /// The planes of a file's frame as FFmpeg decodes it.
    PlanarFrame decoded(const std::string& name, PlanarFrame form) const
    {
        const std::string layout = form.halfHeight ? "yuv420p" : "yuv422p";
        ffmpeg("-i " + name + " -f rawvideo -pix_fmt " + layout +
               (form.bits > 8 ? std::to_string(form.bits) + "le" : "") + " planes.raw");
        return planarFrame(form, read("planes.raw"));
    }

private:
    void run(const std::string& command) const
    {
        const std::string all = "cd '" + directory_.path().string() + "' && " + command + " </dev/null";
        if (std::system(all.c_str()) != 0) {
            throw std::runtime_error(command);
        }
    }

    std::string program_;
    Qx::Test::TemporaryDirectory directory_;
};

PlanarFrame formOf(int bits, Range range)
{
    PlanarFrame form;
    form.width = width;
    form.height = height;
    form.bits = bits;
    form.range = range;
    return form;
}

const char* tagOf(Range range)
{
    return range == Range::Full ? "pc" : "tv";
}

const char* wordOf(Range range)
{
    return range == Range::Full ? "full" : "video";
}

/// A lossless clip of 4:2:2 in which every code is as likely as any other.
void makeNoise(const Workplace& place, const std::string& name, int bits, Range range)
{
    std::mt19937 random(static_cast<unsigned>(bits));
    Bytes bytes;
    for (int i = 0; i < 2 * width * height; ++i) {
        const auto code = random() & ((1U << bits) - 1);
        bytes.push_back(static_cast<std::uint8_t>(code));
        if (bits > 8) {
            bytes.push_back(static_cast<std::uint8_t>(code >> 8));
        }
    }
    place.write("noise.raw", bytes);
    place.ffmpeg(fmt::format(
        "-f rawvideo -pix_fmt yuv422p{} -s {}x{} -i noise.raw -vf setparams=colorspace=bt709:range={} -c:v "
        "ffv1 -strict -1 -colorspace bt709 -color_range {} {}",
        bits > 8 ? std::to_string(bits) + "le" : "", width, height, tagOf(range), tagOf(range), name));
}

struct Format
{
    const char* name;
    int bits;
    const char* container; ///< that FFmpeg decodes; empty: raw frames of pairs
};
constexpr Format formats[] = {{"yuy2", 8, "avi"}, {"v210", 10, "mkv"}, {"m101", 10, "avi"}, {"y216", 16, ""}};

/// What the program writes in a format, as planes.
PlanarFrame written(const Workplace& place, const std::string& input, const Format& format, Range range)
{
    const PlanarFrame form = formOf(format.bits, range);
    if (*format.container != '\0') {
        const std::string file = std::string("out.") + format.container;
        place.qxhost("convert " + input + " --format " + format.name + " " + file);
        return place.decoded(file, form);
    }
    place.qxhost("convert " + input + " --format " + format.name + " out.raw");
    const Bytes bytes = place.read("out.raw");
    PlanarFrame frame = form;
    for (std::size_t i = 0; i + 7 < bytes.size(); i += 8) {
        const auto word = [&](std::size_t at) {
            return static_cast<std::uint16_t>(bytes[i + at] | bytes[i + at + 1] << 8);
        };
        frame.y.insert(frame.y.end(), {word(0), word(4)});
        frame.cb.push_back(word(2));
        frame.cr.push_back(word(6));
    }
    return frame;
}

void addPlane(Tally& tally, const std::vector<std::uint16_t>& had, const std::vector<std::uint16_t>& given,
              const PlanarFrame& to, const PlanarFrame& from, bool chroma)
{
    if (had.size() != given.size()) {
        throw std::runtime_error("a plane has another size than the source's");
    }
    for (std::size_t i = 0; i < had.size(); ++i) {
        tally.add(had[i], exactLevel(given[i], from.bits, to.bits, from.range, chroma));
    }
}

void printLevels(const Workplace& place)
{
    fmt::print(
        "\n### YCbCr to YCbCr\n\n4:2:2 with every code as likely as any other. The exact value is the code "
        "of the same level at the other depth:\nby powers of two in video range, by the largest codes in "
        "full range.\n\n| from | to | range | samples | nearest | worst |\n|---|---|---|---:|---:|---:|\n");
    for (const Range range : {Range::Video, Range::Full}) {
        for (const int bits : {8, 10, 12, 16}) {
            makeNoise(place, "clip.mkv", bits, range);
            const PlanarFrame given = place.decoded("clip.mkv", formOf(bits, range));
            std::vector<std::pair<std::string, std::string>> inputs{
                {fmt::format("clip, {} bits", bits), "clip.mkv"}};
            for (const Format& raw : formats) {
                if (raw.bits == bits) {
                    place.qxhost(fmt::format("convert clip.mkv --format {} in.{}", raw.name, raw.name));
                    inputs.emplace_back(fmt::format("raw {}", raw.name),
                                        fmt::format("in.{} --raw {} --size {}x{} --range {} --matrix bt709",
                                                    raw.name, raw.name, width, height, wordOf(range)));
                }
            }
            for (const auto& [what, input] : inputs) {
                for (const Format& format : formats) {
                    const PlanarFrame had = written(place, input, format, range);
                    Tally tally;
                    addPlane(tally, had.y, given.y, had, given, false);
                    addPlane(tally, had.cb, given.cb, had, given, true);
                    addPlane(tally, had.cr, given.cr, had, given, true);
                    fmt::print("| {} | {} | {} | {} | {:.4f} % | {:.3f} |\n", what, format.name,
                               wordOf(range), tally.samples, tally.percent(tally.nearest), tally.worst);
                }
            }
        }
    }
}

/// R, G and B of raw frames.
std::vector<double> rgbOf(const Bytes& bytes, int bits)
{
    std::vector<double> rgb;
    if (bits == 10) {
        for (std::size_t i = 0; i + 3 < bytes.size(); i += 4) {
            const auto word = static_cast<std::uint32_t>(bytes[i] | bytes[i + 1] << 8 | bytes[i + 2] << 16) |
                              static_cast<std::uint32_t>(bytes[i + 3]) << 24;
            for (const unsigned shift : {20U, 10U, 0U}) {
                rgb.push_back(word >> shift & 1023U);
            }
        }
        return rgb;
    }
    const std::size_t size = bits == 8 ? 1 : 2;
    for (std::size_t i = 0; i + size <= bytes.size(); i += size) {
        rgb.push_back(size == 1 ? bytes[i] : bytes[i] | bytes[i + 1] << 8);
    }
    return rgb;
}

Tally compare(const std::vector<double>& codes, const std::vector<double>& exact)
{
    if (codes.size() != exact.size()) {
        throw std::runtime_error("a frame has another size than the source's");
    }
    constexpr int border = 2;
    Tally tally;
    for (int y = border; y < height - border; ++y) {
        for (int i = border * 3; i < (width - border) * 3; ++i) {
            const auto at = static_cast<std::size_t>(y * width * 3 + i);
            tally.add(codes[at], exact[at]);
        }
    }
    return tally;
}

void printRgb(const Workplace& place)
{
    fmt::print(
        "\n### Clips to RGB\n\nA noisy test picture without two pixels at its edges, where filters differ in "
        "what they take beyond it.\n*zimg* converts it in 32-bit floats, with the same chroma filter.\n\n| "
        "clip | format | `--output-range` | `--depth` | samples | nearest | within a "
        "code | "
        "worst | within a code of zimg |\n|---|---|---|---|---:|---:|---:|---:|---:|\n");
    struct Clip
    {
        const char* name;
        const char* layout;
        const char* encoder;
        int bits;
        bool halfHeight;
    };
    constexpr Clip clips[] = {{"H.264, 4:2:0, 8 bits", "yuv420p", "libx264 -crf 12", 8, true},
                              {"FFV1, 4:2:2, 8 bits", "yuv422p", "ffv1", 8, false},
                              {"FFV1, 4:2:2, 10 bits", "yuv422p10le", "ffv1", 10, false}};
    constexpr Format rgbFormats[] = {{"bgr3", 8, ""}, {"argb10", 10, ""}, {"b48r", 16, ""}};
    for (const Clip& clip : clips) {
        place.ffmpeg(
            fmt::format("-f lavfi -i testsrc2=size={}x{} -vf noise=alls=8:allf=t,format={} -frames 1 "
                        "-c:v {} -colorspace bt709 -color_range tv rgb.mkv",
                        width, height, clip.layout, clip.encoder));
        PlanarFrame form = formOf(clip.bits, Range::Video);
        form.halfHeight = clip.halfHeight;
        const PlanarFrame given = place.decoded("rgb.mkv", form);
        for (const Format& format : rgbFormats) {
            for (const Range range : {Range::Full, Range::Video}) {
                for (const std::string depth : {"", "8", "16"}) {
                    place.qxhost(fmt::format("convert rgb.mkv out.raw --format {} --output-range {}{}",
                                             format.name, wordOf(range),
                                             depth.empty() ? "" : " --depth " + depth));
                    const std::vector<double> codes = rgbOf(place.read("out.raw"), format.bits);
                    const Tally exact = compare(codes, exactRgb(given, range, format.bits));
                    const Tally zimg = compare(codes, zimgRgb(given, range, format.bits));
                    fmt::print("| {} | {} | {} | {} | {} | {:.4f} % | {:.4f} % | {:.3f} | {:.4f} % |\n",
                               clip.name, format.name, wordOf(range), depth.empty() ? "default" : depth,
                               exact.samples, exact.percent(exact.nearest), exact.percent(exact.within),
                               exact.worst, zimg.percent(zimg.within));
                }
            }
        }
    }
}

constexpr const char* sectionIntroduction = R"(
## The program, from files to files

Runs of `qxhost convert`, whose output FFmpeg reads, against double precision.

- *nearest*: share of samples that are the code nearest to the exact value.
- *within a code*: share of samples that are at most one code away from it.
- *worst*: the largest distance of a sample from the exact value, in codes; 0.5 is rounding.
)";

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        fmt::print(stderr, "usage: accuracy PROGRAM\n");
        return 2;
    }
    try {
        const Workplace place(std::filesystem::absolute(argv[1]).string());
        fmt::print("{}", sectionIntroduction);
        printLevels(place);
        printRgb(place);
    } catch (const std::exception& failure) {
        fmt::print(stderr, "accuracy: failed: {}\n", failure.what());
        return 1;
    }
    return 0;
}
