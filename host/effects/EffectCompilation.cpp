#include "host/effects/EffectCompilation.h"

#include "host/core/Printable.h"

#include <utility>

namespace Qx::Host {

void refuse(EffectCompilation& compilation, const Diagnostic::Place& at, const std::string& text,
            const std::string& technique, const std::string& pass)
{
    Diagnostic diagnostic;
    diagnostic.at = at;
    diagnostic.text = printable(text);
    diagnostic.technique = printable(technique);
    diagnostic.pass = printable(pass);
    compilation.effect = nullptr;
    compilation.messages += messageText(diagnostic);
    compilation.diagnostics.push_back(std::move(diagnostic));
}

} // namespace Qx::Host
