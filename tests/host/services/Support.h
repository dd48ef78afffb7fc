#pragma once

#include "Qx/LightweightString.h"
#include "tests/TemporaryDirectory.h"

#include <filesystem>
#include <string>
#include <string_view>

namespace Qx::Host::Test {

using Qx::Test::TemporaryDirectory;

std::string contentsOf(const std::filesystem::path& file);

/// Sets an environment variable for the length of a scope.
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

/// The whole process reads and writes numbers with a decimal comma for the length of a scope.
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

/// Where the process's log lies.
std::filesystem::path logFile();

} // namespace Qx::Host::Test
