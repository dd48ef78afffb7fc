#include "host/log/HostLog.h"

#include "host/core/Immortal.h"
#include "host/core/Printable.h"
#include "host/settings/Directories.h"
#include "host/settings/Settings.h"

#include <spdlog/logger.h>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/rotating_file_sink.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <locale.h>
#include <system_error>
#include <utility>

namespace Qx::Host {

namespace {

constexpr std::size_t largestLogFile = 4 << 20;
constexpr std::size_t olderFiles = 2;

void writeToStandardError(std::string_view text)
{
    std::fwrite(text.data(), 1, text.size(), stderr);
}

std::shared_ptr<spdlog::logger> makeFileLogger(const std::filesystem::path& path)
{
    auto sink =
        std::make_shared<spdlog::sinks::rotating_file_sink_mt>(path.string(), largestLogFile, olderFiles);
    auto logger = std::make_shared<spdlog::logger>("qxhost", std::move(sink));
    logger->set_pattern("%Y-%m-%d %H:%M:%S.%e [%P] %v");
    logger->flush_on(spdlog::level::info); // the file has everything that was logged before a crash
    logger->set_error_handler([](const std::string&) {}); // a full disk is no reason to disturb the user
    return logger;
}

std::string cannotWrite(const std::filesystem::path& file, const std::string& why)
{
    return "the log " + file.string() + " cannot be written: " + why + "; mend this, or set QX_LOG_FILE=0";
}

/// The file that a link leads to, since renaming full logs must not rename the link. Empty, with the reason,
/// if it is not a regular file: opening a pipe would block for ever.
std::filesystem::path regularFile(const std::filesystem::path& path, std::string& problem)
{
    std::error_code error;
    const bool isLink = std::filesystem::is_symlink(path, error);
    std::filesystem::path file = isLink ? std::filesystem::canonical(path, error) : path;
    if (isLink && error) {
        problem = cannotWrite(path, "it is a link that leads nowhere");
        return {};
    }
    const std::filesystem::file_status status = std::filesystem::status(file, error);
    if (std::filesystem::exists(status) && !std::filesystem::is_regular_file(status)) {
        problem = cannotWrite(path, "it is not a regular file");
        return {};
    }
    return file;
}

/// Opens the log file of the state directory. Null, with the reason, on failure.
std::shared_ptr<spdlog::logger> openFile(std::string& problem)
{
    const std::filesystem::path directory = userStateDirectory();
    if (directory.empty()) {
        return {};
    }
    const std::filesystem::path path = directory / "qxhost.log";
    std::error_code error;
    std::filesystem::create_directories(directory, error);
    if (error) {
        problem = cannotWrite(path, error.message());
        return {};
    }
    const std::filesystem::path file = regularFile(path, problem);
    if (file.empty()) {
        return {};
    }
    try {
        return makeFileLogger(file);
    } catch (const std::exception&) {
        const int reason = errno;
        problem = cannotWrite(path, std::generic_category().message(reason != 0 ? reason : EIO));
    }
    return {};
}

} // namespace

HostLog& HostLog::instance()
{
    return immortal<HostLog>();
}

HostLog::HostLog() = default;

// The lock is not held while the settings are read, since that may log.
void HostLog::open(std::unique_lock<std::mutex>& lock)
{
    state_ = State::Opening;
    const bool receives = static_cast<bool>(receiver_);
    lock.unlock();
    const Settings& settings = Settings::unreported();
    const bool alsoStandardError = settings.flag("log.stderr").value_or(false);
    std::string problem;
    const bool wanted = !receives && settings.flag("log.file").value_or(true);
    std::shared_ptr<spdlog::logger> file = wanted ? openFile(problem) : nullptr;
    lock.lock();
    alsoStandardError_ = alsoStandardError;
    file_ = std::move(file);
    if (!problem.empty()) {
        tell(problem);
    }
    state_ = State::Open;
}

void HostLog::writeToFile(std::string_view text)
{
    if (receiver_) {
        receiver_(text);
        return;
    }
    unfinishedLine_ += text;
    if (state_ == State::Opening) {
        return;
    }
    if (!file_) {
        unfinishedLine_.clear();
        return;
    }
    std::size_t begin = 0;
    for (std::size_t end; (end = unfinishedLine_.find('\n', begin)) != std::string::npos; begin = end + 1) {
        file_->log(spdlog::level::info, spdlog::string_view_t(unfinishedLine_.data() + begin, end - begin));
    }
    unfinishedLine_.erase(0, begin);
}

void HostLog::writeTo(unsigned targets, std::string_view text)
{
    std::unique_lock lock(mutex_);
    if (state_ == State::Closed) {
        open(lock);
    }
    if ((targets & ToFile) != 0) {
        writeToFile(text);
    }
    if ((targets & ToStandardError) != 0 || ((targets & ToFile) != 0 && alsoStandardError_)) {
        writeToStandardError(text);
    }
}

void HostLog::write(std::string_view text)
{
    writeTo(ToFile, text);
}

void HostLog::writeDebug(std::string_view text)
{
    const std::lock_guard lock(mutex_);
    if (debugOutput_) {
        writeToStandardError(text);
    }
}

void HostLog::writeBoth(std::string_view text)
{
    bool shown = false;
    {
        const std::lock_guard lock(mutex_);
        shown = debugOutput_;
    }
    writeTo(shown ? ToFile | ToStandardError : +ToFile, text);
}

void HostLog::writeUrgent(std::string_view text)
{
    bool shown = false;
    {
        const std::lock_guard lock(mutex_);
        shown = debugOutput_;
        if (!shown) {
            complaints_.emplace_back(text.substr(0, text.find_last_not_of('\n') + 1));
        }
    }
    writeTo(shown ? ToFile | ToStandardError : +ToFile, text);
}

/// With the lock held.
void HostLog::tell(std::string_view complaint)
{
    if (debugOutput_) {
        writeToStandardError("qxhost: " + printable(complaint) + "\n");
    } else {
        complaints_.emplace_back(complaint);
    }
}

void HostLog::complain(std::string_view text)
{
    writeTo(ToFile, printable(text) + "\n");
    const std::lock_guard lock(mutex_);
    tell(text);
}

std::vector<std::string> HostLog::takeComplaints()
{
    const std::lock_guard lock(mutex_);
    return std::exchange(complaints_, {});
}

void HostLog::setDebugOutput(bool shown)
{
    const std::lock_guard lock(mutex_);
    debugOutput_ = shown;
}

void HostLog::setReceiver(std::function<void(std::string_view)> receiver)
{
    const std::lock_guard lock(mutex_);
    receiver_ = std::move(receiver);
    if (!receiver_ && file_ == nullptr && state_ == State::Open) {
        state_ = State::Closed; // the file was not opened while nobody needed it
    }
}

void HostLog::flush()
{
    const std::lock_guard lock(mutex_);
    if (!unfinishedLine_.empty()) {
        writeToFile("\n");
    }
}

std::string formatted(const char* format, std::va_list arguments)
{
    static const locale_t plain = newlocale(LC_NUMERIC_MASK, "C", nullptr);
    const locale_t previous = plain != nullptr ? uselocale(plain) : nullptr;
    std::va_list again;
    va_copy(again, arguments);
    std::string text;
    const int length = std::vsnprintf(nullptr, 0, format, arguments);
    if (length >= 0) {
        text.resize(static_cast<std::size_t>(length));
        std::vsnprintf(text.data(), text.size() + 1, format, again);
    } else {
        text = format; // for example because of an unprintable wide character
    }
    va_end(again);
    if (previous != nullptr) {
        uselocale(previous);
    }
    return text;
}

} // namespace Qx::Host
