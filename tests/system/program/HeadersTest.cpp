#include "tests/system/program/Installation.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cxxabi.h>
#include <map>
#include <memory>
#include <regex>
#include <set>
#include <sstream>

// The headers of an installation, and what its libraries export.

namespace Qx::System {

namespace {

using Installed = Installation;

/// What one library defines for others, readable, each once: constructors have several symbols.
std::set<std::string> exportedBy(const std::string& namesAndTypes)
{
    std::set<std::string> names;
    std::istringstream lines(namesAndTypes);
    for (std::string line; std::getline(lines, line);) {
        const std::string symbol = line.substr(0, line.find(' '));
        int status = 0;
        const std::unique_ptr<char, decltype(&std::free)> name(
            abi::__cxa_demangle(symbol.c_str(), nullptr, nullptr, &status), &std::free);
        names.insert(status == 0 ? name.get() : symbol);
    }
    return names;
}

/// Names an exported symbol in C++, so that the compiler finds its declaration: the very one, with these
/// parameters.
class Naming
{
public:
    Naming()
    {
        text_ = R"(#include "all.h"
#include <type_traits>

template <class... A>
struct Named
{
    template <class R> static auto function(R (*f)(A...)) { return f; }
    template <class R, class C> static auto function(R (C::*f)(A...)) { return f; }
    template <class R, class C> static auto constant(R (C::*f)(A...) const) { return f; }
    template <class R> static auto endless(R (*f)(A..., ...)) { return f; }
};
struct Any
{
    template <class... A> explicit Any(A&&...) {}
};
template <class C> using Base = std::conditional_t<std::is_final_v<C>, Any, C>;
template <class C> void end(C& object) { object.C::~C(); }

)";
    }

    void add(std::string symbol)
    {
        symbol = std::regex_replace(symbol, std::regex(R"(\[abi:\w+\])"), "");
        std::smatch match;
        const std::string number = std::to_string(++count_);
        if (std::regex_match(symbol, match, std::regex("(?:typeinfo|typeinfo name|vtable|VTT) for (.*)"))) {
            text_ += "static_assert(sizeof(" + match[1].str() + ") > 0);\n";
        } else if (symbol.find('(') == std::string::npos) {
            text_ += "const auto* const data" + number + " = &" + symbol + ";\n";
        } else {
            addFunction(symbol, number);
        }
    }

    const std::string& text() const { return text_; }

private:
    void addFunction(const std::string& symbol, const std::string& number)
    {
        const std::size_t open = symbol.find('(');
        const std::size_t close = symbol.rfind(')');
        const std::string name = symbol.substr(0, open);
        std::string parameters = symbol.substr(open + 1, close - open - 1);
        const bool constant = symbol.substr(close + 1) == " const";

        const std::size_t colons = name.rfind("::");
        const std::string scope = colons == std::string::npos ? "" : name.substr(0, colons);
        const std::string last = colons == std::string::npos ? name : name.substr(colons + 2);
        const std::size_t outer = scope.rfind("::");
        const std::string type = outer == std::string::npos ? scope : scope.substr(outer + 2);
        if (last == "~" + type) {
            text_ += "template void end<" + scope + ">(" + scope + "&);\n";
        } else if (last == type) {
            addConstructor(scope, parameters, number);
        } else {
            static const std::string rest = ", ...";
            const bool endless = parameters.ends_with(rest);
            if (endless) {
                parameters.erase(parameters.size() - rest.size());
            }
            text_ += "const auto function" + number + " = Named<" + parameters + ">::" +
                     (constant  ? "constant"
                      : endless ? "endless"
                                : "function") +
                     "(&" + name + ");\n";
        }
    }

    /// An abstract class can only be constructed as part of another, a final one only alone.
    void addConstructor(const std::string& type, const std::string& parameters, const std::string& number)
    {
        const std::string base = "Base<" + type + ">";
        const std::string derived = "Derived" + number;
        text_ += "template <class... A> struct " + derived + "s : " + base + " { explicit " + derived +
                 "s(A... a) : " + base + "(static_cast<A&&>(a)...) {} };\n";
        text_ += "template struct " + derived + "s<" + parameters + ">;\n";
        text_ += "static_assert(!std::is_final_v<" + type + "> || std::is_constructible_v<" + type +
                 (parameters.empty() ? "" : ", " + parameters) + ">);\n";
    }

    std::string text_;
    int count_ = 0;
};

TEST_F(Installed, every_header_compiles_alone)
{
    configure("headers");
    build("headers", "alone");
}

TEST_F(Installed, every_exported_symbol_is_declared_by_a_header)
{
    Naming naming;
    const std::map<const char*, std::size_t> atLeast{{"libQxFxResources.so", 30},
                                                     {"libQxHostGPU.so", 30},
                                                     {"libQxHostSurfaces.so", 15}, // the smallest
                                                     {"libQxHost.so", 30}};
    for (const auto& [library, count] : atLeast) {
        const Outcome symbols = run(
            {QX_NM, "--dynamic", "--defined-only", "--format=posix", (libraryFolder() / library).string()});
        ASSERT_EQ(symbols.exitCode, 0) << symbols.err;
        const std::set<std::string> names = exportedBy(symbols.out);
        EXPECT_GT(names.size(), count) << library << ": the list of symbols was not read";
        for (const std::string& name : names) {
            // The compiler knows these without a header of ours.
            EXPECT_FALSE(std::regex_search(name, std::regex("^std::|(^| for )(std|__gnu_cxx)::| \\(\\)$")))
                << library << " exports a copy of " << name;
            naming.add(name);
        }
    }
    write("exports.cpp", naming.text());
    configure("headers", {"-DQX_EXPORTS=" + at("exports.cpp").string()});
    build("headers", "exports");
}

TEST_F(Installed, every_function_of_the_headers_is_exported_or_says_that_it_is_not)
{
    // Declarations outside classes begin their line, and definitions in headers say that they are.
    static const std::regex function(R"(^(?!inline|template|constexpr|friend|using|#|//| )\S.*\w\()");
    static const std::regex marked("^(class |struct )?QX_(API|HOST_API|PLATFORM_API|LOCAL) ");
    std::size_t known = 0;
    for (const auto& file : fs::recursive_directory_iterator(at("prefix/include/qx"))) {
        std::istringstream lines(file.is_regular_file() ? read(file.path()) : "");
        std::string before;
        for (std::string line; std::getline(lines, line); before = line) {
            if (std::regex_search(line, function) && !before.starts_with("template")) {
                ++known;
                EXPECT_TRUE(std::regex_search(line, marked) || std::regex_search(before, marked))
                    << file.path() << ": " << line;
            }
        }
    }
    EXPECT_GT(known, 50U) << "the headers were not read";
}

TEST_F(Installed, pkg_config_has_what_a_program_needs)
{
    ::setenv("PKG_CONFIG_PATH", (libraryFolder() / "pkgconfig").c_str(), 1);
    const Outcome flags = run({"pkg-config", "--cflags", "--libs", "qxfxresources", "qxhost"});
    ASSERT_EQ(flags.exitCode, 0) << flags.err;
    std::vector<std::string> compile{"c++", "-std=c++20", QX_SOURCE_FOLDER "/tests/system/consumer/main.cpp",
                                     "-o", at("consumer").string()};
    std::istringstream words(flags.out);
    for (std::string word; words >> word;) {
        compile.push_back(word);
    }
    const Outcome compiled = run(compile);
    EXPECT_EQ(compiled.exitCode, 0) << compiled.err;
    const Outcome needs = run({"readelf", "-d", at("consumer").string()});
    EXPECT_NE(needs.out.find("libQxFxResources.so.0"), std::string::npos) << needs.out;
    EXPECT_NE(needs.out.find("libQxHost.so.0"), std::string::npos) << needs.out;
}

} // namespace

} // namespace Qx::System
