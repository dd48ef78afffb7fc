#include "host/lifecycle/DriverCache.h"

#include "host/cache/FileStore.h"
#include "host/files/ReadFile.h"
#include "host/files/SystemError.h"
#include "host/files/WriteFile.h"
#include "platform/Log.h"

#include <cstdlib>
#include <fcntl.h>
#include <optional>
#include <sstream>
#include <string>
#include <sys/statvfs.h>
#include <system_error>
#include <vector>

namespace Qx::Host {

namespace {

// Mesa's variables (docs.mesa3d.org/envvars.html), then those of NVIDIA's driver (its README, "Specifying
// OpenGL Environment Variable Settings").
constexpr const char* mesaPlace = "MESA_SHADER_CACHE_DIR";
constexpr const char* mesaOff = "MESA_SHADER_CACHE_DISABLE";
constexpr const char* mesaLimit = "MESA_SHADER_CACHE_MAX_SIZE";
constexpr const char* nvidiaPlace = "__GL_SHADER_DISK_CACHE_PATH";
constexpr const char* nvidiaOn = "__GL_SHADER_DISK_CACHE";
constexpr const char* nvidiaLimit = "__GL_SHADER_DISK_CACHE_SIZE";

// NOLINTBEGIN(concurrency-mt-unsafe): there is one thread
void setUnlessSet(const char* variable, const std::string& value)
{
    ::setenv(variable, value.c_str(), 0);
}

void turnOff()
{
    ::setenv(mesaOff, "true", 1);
    ::setenv(nvidiaOn, "0", 1);
}

bool isOff()
{
    const char* off = std::getenv(mesaOff);
    const std::string value = off != nullptr ? off : "";
    return value == "true" || value == "1" || value == "yes";
}

/// The place that the user has chosen for the driver, or ours.
std::filesystem::path chosenPlace(const CachePlace& place)
{
    const char* theirs = std::getenv(mesaPlace);
    return theirs != nullptr && *theirs != '\0' ? theirs : driverCacheDirectory(place);
}

/// The directories in which the Vulkan loader looks for manifests of drivers, or the manifests themselves
/// (Vulkan-Loader, LoaderDriverInterface.md, "Driver Discovery on Linux").
std::vector<std::filesystem::path> placesOfDrivers()
{
    const auto listed = [](const char* variable, const char* fallback) {
        const char* value = std::getenv(variable);
        return std::string(value != nullptr && *value != '\0' ? value : fallback);
    };
    std::vector<std::filesystem::path> places;
    const auto add = [&](const std::string& list, const char* below) {
        std::istringstream entries(list);
        for (std::string entry; std::getline(entries, entry, ':');) {
            if (!entry.empty()) {
                places.emplace_back(entry + below);
            }
        }
    };
    const std::string chosen = listed("VK_DRIVER_FILES", listed("VK_ICD_FILENAMES", "").c_str());
    if (!chosen.empty()) {
        add(chosen, "");
        return places;
    }
    constexpr const char* manifests = "/vulkan/icd.d";
    const std::string home = listed("HOME", "");
    add(listed("VK_ADD_DRIVER_FILES", ""), "");
    add(listed("XDG_CONFIG_HOME", (home + "/.config").c_str()), manifests);
    add(listed("XDG_CONFIG_DIRS", "/etc/xdg"), manifests);
    add("/usr/local/etc:/etc", manifests);
    add(listed("XDG_DATA_HOME", (home + "/.local/share").c_str()), manifests);
    add(listed("XDG_DATA_DIRS", "/usr/local/share:/usr/share"), manifests);
    return places;
}
// NOLINTEND(concurrency-mt-unsafe)

/// Whether the loader may load a driver other than NVIDIA's, which all of Mesa's are. It may if no driver is
/// found at all: there may be ways to it that are not known here.
bool mayLoadMesa()
{
    constexpr std::size_t mostBytes = 1 << 16; // a manifest has some hundred
    bool isFound = false;
    bool isOther = false;
    const auto look = [&](const std::filesystem::path& manifest) {
        const std::optional<std::string> text = readFile(manifest, mostBytes);
        isFound = isFound || text;
        isOther = isOther || (text && text->find("nvidia") == std::string::npos);
    };
    for (const std::filesystem::path& place : placesOfDrivers()) {
        std::error_code error;
        look(place);
        for (std::filesystem::directory_iterator entry(place, error), end; !error && entry != end;
             entry.increment(error)) {
            if (entry->path().extension() == ".json") {
                look(entry->path());
            }
        }
    }
    return isOther || !isFound;
}

/// Gives Mesa's index, which it maps, its blocks: an index of an earlier run may have holes. A new one gets
/// more blocks than any version has needed; Mesa cuts it to its size. 0, or an error number.
int reserveIndex(const std::filesystem::path& directory)
{
    constexpr off_t most = 2 << 20;
    const std::filesystem::path place = directory / "mesa_shader_cache";
    if (const int error = makePrivateDirectories(place); error != 0) {
        return error;
    }
    const Descriptor index(uninterrupted(
        [&] { return ::open((place / "index").c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600); }));
    struct stat status = {};
    if (!index || ::fstat(index.number(), &status) != 0) {
        return errno;
    }
    int error = 0;
    do {
        error = ::posix_fallocate(index.number(), 0, status.st_size > 0 ? status.st_size : most);
    } while (error == EINTR);
    return error;
}

/// Empty, or why the driver must not have a cache there.
std::string problemOf(const std::filesystem::path& directory, std::uint64_t leastRoom)
{
    if (const int error = makePrivateDirectories(directory); error != 0) {
        return systemProblem(error);
    }
    struct statvfs room = {};
    if (uninterrupted([&] { return ::statvfs(directory.c_str(), &room); }) != 0) {
        return systemProblem(errno);
    }
    if (static_cast<std::uint64_t>(room.f_bavail) * room.f_frsize < leastRoom) {
        return "less than " + std::to_string(leastRoom >> 20U) + " MiB are free there";
    }
    const int error = mayLoadMesa() ? reserveIndex(directory) : 0;
    return error == 0 ? std::string() : systemProblem(error);
}

} // namespace

std::filesystem::path driverCacheDirectory(const CachePlace& place)
{
    return place.directory.empty() ? place.directory : place.directory / "driver";
}

void placeDriverCache(const CachePlace& place, std::uint64_t leastRoom)
{
    if (!place.enabled) {
        turnOff();
        return;
    }
    if (isOff()) {
        return;
    }
    const std::filesystem::path directory = chosenPlace(place);
    std::string problem;
    if (directory == driverCacheDirectory(place)) { // what others may write must not reach the driver
        problem = Cache::FileStore(place.directory, place.mostBytes, {}).problem();
    }
    if (problem.empty()) {
        problem = problemOf(directory, leastRoom);
    }
    if (!problem.empty()) {
        turnOff();
        Log("The driver has no cache in %s, and compiles again in each run: %s\n", directory.c_str(),
            problem.c_str());
        return;
    }
    setUnlessSet(mesaPlace, directory.string());
    setUnlessSet(nvidiaPlace, directory.string());
    setUnlessSet(mesaLimit, std::to_string(place.mostBytes >> 20U) + "M");
    setUnlessSet(nvidiaLimit, std::to_string(place.mostBytes));
}

} // namespace Qx::Host
