#pragma once

#include "tools/qxhost/diagnose/Report.h"

#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace Qx::Diagnosis {

// What the measuring process sends to the one that watches: a line of JSON each, in this order: Begun, then
// for each step StepBegun and what it finds, then Finished.

struct Begun
{
    Device device;
    Machine machine;
    int steps = 0;
};

/// There is no device; nothing follows.
struct NoDevice
{
    std::string reason;
    Machine machine;
};

struct StepBegun
{
    std::string name;
    std::string title;
};

/// Something that a person should know; not a part of the report.
struct Remark
{
    std::string text;
};

struct Finished
{
};

using Message = std::variant<Begun, NoDevice, StepBegun, SuiteLine, Figure, Remark, Finished>;

/// The message as one line, its end included.
std::string lineOf(const Message& message);

/// Reads a line without its end; empty when it is no message.
std::optional<Message> messageFrom(std::string_view line);

} // namespace Qx::Diagnosis
