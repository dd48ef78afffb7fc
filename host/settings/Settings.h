#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace Qx::Host {

/// The user's settings: the TOML file `qxhost/settings.toml` in the configuration directory, overridden by
/// the environment. They are read once, on first use. Thread-safe; usable before main.
///
/// A key is the TOML path, its parts joined by '.': `device` in the table `gpu` is "gpu.device". The variable
/// QX_GPU_DEVICE overrides it: "QX_", then the key in upper case, with an underscore for every '.' and '-'
/// and between the words of a camel-case name.
///
/// A file that cannot be read or parsed counts as empty, and a value of the wrong type as not set. Each is
/// reported once, with file and line or with the variable.
class Settings
{
public:
    /// The process's settings. The first call reports a broken file in the log.
    static const Settings& instance();

    /// The same for the log itself, which cannot report anything yet.
    static const Settings& unreported();

    std::optional<std::int64_t> integer(std::string_view key) const;

    /// true or false, or the integers 1 and 0.
    std::optional<bool> flag(std::string_view key) const;

    /// An empty string counts as not set.
    std::optional<std::string> text(std::string_view key) const;

    /// Reports everything in the file and the environment that neither host nor library can use: values of
    /// the wrong type and unknown keys.
    void reportMistakes() const;

    /// The problem of the file, for people; empty if there is none.
    const std::string& fileProblem() const { return fileProblem_; }

    /// Reads that file. A file that does not exist counts as empty.
    explicit Settings(const std::string& path);

    /// Uses these contents in place of the file.
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

    /// The value, or none with a report if it has another type.
    const Value* findInFile(std::string_view key) const;
    void reportWrongType(std::string_view key, const Value& value, const std::string& wanted) const;

    std::string path_;
    std::string fileProblem_;
    std::map<std::string, Value, std::less<>> values_;
};

/// The environment variable that overrides a key.
std::string environmentVariable(std::string_view key);

} // namespace Qx::Host
