#include "tools/qxhost/diagnose/LifeSign.h"
#include "host/files/SystemError.h"

#include "tools/qxhost/console/Failure.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fmt/format.h>
#include <sys/mman.h>
#include <unistd.h>

namespace Qx::Diagnosis {

namespace {

[[noreturn]] void fail(const char* what)
{
    throw Program::Failure(Program::ExitCode::failed,
                           fmt::format("cannot share memory with the measuring process ({}): {}", what,
                                       Host::systemProblem(errno)));
}

} // namespace

LifeSign::LifeSign() : file_(::memfd_create("qxhost-diagnose", MFD_CLOEXEC))
{
    if (file_ < 0 || ::ftruncate(file_, sizeof(Page)) != 0) {
        fail("none to be had");
    }
    map();
}

LifeSign::LifeSign(int file) : file_(file)
{
    map();
}

LifeSign::~LifeSign()
{
    ::munmap(page_, sizeof(Page));
    ::close(file_);
}

void LifeSign::map()
{
    void* memory = ::mmap(nullptr, sizeof(Page), PROT_READ | PROT_WRITE, MAP_SHARED, file_, 0);
    if (memory == MAP_FAILED) { // NOLINT: the system's own macro
        fail("it cannot be mapped");
    }
    page_ = static_cast<Page*>(memory); // zeroes: an empty record
}

void LifeSign::doing(std::string_view what, std::uint32_t patience)
{
    const std::uint32_t other = 1 - page_->current.load(std::memory_order_relaxed);
    auto& text = page_->texts.at(other);
    const std::size_t length = std::min(what.size(), text.size() - 1);
    std::copy_n(what.begin(), length, text.begin());
    text.at(length) = '\0';
    page_->count.store(0, std::memory_order_relaxed);
    page_->patience.store(patience, std::memory_order_relaxed);
    page_->current.store(other, std::memory_order_release);
    beat();
}

std::uint64_t LifeSign::pulse() const
{
    return page_->beats.load(std::memory_order_relaxed) + page_->count.load(std::memory_order_relaxed);
}

std::uint32_t LifeSign::patience() const
{
    constexpr std::uint32_t most = 100;
    return std::clamp(page_->patience.load(std::memory_order_relaxed), 1U, most);
}

std::string LifeSign::last() const
{
    // Another process wrote it: nothing is taken for granted.
    const auto& text = page_->texts.at(page_->current.load(std::memory_order_acquire) % 2);
    std::string what(text.begin(), std::find(text.begin(), text.end(), '\0'));
    const std::uint64_t count = page_->count.load(std::memory_order_relaxed);
    return count > 1 ? fmt::format("{} (for the {} time)", what, ordinal(count)) : what;
}

std::string ordinal(std::uint64_t number)
{
    const std::uint64_t tens = number % 100;
    const char* ending = "th";
    if (tens < 11 || tens > 13) {
        const std::uint64_t ones = number % 10;
        ending = ones == 1 ? "st" : ones == 2 ? "nd" : ones == 3 ? "rd" : "th";
    }
    return std::to_string(number) + ending;
}

} // namespace Qx::Diagnosis
