#include "tools/qxhost/commands/LutCommandLine.h"

namespace Qx::Program {

namespace {

constexpr const char* listFooter =
    R"(Lists the files of the user's LUT directory, then of the machine's, whose ending is that of a kind of
LUT, in small letters: Film.CUBE is not listed, Film.cube is. Names can be given to 'convert --lut'.)";

constexpr const char* installFooter = R"(Examples:
  qxhost lut install film.cube contrast.spi1d
  qxhost convert clip.mov graded.mov --lut film.cube

Copies LUT files into the user's LUT directory. A file counts as installed, and is not copied, when its
path begins with the name of a LUT directory, whatever the letter case; that is also so for a directory
beside it whose name begins alike. Exit codes: 0 done, 3 a file is missing or no LUT (the others are
installed), 4 the copy failed or a file of the name exists.)";

constexpr const char* infoFooter =
    R"(Says what a LUT file holds, the size and domain of its table, how exact a table is that had to be made
from curves or matrices, and whether the catalogue lists the file.)";

constexpr const char* previewFooter = R"(Example:
  qxhost lut preview film.cube film.png

Draws, from the top: a chart of colours before and after the LUT; the LUT's curves for grey (red, green
and blue out, over the grey that goes in); and ramps from black to grey, red, green, blue, cyan, magenta
and yellow, each before and after.)";

} // namespace

CLI::App* addLut(CLI::App& app, LutOptions& options)
{
    CLI::App* lut = app.add_subcommand("lut", "List, install, explain and draw LUT files");
    CLI::App* list = lut->add_subcommand("list", "List the LUTs that can be used by name");
    list->add_flag("--json", options.json, "Print JSON");
    list->footer(listFooter);
    CLI::App* install = lut->add_subcommand("install", "Copy LUT files into the user's LUT directory");
    install->add_option("FILE", options.files, "LUT files")->option_text(" ");
    install->add_flag("--force", options.force, "Replace files that exist there");
    install->add_flag("--json", options.json, "Print JSON");
    install->footer(installFooter);
    CLI::App* info = lut->add_subcommand("info", "Say what a LUT file holds");
    info->add_option("FILE", options.file, "A LUT file, or a name of the list")->option_text(" ");
    info->add_flag("--json", options.json, "Print JSON");
    info->footer(infoFooter);
    CLI::App* preview = lut->add_subcommand("preview", "Draw what a LUT does");
    preview->add_option("FILE", options.file, "A LUT file, or a name of the list")->option_text(" ");
    preview->add_option("OUTPUT", options.output, "The picture to write")->option_text(" ");
    preview->add_flag("--force", options.force, "Replace a picture that exists");
    preview->footer(previewFooter);
    return lut;
}

LutOptions::Action lutActionNamed(const std::string& command)
{
    if (command == "install") {
        return LutOptions::Action::install;
    }
    if (command == "info") {
        return LutOptions::Action::info;
    }
    return command == "preview" ? LutOptions::Action::preview : LutOptions::Action::list;
}

} // namespace Qx::Program
