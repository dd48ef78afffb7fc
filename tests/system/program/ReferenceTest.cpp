#include "tests/system/program/Program.h"

#include <algorithm>
#include <map>
#include <regex>
#include <sstream>

// The manual page and the completions of shells, which the program makes of its own tables.

namespace Qx::System {

namespace {

class Reference : public ProgramTest
{
protected:
    std::string reference(const std::string& form) const
    {
        const Outcome outcome = qxhost({"reference", "--form", form});
        EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
        return outcome.out;
    }

    /// Each command is asked once.
    const std::string& help(const std::string& command) const
    {
        if (const auto known = helps_.find(command); known != helps_.end()) {
            return known->second;
        }
        std::vector<std::string> arguments;
        std::istringstream words(command);
        for (std::string word; words >> word;) {
            arguments.push_back(word);
        }
        arguments.emplace_back(command == "convert" ? "--help-all" : "--help");
        return helps_[command] = qxhost(arguments).out;
    }

    /// Every command that the help lists, groups included, each before the commands inside it.
    std::vector<std::string> commands(const std::string& group = "") const
    {
        std::vector<std::string> all;
        std::istringstream lines(help(group));
        bool inList = false;
        for (std::string line; std::getline(lines, line);) {
            inList = (inList && !line.empty()) || line == "Commands:";
            std::smatch found;
            if (inList && std::regex_search(line, found, std::regex(R"(^  (\w+) )"))) {
                const std::string name = (group.empty() ? "" : group + " ") + found[1].str();
                all.push_back(name);
                const std::vector<std::string> inside = commands(name);
                all.insert(all.end(), inside.begin(), inside.end());
            }
        }
        return all;
    }

    /// The long options in a command's help, without their dashes.
    std::vector<std::string> options(const std::string& command) const
    {
        std::vector<std::string> names;
        std::istringstream lines(help(command));
        for (std::string line; std::getline(lines, line);) {
            std::smatch found;
            if (std::regex_search(line, found, std::regex(R"(^  (?:-\w,)?--([\w-]+))"))) {
                names.push_back(found[1]);
            }
        }
        return names;
    }

    /// What bash offers for the last of these words.
    std::string offered(const std::string& words, const std::string& last) const
    {
        if (!fs::exists(at("completion"))) {
            write("completion", reference("bash"));
        }
        const Outcome outcome =
            run({"bash", "-c",
                 ". ./completion; COMP_WORDS=(qxhost " + words + " '" + last +
                     "'); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _qxhost; echo \"${COMPREPLY[*]}\""});
        EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
        return outcome.out;
    }

private:
    mutable std::map<std::string, std::string> helps_;
};

TEST_F(Reference, manual_page_has_every_command_and_option_of_the_help)
{
    const std::string page = reference("man");
    const std::vector<std::string> all = commands();
    ASSERT_GT(all.size(), 15U);
    for (const std::string& command : all) {
        const std::size_t begin =
            page.find("\n.SS qxhost " + command + (options(command).empty() ? "" : " "));
        if (!commands(command).empty()) {
            continue; // a group is in the names of its commands
        }
        ASSERT_NE(begin, std::string::npos) << command;
        const std::string section = page.substr(begin, page.find("\n.SS ", begin + 1) - begin);
        for (const std::string& option : options(command)) {
            const std::string name = std::regex_replace("--" + option, std::regex("-"), "\\-");
            EXPECT_NE(section.find(name + "\\fR"), std::string::npos) << command << " " << option;
        }
    }
    EXPECT_EQ(page.find("qxhost reference"), std::string::npos) << "hidden commands stay hidden";
}

TEST_F(Reference, long_help_for_converting_has_every_option_of_the_parser)
{
    // The page is made of the parser's options, not of the help.
    const std::string page = reference("man");
    const std::size_t begin = page.find("\n.SS qxhost convert ");
    ASSERT_NE(begin, std::string::npos);
    const std::string section = page.substr(begin, page.find("\n.SS ", begin + 1) - begin);
    const std::vector<std::string> inHelp = options("convert");
    static const std::regex name(R"(\\-\\-((?:\w|\\-)+)\\fR)");
    std::size_t count = 0;
    for (std::sregex_iterator each(section.begin(), section.end(), name), end; each != end; ++each, ++count) {
        const std::string option = std::regex_replace((*each)[1].str(), std::regex(R"(\\-)"), "-");
        EXPECT_NE(std::find(inHelp.begin(), inHelp.end(), option), inHelp.end()) << option;
    }
    EXPECT_GT(count, 50U);
}

TEST_F(Reference, manual_page_is_roff_without_complaints)
{
    write("qxhost.1", reference("man"));
    // Every line that begins with a period is one of the requests of man(7) that the page uses.
    std::istringstream lines(read(at("qxhost.1")));
    static const std::regex request(R"(^\.(TH|SH|SS|PP|TP|B|BR|br|nf|fi)\b)");
    static const std::regex escape(R"(\\(?![e&\-]|\(dq|\(aq|f[BIR]))");
    for (std::string line; std::getline(lines, line);) {
        EXPECT_TRUE(!line.starts_with('.') || std::regex_search(line, request)) << line;
        EXPECT_FALSE(line.starts_with('\'')) << line;
        EXPECT_FALSE(std::regex_search(line, escape)) << line;
    }
}

TEST_F(Reference, manual_page_tells_exit_codes_environment_and_files)
{
    const std::string page = reference("man");
    const auto section = [&](const std::string& heading) {
        const std::size_t begin = page.find("\n.SH " + heading + "\n");
        EXPECT_NE(begin, std::string::npos) << heading;
        return page.substr(begin, page.find("\n.SH ", begin + 1) - begin);
    };
    // The codes are those of the documentation.
    const std::string documented = read(fs::path(QX_SOURCE_FOLDER) / "docs/qxhost.md");
    const std::string table = documented.substr(documented.find("## Exit codes"));
    static const std::regex row(R"(\n\| (\d+) \|)");
    std::string inTable;
    for (std::sregex_iterator found(table.begin(), table.end(), row), end; found != end; ++found) {
        inTable += (*found)[1].str() + " ";
    }
    const std::string codes = section("EXIT STATUS");
    static const std::regex entry(R"(\n\.TP\n\\fB(\d+)\\fR)");
    std::string inPage;
    for (std::sregex_iterator found(codes.begin(), codes.end(), entry), end; found != end; ++found) {
        inPage += (*found)[1].str() + " ";
    }
    EXPECT_EQ(inPage, inTable);
    EXPECT_EQ(inPage, "0 1 2 3 4 5 6 130 ");
    EXPECT_NE(section("ENVIRONMENT").find("QX_DEVICE"), std::string::npos);
    EXPECT_NE(section("FILES").find("~/.cache/qxhost"), std::string::npos);
    EXPECT_NE(section("SEE ALSO").find("ffmpeg"), std::string::npos);
}

TEST_F(Reference, bash_offers_commands_options_and_values)
{
    EXPECT_EQ(offered("", "conv"), "convert\n");
    EXPECT_EQ(offered("effects", "wa"), "watch\n");
    EXPECT_EQ(offered("convert", "--output-ra"), "--output-range\n");
    EXPECT_EQ(offered("convert --range", ""), "video full\n");
    EXPECT_EQ(offered("convert --range =", "v"), "video\n");
    EXPECT_EQ(offered("convert in.mov --matrix bt709 --depth", "1"), "16\n");
    EXPECT_EQ(offered("convert --start", ""), "\n");
    EXPECT_EQ(offered("", "refer"), "\n") << "hidden commands stay hidden";
}

TEST_F(Reference, every_shell_has_every_option_with_its_values)
{
    const std::string bash = reference("bash");
    const std::string zsh = reference("zsh");
    const std::string fish = reference("fish");
    for (const std::string& command : commands()) {
        const std::string function = std::regex_replace("_qxhost_" + command, std::regex(" "), "_");
        const std::size_t begin = zsh.find("\n" + function + "()\n");
        ASSERT_NE(begin, std::string::npos) << command;
        const std::string inZsh = zsh.substr(begin, zsh.find("\n}\n", begin) - begin);
        for (const std::string& option : options(command)) {
            EXPECT_NE(bash.find("--" + option), std::string::npos) << command << " " << option;
            EXPECT_TRUE(std::regex_search(inZsh, std::regex("'\\*--" + option + "(=)?\\[")))
                << command << " " << option;
            EXPECT_NE(fish.find(" -l " + option + " "), std::string::npos) << command << " " << option;
        }
    }
    EXPECT_NE(
        zsh.find("'*--range=[Range of the input'\\''s codes; overrides its tags]:video|full:(video full)'"),
        std::string::npos)
        << zsh;
    EXPECT_NE(
        fish.find(" -l range -x -a 'video full' -d 'Range of the input\\'s codes; overrides its tags'\n"),
        std::string::npos)
        << fish;
    EXPECT_NE(fish.find(" -l lut -r -F "), std::string::npos) << fish;
}

} // namespace

} // namespace Qx::System
