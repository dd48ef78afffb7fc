#include "tests/host/services/Support.h"

#include "platform/Text.h"

#include <clocale>
#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <memory>
#include <stdexcept>

namespace Qx::Host::Test {

namespace {

std::filesystem::path logDirectory;

} // namespace

std::string contentsOf(const std::filesystem::path& file)
{
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

Variable::Variable(const char* name, const std::string& value) : name_(name)
{
    ::setenv(name, value.c_str(), 1);
}

Variable::~Variable()
{
    ::unsetenv(name_);
}

DecimalComma::DecimalComma()
{
    ::setenv("LOCPATH", QX_TEST_LOCALES, 1);
    if (std::setlocale(LC_ALL, "de_DE.UTF-8") == nullptr || *std::localeconv()->decimal_point != ',') {
        throw std::runtime_error("the locale with a decimal comma does not load from " QX_TEST_LOCALES);
    }
}

DecimalComma::~DecimalComma()
{
    std::setlocale(LC_ALL, "C");
    ::unsetenv("LOCPATH");
}

LightweightString<wchar_t> wide(const std::filesystem::path& path)
{
    return fromUTF8(path.c_str());
}

std::string narrow(const LightweightString<wchar_t>& text)
{
    return std::string(toUTF8(text).view());
}

std::filesystem::path logFile()
{
    return logDirectory / "qxhost/qxhost.log";
}

} // namespace Qx::Host::Test

/// The settings and the log of the process lie in a directory of this run.
int main(int argc, char** argv)
{
    testing::InitGoogleTest(&argc, argv);
    const Qx::Host::Test::TemporaryDirectory home;
    const Qx::Host::Test::Variable configuration("XDG_CONFIG_HOME", home.path());
    const Qx::Host::Test::Variable state("XDG_STATE_HOME", home.path());
    const Qx::Host::Test::Variable cache("XDG_CACHE_HOME", home.path());
    home.write("qxhost/settings.toml", "FromFile = 12\nOverridden = 1\nNotANumber = \"many\"\n");
    Qx::Host::Test::logDirectory = home.path();
    return RUN_ALL_TESTS();
}
