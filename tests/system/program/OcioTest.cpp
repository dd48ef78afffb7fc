// Colour spaces of OpenColorIO configurations, held against its own program ocioconvert.

#include "tests/system/program/Program.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <fmt/format.h>

namespace Qx::System {

namespace {

using Words = std::vector<std::string>;
using Json = nlohmann::json;

const std::string configuration = R"(ocio_profile_version: 2
description: |
  A studio's spaces
  for the tests
search_path: luts
roles:
  default: ACES
  scene_linear: ACES
file_rules:
  - !<Rule> {name: Default, colorspace: default}
displays:
  Monitor:
    - !<View> {name: Film, colorspace: sRGB}
    - !<View> {name: Flat, colorspace: camera log}
  Paper:
    - !<View> {name: Print, colorspace: print}
  Cinema:
    - !<View> {name: SDR, view_transform: aces, display_colorspace: BT.1886}
    - !<View> {name: Both, colorspace: both}
view_transforms:
  - !<ViewTransform>
    name: aces
    from_scene_reference: !<BuiltinTransform> {style: ACES-OUTPUT - ACES2065-1_to_CIE-XYZ-D65 - SDR-VIDEO_1.0}
display_colorspaces:
  - !<ColorSpace>
    name: BT.1886
    from_display_reference: !<BuiltinTransform> {style: DISPLAY - CIE-XYZ-D65_to_REC.1886-REC.709}
colorspaces:
  - !<ColorSpace> {name: ACES, family: linear, description: ACES2065-1}
  - !<ColorSpace>
    name: grading
    to_scene_reference: !<BuiltinTransform> {style: ACEScct_to_ACES2065-1}
  - !<ColorSpace>
    name: camera log
    aliases: [camera]
    to_scene_reference: !<BuiltinTransform> {style: ARRI_ALEXA-LOGC-EI800-AWG_to_ACES2065-1}
  - !<ColorSpace>
    name: sRGB
    from_scene_reference: !<GroupTransform>
      children:
        - !<MatrixTransform> {matrix: [2.52169, -1.13413, -0.38756, 0, -0.27648, 1.37272, -0.09624, 0, -0.01538, -0.15298, 1.16835, 0, 0, 0, 0, 1]}
        - !<ExponentWithLinearTransform> {gamma: 2.4, offset: 0.055, direction: inverse}
  - !<ColorSpace>
    name: print
    from_scene_reference: !<GroupTransform>
      children:
        - !<ColorSpaceTransform> {src: ACES, dst: grading}
        - !<FileTransform> {src: film.cube, interpolation: tetrahedral}
  - !<ColorSpace>
    name: both
    from_scene_reference: !<GroupTransform>
      children:
        - !<BuiltinTransform> {style: ACES-OUTPUT - ACES2065-1_to_CIE-XYZ-D65 - SDR-VIDEO_1.0}
        - !<FileTransform> {src: film.cube, interpolation: tetrahedral}
)";

class Ocio : public ProgramTest
{
protected:
    void SetUp() override
    {
        ProgramTest::SetUp();
        write("studio.ocio", configuration);
        fs::create_directory(at("luts"));
        write("luts/film.cube",
              "LUT_3D_SIZE 2\n0 0 0.05\n0.9 0.1 0\n0 1 0.1\n1 0.9 0\n0.1 0 0.8\n0.8 0 1\n0 0.9 1\n1 1 0.9\n");
        // Every channel takes many values, in many combinations.
        ffmpeg({"-f", "lavfi", "-i",
                "nullsrc=s=256x144,format=rgb48,geq=r='65535*mod(X*17+Y*31\\,253)/252':"
                "g='65535*mod(X*7+Y*13\\,241)/240':b='65535*mod(X*3+Y*29\\,251)/250'",
                "-frames:v", "1", "in.png"});
    }

    std::vector<std::uint16_t> codes(const std::string& file) const
    {
        const std::vector<std::uint8_t> bytes = decoded(file, "rgb48le");
        std::vector<std::uint16_t> all(bytes.size() / 2);
        std::memcpy(all.data(), bytes.data(), 2 * all.size());
        return all;
    }

    /// The largest difference of the program's picture from the one of ocioconvert, in codes of 16 bits.
    int largestDifference(const Words& ours, const Words& theirs) const
    {
        Words words{"convert", "in.png", "ours.png", "--force", "--ocio", "studio.ocio"};
        words.insert(words.end(), ours.begin(), ours.end());
        const Outcome converted = qxhost(words);
        EXPECT_EQ(converted.exitCode, 0) << converted.err;
        Words judge{"env", "OCIO=" + at("studio.ocio").string(), "ocioconvert"};
        judge.insert(judge.end(), theirs.begin(), theirs.end());
        const Outcome judged = run(judge);
        EXPECT_EQ(judged.exitCode, 0) << judged.out << judged.err;

        const std::vector<std::uint16_t> mine = codes("ours.png");
        const std::vector<std::uint16_t> reference = codes("theirs.png");
        EXPECT_EQ(mine.size(), 3U * 256 * 144);
        EXPECT_EQ(mine.size(), reference.size());
        int largest = 0;
        for (std::size_t i = 0; i < std::min(mine.size(), reference.size()); ++i) {
            largest = std::max(largest, std::abs(int{mine[i]} - int{reference[i]}));
        }
        return largest;
    }

    void expectRefused(const Words& options, const Words& parts, int exitCode) const
    {
        Words words{"convert", "in.png", "no.png"};
        words.insert(words.end(), options.begin(), options.end());
        const Outcome outcome = qxhost(words);
        EXPECT_EQ(outcome.exitCode, exitCode) << outcome.err;
        for (const std::string& part : parts) {
            EXPECT_NE(outcome.err.find(part), std::string::npos) << part << " is not in " << outcome.err;
        }
        EXPECT_FALSE(fs::exists(at("no.png")));
    }
};

constexpr int tenthOfTenBitCode = 6; // of 16 bits

TEST_F(Ocio, spaces_are_converted_as_ocioconvert_does)
{
    for (const auto& [from, to] : {std::pair("camera log", "sRGB"), std::pair("camera", "grading"),
                                   std::pair("grading", "camera log"), std::pair("sRGB", "grading")}) {
        EXPECT_LE(largestDifference({"--from", from, "--to", to}, {"in.png", from, "theirs.png", to}),
                  tenthOfTenBitCode)
            << from << " to " << to;
    }
}

TEST_F(Ocio, views_of_displays_are_made_as_ocioconvert_makes_them)
{
    EXPECT_LE(largestDifference({"--from", "camera log", "--display", "Monitor"},
                                {"--view", "in.png", "camera log", "theirs.png", "Monitor", "Film"}),
              tenthOfTenBitCode)
        << "the display's first view";
    EXPECT_LE(largestDifference({"--from", "grading", "--display", "Paper", "--view", "Print"},
                                {"--view", "in.png", "grading", "theirs.png", "Paper", "Print"}),
              tenthOfTenBitCode)
        << "with a table";
}

TEST_F(Ocio, a_display_can_be_where_colours_come_from)
{
    EXPECT_LE(largestDifference({"--display", "Monitor", "--view", "Film", "--to", "grading"},
                                {"in.png", "sRGB", "theirs.png", "grading"}),
              tenthOfTenBitCode);
}

TEST_F(Ocio, steps_run_in_their_order_with_effects_and_their_amount)
{
    const auto made = [&](const Words& options) {
        Words words{"convert", "in.png", "out.png", "--force"};
        words.insert(words.end(), options.begin(), options.end());
        const Outcome outcome = qxhost(words);
        EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
        return codes("out.png");
    };
    const Words change{"--ocio", "studio.ocio", "--from", "camera log", "--to", "grading"};
    Words before{"--effect", "cc3.fx", "--set", "gain=0.5"};
    before.insert(before.end(), change.begin(), change.end());
    Words after = change;
    after.insert(after.end(), {"--effect", "cc3.fx", "--set", "gain=0.5"});
    EXPECT_NE(made(before), made(after));

    Words there = change;
    there.insert(there.end(), {"--ocio", "studio.ocio", "--from", "grading", "--to", "camera log"});
    const std::vector<std::uint16_t> original = codes("in.png");
    const std::vector<std::uint16_t> back = made(there);
    std::size_t near = 0;
    for (std::size_t i = 0; i < original.size(); ++i) {
        near += std::abs(int{original[i]} - int{back[i]}) <= 64 ? 1U : 0U;
    }
    EXPECT_GT(near, original.size() / 2) << "there and back, but for what is clipped between";

    Words none = change;
    none.insert(none.end(), {"--amount", "0"});
    EXPECT_EQ(made(none), original);
}

TEST_F(Ocio, a_name_for_many_inputs_is_told_from_a_colour_space)
{
    fs::copy_file(at("in.png"), at("b.png"));
    fs::create_directory(at("out"));
    const Outcome many = qxhost({"convert", "in.png", "b.png", "--ocio", "studio.ocio", "--from",
                                 "camera log", "--to", "grading", "--to", "out/{name}.png"});
    EXPECT_EQ(many.exitCode, 0) << many.err;
    ASSERT_EQ(qxhost({"convert", "in.png", "one.png", "--ocio", "studio.ocio", "--from", "camera log", "--to",
                      "grading"})
                  .exitCode,
              0);
    EXPECT_EQ(codes("out/b.png"), codes("one.png"));
}

TEST_F(Ocio, what_a_configuration_lacks_is_named_with_what_it_has)
{
    const Words config{"--ocio", "studio.ocio"};
    const auto with = [&](Words options) {
        options.insert(options.begin(), config.begin(), config.end());
        return options;
    };
    expectRefused(with({"--from", "gradin", "--to", "sRGB"}),
                  {"studio.ocio: there is no colour space \"gradin\" (did you mean grading?)", "camera log"},
                  6);
    expectRefused(
        with({"--from", "sRGB", "--display", "Monitr"}),
        {"there is no display \"Monitr\" (did you mean Monitor?); there are Monitor, Paper, Cinema"}, 6);
    expectRefused(with({"--from", "sRGB", "--display", "Monitor", "--view", "Flim"}),
                  {"the display \"Monitor\" has no view \"Flim\" (did you mean Film?); it has Film, Flat"},
                  6);
    expectRefused({"--ocio", "none.ocio", "--from", "a", "--to", "b"}, {"none.ocio: there is no such file"},
                  6);
    expectRefused({"--ocio", ".", "--from", "a", "--to", "b"}, {"give the configuration's .ocio file"}, 6);
    write("broken.ocio", "ocio_profile_version: 2\ncolorspaces: [\n");
    expectRefused({"--ocio", "broken.ocio", "--from", "a", "--to", "b"}, {"broken.ocio: "}, 6);
    fs::remove(at("luts/film.cube"));
    expectRefused(with({"--from", "grading", "--display", "Paper"}), {"studio.ocio: ", "film.cube"}, 6);
}

TEST_F(Ocio, formulas_that_mix_channels_are_computed_where_a_table_would_be_off)
{
    constexpr int tenBitCode = 64;
    EXPECT_LE(largestDifference({"--from", "camera log", "--display", "Cinema", "--view", "SDR"},
                                {"--view", "in.png", "camera log", "theirs.png", "Cinema", "SDR"}),
              tenBitCode);
    const std::vector<std::uint16_t> whole = codes("ours.png");
    ASSERT_EQ(qxhost({"convert", "in.png", "none.png", "--ocio", "studio.ocio", "--from", "camera log",
                      "--display", "Cinema", "--amount", "0"})
                  .exitCode,
              0);
    EXPECT_EQ(codes("none.png"), codes("in.png"));
    EXPECT_NE(whole, codes("in.png"));
}

/// Colours on every edge and on every face of the cube of colours and a little inside, with all codes of a
/// ramp of 512 and with colours without a pattern: 512 pixels a row.
std::vector<std::uint16_t> coloursAtTheEdges()
{
    constexpr std::uint32_t ramp = 512;
    constexpr std::uint16_t most = 65535;
    std::vector<std::uint16_t> all;
    std::uint32_t state = 1;
    const auto any = [&] {
        state = state * 1664525U + 1013904223U;
        return static_cast<std::uint16_t>(state >> 16U);
    };
    for (std::size_t along = 0; along < 3; ++along) {
        for (unsigned rest = 0; rest < 4 * 5; ++rest) {
            for (std::uint32_t i = 0; i < ramp; ++i) {
                std::array<std::uint16_t, 3> colour{};
                const std::array<std::uint16_t, 2> ends{static_cast<std::uint16_t>(rest & 1U ? most : 0),
                                                        static_cast<std::uint16_t>(rest & 2U ? most : 0)};
                const auto beside = static_cast<std::uint16_t>(any() % 12);
                const unsigned kind = rest / 4; // an edge, a face, and each with what is beside it
                colour[along] = kind == 4 ? any() : static_cast<std::uint16_t>(i * most / (ramp - 1));
                colour[(along + 1) % 3] = ends[0];
                colour[(along + 2) % 3] = kind == 0 || kind == 2 ? ends[1] : any();
                if (kind >= 2) {
                    std::uint16_t& end = colour[(along + 1) % 3];
                    end = static_cast<std::uint16_t>(end == 0 ? beside : end - beside);
                }
                all.insert(all.end(), colour.begin(), colour.end());
            }
        }
    }
    return all;
}

TEST_F(Ocio, the_inverse_of_a_table_finds_colours_on_its_edges_and_faces_where_they_came_from)
{
    constexpr int edge = 33;
    std::string table = "LUT_3D_SIZE 33\n";
    for (int i = 0; i < edge * edge * edge; ++i) {
        const double r = i % edge / 32.0;
        const double g = i / edge % edge / 32.0;
        const double b = i / edge / edge / 32.0;
        table +=
            fmt::format("{:.6f} {:.6f} {:.6f}\n", std::pow(r, 0.9) * 0.95 + 0.05 * g, g, std::pow(b, 1.2));
    }
    write("luts/film.cube", table);
    write("film.ocio",
          "ocio_profile_version: 2\nsearch_path: luts\nroles: {default: a}\n"
          "displays: {M: [!<View> {name: V, colorspace: a}]}\ncolorspaces:\n"
          "  - !<ColorSpace> {name: a}\n  - !<ColorSpace>\n    name: b\n"
          "    from_scene_reference: !<FileTransform> {src: film.cube, interpolation: tetrahedral}\n");
    const std::vector<std::uint16_t> wanted = coloursAtTheEdges();
    const auto* bytes = reinterpret_cast<const char*>(wanted.data());
    write("wanted.rgb", std::string(bytes, 2 * wanted.size()));
    const std::string size = fmt::format("512x{}", wanted.size() / 3 / 512);
    for (const auto& [depth, format] : {std::pair(16, "rgb48be"), std::pair(8, "rgb24")}) {
        ffmpeg({"-f", "rawvideo", "-pix_fmt", "rgb48le", "-s", size, "-i", "wanted.rgb", "-pix_fmt", format,
                "wanted.png"});
        // The table itself is drawn by the program that made the format.
        const Outcome drawn = run(
            {"env", "OCIO=" + at("film.ocio").string(), "ocioconvert", "wanted.png", "a", "drawn.png", "b"});
        ASSERT_EQ(drawn.exitCode, 0) << drawn.out << drawn.err;
        convert({"drawn.png", "back.png", "--ocio", "film.ocio", "--from", "b", "--to", "a"});
        const std::vector<std::uint16_t> got = codes("back.png");
        const std::vector<std::uint16_t> source = codes("wanted.png");
        ASSERT_EQ(got.size(), source.size());
        int worst = 0;
        std::size_t where = 0;
        for (std::size_t i = 0; i < got.size(); ++i) {
            const int off = std::abs(int{got[i]} - int{source[i]});
            where = off > worst ? i / 3 : where;
            worst = std::max(worst, off);
        }
        // Blue's first cells are half as steep as the identity, so that what rounding moves counts twice.
        EXPECT_LE(worst, depth == 16 ? 3 : 3 * 257)
            << depth << " bits: " << source[3 * where] << ' ' << source[3 * where + 1] << ' '
            << source[3 * where + 2] << " came back as " << got[3 * where] << ' ' << got[3 * where + 1] << ' '
            << got[3 * where + 2];
    }
}

TEST_F(Ocio, formulas_beside_tables_are_refused_where_they_would_be_off_by_a_code)
{
    expectRefused({"--ocio", "studio.ocio", "--from", "camera log", "--display", "Cinema", "--view", "Both"},
                  {"which cannot be drawn to a code of 10 bits", "would be off by"}, 6);
}

TEST_F(Ocio, ends_that_are_missing_or_too_many_are_a_wrong_command_line)
{
    const std::string two = "expected two of --from SPACE, --to SPACE and --display NAME";
    expectRefused({"--ocio", "studio.ocio"}, {two, "'qxhost ocio studio.ocio'"}, 2);
    expectRefused({"--ocio", "studio.ocio", "--from", "a"}, {two}, 2);
    expectRefused({"--ocio", "studio.ocio", "--from", "a", "--to", "b", "--display", "c"}, {two}, 2);
    expectRefused({"--ocio", "studio.ocio", "--from", "a", "--view", "b"}, {"--view b: add the --display"},
                  2);
    expectRefused({"--ocio", "studio.ocio", "--from", "a", "--from", "b", "--to", "c"},
                  {"--from is given twice"}, 2);
    expectRefused({"--from", "a"}, {"--from a stands before any --ocio that it could belong to"}, 2);
    expectRefused({"--effect", "cc3.fx", "--from", "a"},
                  {"--from a belongs to an --ocio, but follows --effect"}, 2);
    expectRefused({"--ocio", "studio.ocio", "--set", "a=1"},
                  {"--set a=1 belongs to an --effect, but follows --ocio"}, 2);
    expectRefused({"--ocio", ""}, {"--ocio is empty"}, 2);
}

TEST_F(Ocio, spaces_displays_and_views_are_listed)
{
    const Outcome listed = qxhost({"ocio", "studio.ocio", "--json"});
    ASSERT_EQ(listed.exitCode, 0) << listed.err;
    const Json json = Json::parse(listed.out);
    EXPECT_EQ(json["description"], "A studio's spaces");
    EXPECT_EQ(json["displays"][0], Json({{"name", "Monitor"}, {"views", {"Film", "Flat"}}}));
    EXPECT_EQ(json["roles"], Json({"default: ACES", "scene_linear: ACES"}));
    const Json& spaces = json["spaces"];
    EXPECT_TRUE(std::any_of(spaces.begin(), spaces.end(), [](const Json& space) {
        return space == Json({{"name", "ACES"}, {"family", "linear"}, {"description", "ACES2065-1"}});
    })) << spaces;
    const Outcome text = qxhost({"ocio", "studio.ocio"});
    EXPECT_NE(text.out.find("  Monitor: Film and Flat\n"), std::string::npos) << text.out;
    const Outcome none = qxhost({"ocio", "none.ocio"});
    EXPECT_EQ(none.exitCode, 3);
    EXPECT_NE(none.err.find("none.ocio: there is no such file"), std::string::npos) << none.err;
    EXPECT_EQ(qxhost({"ocio"}).exitCode, 2);
}

TEST_F(Ocio, pipes_and_devices_are_no_configurations)
{
    for (const std::string file : {"/dev/zero", "fifo"}) {
        ASSERT_EQ(run({"rm", "-f", at("fifo").string()}).exitCode, 0);
        ASSERT_EQ(run({"mkfifo", at("fifo").string()}).exitCode, 0);
        EXPECT_EQ(qxhost({"ocio", file}).exitCode, 3) << file;
    }
}

} // namespace

} // namespace Qx::System
