#pragma once

#include <cstddef>
#include <mutex>
#include <string>
#include <string_view>

namespace Qx::Program {

/// The program's two outputs, kept apart: data and help go to standard output, everything a person should
/// know meanwhile to standard error. Any thread.
///
/// Constructing it takes standard output away from the rest of the process, for good, so that a line that
/// some library prints there lands on standard error and never in the data.
class Console
{
public:
    Console();
    ~Console();
    Console(const Console&) = delete;
    Console& operator=(const Console&) = delete;

    /// Writes data, all of it; throws Failure (output) when standard output does not take it.
    void data(std::string_view text);

    /// One line "qxhost: TEXT" on standard error: what went wrong. Control characters in it are written out.
    /// The details, lines of a compiler for one, follow as they are.
    void error(std::string_view text, std::string_view details = {});

    /// The same for what is worth knowing; dropped when quiet.
    void note(std::string_view text);

    /// Shows a line that the next status or message replaces. Only for terminals.
    void status(std::string_view line);

    /// Leaves the shown status line standing, or wipes it.
    void endStatus(bool keep);

    void setQuiet(bool quiet) { quiet_ = quiet; }
    bool quiet() const { return quiet_; }

    /// Whether standard error is a terminal on which a line can be redrawn.
    bool interactive() const { return interactive_; }

    /// Columns of that terminal.
    std::size_t columns() const;

private:
    void say(std::string_view text, std::string_view details);
    void print(std::string_view text);

    std::mutex mutex_;
    int dataOutput_ = -1;
    bool interactive_ = false;
    bool quiet_ = false;
    std::string status_;
};

} // namespace Qx::Program
