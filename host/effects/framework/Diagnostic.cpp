#include "host/effects/framework/Diagnostic.h"

#include "host/core/Printable.h"

namespace Qx::Host {
namespace {

std::string written(const Diagnostic::Place& place)
{
    return printable(place.file) + ':' + std::to_string(place.line) + ':' + std::to_string(place.column);
}

std::string placeInTechniques(const Diagnostic& diagnostic)
{
    std::string text = "  in technique '" + diagnostic.technique + "'";
    if (!diagnostic.pass.empty()) {
        text += ", pass '" + diagnostic.pass + "'";
    }
    if (diagnostic.otherPasses != 0) {
        text += ", and in " + std::to_string(diagnostic.otherPasses) +
                (diagnostic.otherPasses == 1 ? " more pass" : " more passes");
    }
    return text + '\n';
}

} // namespace

std::string messageText(const Diagnostic& diagnostic)
{
    const bool error = diagnostic.severity == Diagnostic::Severity::Error;
    std::string text =
        written(diagnostic.at) + (error ? ": error: " : ": warning: ") + diagnostic.text + '\n';
    if (!diagnostic.excerpt.empty()) {
        constexpr std::size_t indent = 4;
        text += std::string(indent, ' ') + diagnostic.excerpt + '\n';
        text += std::string(indent + diagnostic.caret, ' ') + "^\n";
    }
    if (!diagnostic.technique.empty()) {
        text += placeInTechniques(diagnostic);
    }
    if (!diagnostic.macro.empty()) {
        text +=
            "  in the expansion of macro '" + diagnostic.macro + "', " + written(diagnostic.macroBody) + '\n';
    }
    for (const Diagnostic::Place& place : diagnostic.includedFrom) {
        text += "  included from " + printable(place.file) + ':' + std::to_string(place.line) + '\n';
    }
    for (const std::string& note : diagnostic.notes) {
        text += "  " + note + '\n';
    }
    return text;
}

std::string messageText(const std::vector<Diagnostic>& diagnostics)
{
    std::string text;
    for (const Diagnostic& diagnostic : diagnostics) {
        text += messageText(diagnostic);
    }
    return text;
}

} // namespace Qx::Host
