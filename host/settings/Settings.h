#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace Qx::Host {

/// The user's settings: the TOML file `qxhost/settings.toml` in the configuration directory, and above it the
/// environment. They are read once, on first use; any thread, also before main.
///
/// A key is the TOML path, its parts joined by '.': `device` in the table `gpu` is "gpu.device". The variable
/// QX_GPU_DEVICE overrides it: "QX_", then the key in upper case with an underscore for every '.', '-' and
/// between the words of a name in camel case.
///
/// A file that cannot be read or parsed counts as empty. A value of another type than asked for counts as not
/// set. Each is reported once, with file and line or with the variable.
class Settings
{
public:
    /// The process's settings. The first call reports a broken file in the log.
    static const Settings& instance();

    /// The same for the log itself, which cannot report anything yet.
    static const Settings& unreported();

    std::optional<std::int64_t> integer(std::string_view key) const;

    /// true, false, and as integers 1 and 0.
    std::optional<bool> flag(std::string_view key) const;

    /// An empty text counts as not set.
    std::optional<std::string> text(std::string_view key) const;

    /// Reports everything in the file and the environment that no part of the host or the library can use:
    /// values of another type, and keys that nobody knows.
    void reportMistakes() const;

    /// What is wrong with the file, for people; empty when nothing is.
    const std::string& fileProblem() const { return fileProblem_; }

    /// Reads that file; one that does not exist is empty.
    explicit Settings(const std::string& path);

    /// Takes the contents of that file as given.
    Settings(const std::string& path, std::string_view contents);
    Settings();

private:
    struct Value
    {
        std::variant<std::monostate, std::int64_t, bool, std::string> value; ///< monostate: another type
        std::uint32_t line = 0;
    };

    void read();
    void parse(std::string_view contents);

    /// The value of the wanted alternative, or a report that it is something else.
    const Value* findInFile(std::string_view key) const;
    void reportWrongType(std::string_view key, const Value& value, const char* wanted) const;

    std::string path_;
    std::string fileProblem_;
    std::map<std::string, Value, std::less<>> values_;
};

/// The environment variable that overrides a key.
std::string environmentVariable(std::string_view key);

} // namespace Qx::Host
