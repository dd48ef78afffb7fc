#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

// What the library imports and exports, read from its file.

namespace {

using testing::IsEmpty;

std::vector<std::string> dynamicSymbols(const std::string& options)
{
    const std::string command =
        std::string(QX_NM) + " --dynamic --demangle " + options + " '" QX_LIBRARY_PATH "'";
    std::vector<std::string> lines;
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) {
        return lines;
    }
    std::array<char, 4096> line{};
    while (std::fgets(line.data(), static_cast<int>(line.size()), pipe) != nullptr) {
        std::string text = line.data();
        text.erase(text.find_last_not_of('\n') + 1);
        lines.push_back(text);
    }
    EXPECT_EQ(pclose(pipe), 0) << command;
    return lines;
}

/// Returns the name in a line of nm: the text after the one-letter type.
std::string nameIn(const std::string& line)
{
    static const std::regex entry(R"(^(?:[0-9a-f]+)?\s+[A-Za-z] (.*)$)");
    std::smatch match;
    return std::regex_match(line, match, entry) ? match[1].str() : line;
}

/// Returns the words in the public headers of these folders.
std::string headersOf(std::initializer_list<const char*> folders)
{
    std::string text;
    for (const char* folder : folders) {
        for (const auto& file :
             std::filesystem::directory_iterator(std::filesystem::path(QX_SOURCE_DIR) / folder)) {
            if (file.path().extension() == ".h") {
                std::ifstream stream(file.path());
                text.append(std::istreambuf_iterator<char>(stream), {});
            }
        }
    }
    return text;
}

/// The first name of a symbol that is no namespace: "CriticalSection" in "CriticalSection::enter() const".
std::string outermostName(std::string symbol)
{
    symbol = std::regex_replace(symbol, std::regex("^(vtable|typeinfo|typeinfo name|VTT) for "), "");
    symbol =
        std::regex_replace(symbol, std::regex("^(?:(?:Qx|Image|FxResources|ColourConversion|Core)::)+"), "");
    return symbol.substr(0, symbol.find_first_of(":(<[ "));
}

bool declares(const std::string& headers, const std::string& mark, const std::string& name)
{
    // The macro, then in the same declaration the name: before any brace, semicolon or parenthesis.
    return std::regex_search(headers, std::regex("\\b" + mark + "\\b[^;{}()]*\\b" + name + "\\b"));
}

bool isOfTheSystem(const std::string& line)
{
    static const std::regex versioned(R"(@(GLIBC|GLIBCXX|CXXABI|GCC)_)");
    static const std::regex weakHooks(R"(^\s*w (__cxa_finalize|__gmon_start__|_ITM_\w+)\b)");
    // Symbols that sanitizers and coverage add to every module.
    static const std::regex instrumentation(
        R"(\bU (__asan|__ubsan|__tsan|__sanitizer|__gcov|__lsan|__cyg)_\w+)");
    // Functions of the C runtime that a sanitizer replaces lose their version.
    static const std::regex replaced(R"(\bU (atexit|__cxa_\w+|mem\w+|str\w+|wcs\w+|printf)$)");
    return std::regex_search(line, versioned) || std::regex_search(line, weakHooks) ||
           std::regex_search(line, instrumentation) || std::regex_search(line, replaced);
}

} // namespace

TEST(LibrarySymbols, ThoseThatTheProcessSuppliesAreDeclaredByThePlatform)
{
    const std::string platform = headersOf({"platform"});
    std::vector<std::string> strangers;
    std::size_t known = 0;
    for (const std::string& line : dynamicSymbols("--undefined-only")) {
        if (isOfTheSystem(line)) {
            continue;
        }
        if (declares(platform, "QX_PLATFORM_API", outermostName(nameIn(line)))) {
            ++known;
        } else {
            strangers.push_back(line);
        }
    }
    EXPECT_THAT(strangers, IsEmpty());
    EXPECT_GT(known, 10U) << "the list of symbols was not read";
}

TEST(LibrarySymbols, ExportedAreThePublicInterfaceAndNothingElse)
{
    const std::string publicHeaders = headersOf({"QxFxResources", "fonts", "gputests", "image", "lut"});
    static const std::regex spaces("(^| for )(Qx::|GPUFontCache|GPUTests|LUTManager)");
    std::vector<std::string> strangers;
    std::size_t known = 0;
    for (const std::string& line : dynamicSymbols("--defined-only")) {
        const std::string name = nameIn(line);
        const bool ours = std::regex_search(name, spaces);
        if (ours && declares(publicHeaders, "QX_API", outermostName(name))) {
            ++known;
        } else {
            strangers.push_back(line);
        }
    }
    EXPECT_THAT(strangers, IsEmpty());
    EXPECT_GT(known, 10U) << "the list of symbols was not read";
}

TEST(LibrarySymbols, EveryFunctionOfThePublicHeadersIsExported)
{
    std::set<std::string> exported;
    for (const std::string& line : dynamicSymbols("--defined-only")) {
        exported.insert(outermostName(nameIn(line)));
    }
    const std::string headers = headersOf({"QxFxResources", "fonts", "gputests", "image", "lut"});
    static const std::regex function(R"(\bQX_API\s+[^;{}()]*\b(\w+)\()");
    std::vector<std::string> missing;
    std::size_t known = 0;
    for (std::sregex_iterator found(headers.begin(), headers.end(), function), end; found != end; ++found) {
        const std::string name = (*found)[1];
        if (exported.contains(name)) {
            ++known;
        } else {
            missing.push_back(name);
        }
    }
    EXPECT_THAT(missing, IsEmpty());
    EXPECT_GT(known, 20U) << "the headers were not read";
}

TEST(LibrarySymbols, NothingOfTheStandardLibraryAllocatesBehindTheHostsBack)
{
    // Code inside libstdc++ allocates with the process's operator new, and the library's own operator delete
    // would pass the block to the host's allocator.
    static const std::regex allocating(
        R"(operator new|operator delete|std::(__cxx11::)?(basic_string|basic_stringbuf|locale|ios)|std::_Rb_tree<|std::filesystem)");
    std::vector<std::string> found;
    for (const std::string& line : dynamicSymbols("")) {
        if (std::regex_search(line, allocating)) {
            found.push_back(line);
        }
    }
    EXPECT_THAT(found, IsEmpty());
}

TEST(LibraryFile, CarriesItsSonameAndNeedsNoLibraryOfOurs)
{
    const std::string command = "LC_ALL=C " QX_READELF " --dynamic '" QX_LIBRARY_PATH "'";
    FILE* pipe = popen(command.c_str(), "r");
    ASSERT_NE(pipe, nullptr);
    std::string text;
    std::array<char, 4096> part{};
    while (std::fgets(part.data(), static_cast<int>(part.size()), pipe) != nullptr) {
        text += part.data();
    }
    ASSERT_EQ(pclose(pipe), 0);
    EXPECT_THAT(text, testing::HasSubstr("Library soname: [libQxFxResources.so.0]"));
    EXPECT_THAT(text, testing::Not(testing::HasSubstr("libQxHost")));
    EXPECT_THAT(text, testing::Not(testing::HasSubstr("libvulkan")));
}
