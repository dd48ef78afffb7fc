#pragma once

#include <cstddef>
#include <mutex>
#include <string>
#include <string_view>

namespace Qx::Program {

/// The program's two outputs: data and help go to standard output, messages for the user to standard error.
/// Thread-safe.
///
/// The constructor takes standard output away from the rest of the process permanently: a line that a library
/// prints there goes to standard error instead of into the data.
class Console
{
public:
    Console();
    ~Console();
    Console(const Console&) = delete;
    Console& operator=(const Console&) = delete;

    /// Writes all of the data. Throws Failure (output) if standard output cannot be written.
    void data(std::string_view text);

    /// Standard output's descriptor, for data that is not text. Throws Failure (output) if it is closed, or a
    /// terminal.
    int binaryOutput() const;

    /// Writes the line "qxhost: TEXT" to standard error, with control characters escaped. The details, such
    /// as a compiler's messages, follow unchanged.
    void error(std::string_view text, std::string_view details = {});

    /// The same for remarks; dropped when quiet.
    void note(std::string_view text, std::string_view details = {});

    /// Shows a line that the next status or message replaces. For terminals only.
    void status(std::string_view line);

    /// Keeps the status line that is shown, or wipes it.
    void endStatus(bool keep);

    void setQuiet(bool quiet) { quiet_ = quiet; }
    bool quiet() const { return quiet_; }

    /// Returns true if standard error is a terminal on which a line can be redrawn.
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
