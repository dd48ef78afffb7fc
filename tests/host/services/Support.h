#pragma once

#include "Qx/LightweightString.h"
#include "tests/TemporaryDirectory.h"

#include <filesystem>
#include <string>
#include <string_view>

namespace Qx::Host::Test {

using Qx::Test::TemporaryDirectory;

std::string contentsOf(const std::filesystem::path& file);

/// Sets an environment variable within a scope.
class Variable
{
public:
    Variable(const char* name, const std::string& value);
    ~Variable();
    Variable(const Variable&) = delete;
    Variable& operator=(const Variable&) = delete;

private:
    const char* name_;
};

/// Makes the process use a decimal comma within a scope.
class DecimalComma
{
public:
    DecimalComma();
    ~DecimalComma();
    DecimalComma(const DecimalComma&) = delete;
    DecimalComma& operator=(const DecimalComma&) = delete;
};

LightweightString<wchar_t> wide(const std::filesystem::path& path);
std::string narrow(const LightweightString<wchar_t>& text);

/// The path of the process's log.
std::filesystem::path logFile();

} // namespace Qx::Host::Test
