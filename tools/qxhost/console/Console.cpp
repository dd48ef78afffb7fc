#include "tools/qxhost/console/Console.h"

#include "host/core/Printable.h"
#include "host/files/SystemError.h"
#include "host/files/WriteFile.h"
#include "tools/qxhost/console/Failure.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace Qx::Program {

namespace {

constexpr int standardOutput = 1;
constexpr int standardError = 2;
constexpr std::string_view wipeLine = "\r\033[K";

bool isOpen(int file)
{
    return ::fcntl(file, F_GETFD) >= 0 || errno != EBADF;
}

/// A process may be started with its standard files closed; the first files opened would then take their
/// place.
void fillStandardFiles()
{
    for (int file = 0; file <= standardError; ++file) {
        if (!isOpen(file)) {
            static_cast<void>(::open("/dev/null", file == 0 ? O_RDONLY : O_WRONLY));
        }
    }
}

bool isCapableTerminal()
{
    const char* term = std::getenv("TERM");
    return ::isatty(standardError) == 1 && term != nullptr && std::strcmp(term, "dumb") != 0;
}

} // namespace

Console::Console()
{
    const bool hasOutput = isOpen(standardOutput);
    fillStandardFiles();
    constexpr int beyondStandardFiles = 3;
    if (hasOutput) { // otherwise the first data() fails, as writing to a closed file does
        dataOutput_ = ::fcntl(standardOutput, F_DUPFD_CLOEXEC, beyondStandardFiles);
    }
    ::dup2(standardError, standardOutput);
    interactive_ = isCapableTerminal();
}

Console::~Console()
{
    // Standard output stays redirected: lines that are still in its buffer are written when the process ends.
    if (dataOutput_ >= 0) {
        ::close(dataOutput_);
    }
}

void Console::data(std::string_view text)
{
    const std::lock_guard lock(mutex_);
    if (const int error = Host::writeAll(dataOutput_, text.data(), text.size()); error != 0) {
        throw Failure(ExitCode::output, "standard output: cannot be written: " + Host::systemProblem(error));
    }
}

int Console::binaryOutput() const
{
    if (dataOutput_ < 0) {
        throw Failure(ExitCode::output, "standard output: cannot be written: it is closed");
    }
    if (::isatty(dataOutput_) == 1) {
        throw Failure(ExitCode::output,
                      "standard output: is a terminal, which cannot show a clip; send it to a "
                      "program, as in 'qxhost convert clip.mov - | ffmpeg -i - ...'");
    }
    return dataOutput_;
}

void Console::error(std::string_view text, std::string_view details)
{
    const std::lock_guard lock(mutex_);
    say(text, details);
}

void Console::note(std::string_view text, std::string_view details)
{
    const std::lock_guard lock(mutex_);
    if (!quiet_) {
        say(text, details);
    }
}

void Console::say(std::string_view text, std::string_view details)
{
    std::string line(status_.empty() ? std::string_view() : wipeLine);
    line.append("qxhost: ").append(Host::printable(text)).append("\n").append(details);
    if (!line.ends_with('\n')) {
        line += '\n';
    }
    print(line + status_);
}

void Console::status(std::string_view line)
{
    const std::lock_guard lock(mutex_);
    status_ = line;
    print(std::string(wipeLine) + status_);
}

void Console::endStatus(bool keep)
{
    const std::lock_guard lock(mutex_);
    if (!status_.empty()) {
        print(keep ? std::string_view("\n") : wipeLine);
        status_.clear();
    }
}

void Console::print(std::string_view text)
{
    Host::writeAll(standardError, text.data(), text.size());
}

std::size_t Console::columns() const
{
    winsize size{};
    constexpr std::size_t usual = 80;
    return ::ioctl(standardError, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : usual;
}

} // namespace Qx::Program
