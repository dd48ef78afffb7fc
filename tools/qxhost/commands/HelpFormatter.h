#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace Qx::Program {

/// Lays out the help of a command: a usage line that names what it needs, then its options in groups. A long
/// command shows its usual options in "--help" and every option in "--help-all".
class HelpFormatter : public CLI::Formatter
{
public:
    HelpFormatter();

    /// `usual`: names of the arguments and options that "--help" shows, in groups without empty lines between
    /// them; `shortFooter`: what stands there in place of the command's footer. The command must have
    /// "--help-all".
    HelpFormatter(std::vector<std::string> usual, std::string shortFooter);

    std::string make_usage(const CLI::App* app, std::string name) const override;
    std::string make_group(std::string group, bool isPositional,
                           std::vector<const CLI::Option*> options) const override;
    std::string make_help(const CLI::App* app, std::string name, CLI::AppFormatMode mode) const override;

private:
    std::vector<std::string> usual_; ///< empty: all
    std::string shortFooter_;
    mutable bool isShort_ = false; ///< while make_help() runs, which does not tell make_group()
};

} // namespace Qx::Program
