#pragma once

#include "hosttests/HostTests.h"

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Qx::HostTests {

/// What a test works with.
struct Kit
{
    const HostUnderTest& host;
    Services& services;
    std::filesystem::path directory;
};

/// A promise of platform/, and its test.
struct Promise
{
    const char* service;
    const char* name;
    void (*check)(const Kit& kit);
    const char* statement;          ///< where it is made and what it says; shown with failures
    std::optional<Feature> feature; ///< the feature that it belongs to; none: every host keeps it
};

using Promises = std::vector<Promise>;

// In the order in which they are tested.
Promises memoryPromises();
Promises lockPromises();
Promises textPromises();
Promises filePromises();
Promises systemPromises();
Promises notificationPromises();
Promises imagePromises();
Promises effectPromises();
Promises surfacePromises();
Promises converterPromises();
Promises tablePromises();
Promises fontPromises();
Promises taskPromises();
Promises shutdownPromises();

/// Runs an action on a thread of its own. Returns false if it has not ended within `times` of the host's
/// patience; the thread then goes on, so `action` must own what it uses.
bool endsInTime(const Kit& kit, std::function<void()> action, int times = 1);

/// Whether an action of this process has not ended in time.
bool somethingHangs();

/// A fresh directory for one test, with the name that it is given, and what it holds.
std::filesystem::path makeDirectory(const Kit& kit, std::string_view name);
void writeFile(const std::filesystem::path& path, std::string_view contents);
std::string readFile(const std::filesystem::path& path);

/// A path as the host takes it.
LightweightString<wchar_t> asText(const Kit& kit, const std::filesystem::path& path);

/// Texts of ASCII, independent of the host.
LightweightString<wchar_t> wide(std::string_view ascii);
std::string narrow(const LightweightString<wchar_t>& text); ///< '?' for what is not ASCII

} // namespace Qx::HostTests
