#pragma once

#include "tools/qxhost/console/Json.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Qx::Program::Studio {

/// A window's message: a JSON object whose fields are read with their types and limits. Reading throws
/// Failure (usage), which names the field and what was expected.
class Message
{
public:
    /// Reads the text. Throws Failure (usage) if it is no JSON object, or nested deeply.
    static Message parse(std::string_view text);

    std::optional<std::int64_t> id() const;

    /// Whether the field is there and not null.
    bool has(const char* name) const;

    bool isText(const char* name) const;

    std::int64_t integer(const char* name, std::int64_t least, std::int64_t most) const;
    double number(const char* name, double least, double most) const;
    bool flag(const char* name) const;
    std::string text(const char* name, std::size_t longest = 4096) const;

    /// At least one finite number.
    std::vector<float> numbers(const char* name, std::size_t most) const;
    std::vector<std::int64_t> integers(const char* name, std::size_t count) const;
    std::vector<std::string> texts(const char* name, std::size_t most) const;

    /// For each member of the object `name` this message with the member's name as `key` and its value as
    /// `value`; this message alone if there is no such object.
    std::vector<Message> parts(const char* name, const char* key, const char* value) const;

private:
    explicit Message(Json fields) : fields_(std::move(fields)) {}
    const Json& field(const char* name) const;

    Json fields_;
};

} // namespace Qx::Program::Studio
