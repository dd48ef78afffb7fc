#include "tests/fuzz/EffectText.h"

#include "host/effects/framework/Limits.h"

#include <string_view>

namespace Qx::Fuzz {
namespace {

using namespace Host::Effects;

// A directory that no machine has, so that nothing but the input can be read.
constexpr const char* directory = "/nonexistent-fuzz";

std::string pathOf(std::string_view name)
{
    return std::string(directory) + '/' + std::string(name);
}

} // namespace

EffectText::EffectText(Input input)
{
    options_.definitions = {{"HOST", "1"}, {"SCALE", "(2 * 3)"}};
    std::string_view rest(reinterpret_cast<const char*>(input.data()), input.size());
    constexpr std::string_view separator = "//// ";
    std::string name = "effect.fx";
    for (bool more = true; more;) {
        const std::size_t end = rest.find(separator);
        more = end != std::string_view::npos;
        if (!name.empty()) { // every file has a name
            files_.add({pathOf(name), name, files_.keep(std::string(rest.substr(0, end)))});
        }
        if (more) {
            rest.remove_prefix(end + separator.size());
            const std::size_t line = std::min(rest.find('\n'), rest.size());
            name = rest.substr(0, line);
            rest.remove_prefix(std::min(line + 1, rest.size()));
        }
    }
}

std::vector<Token> EffectText::preprocess()
{
    Preprocessor preprocessor(files_, options_, problems_);
    return preprocessor.run(pathOf("effect.fx"));
}

void EffectText::checkPlace(Location at) const
{
    promise(at.file < files_.size(), "a place is in no file");
    promise(!files_.describe(at).empty(), "a place has no text");
}

void EffectText::checkMessages()
{
    for (const Host::Diagnostic& diagnostic : problems_.take()) {
        promise(!diagnostic.at.file.empty() && diagnostic.at.line > 0 && diagnostic.at.column > 0,
                "a message without a place");
        promise(!diagnostic.text.empty(), "a message is empty");
        const std::string text = messageText(diagnostic);
        promise(text.size() < 4 * Limits::textBytes, "a message is longer than anybody reads");
        for (const char c : text) {
            promise(c == '\n' || (static_cast<unsigned char>(c) >= 0x20 && c != 0x7F),
                    "a message with control characters");
        }
    }
}

} // namespace Qx::Fuzz
