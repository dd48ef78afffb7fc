#include "host/fonts/Typeface.h"

#include "host/core/Immortal.h"
#include "host/core/Printable.h"
#include "platform/Log.h"
#include "platform/Text.h"

#include <set>

namespace Qx::Host::Text {

namespace {

struct Said
{
    std::mutex mutex;
    std::set<std::string> sentences;
};

void sayOnce(const std::string& sentence)
{
    auto& said = immortal<Said>();
    const std::lock_guard lock(said.mutex);
    if (!sentence.empty() && said.sentences.insert(sentence).second) {
        Log("Fonts: %s\n", sentence.c_str());
    }
}

} // namespace

std::shared_ptr<TextShaper> openTypeface(const LightweightString<wchar_t>& typeface, int size, int style)
{
    const std::string name(toUTF8(typeface).view());
    std::string failure;
    std::shared_ptr<TextShaper> shaper;
    if (name.empty()) {
        failure = "a font needs the name of a typeface";
    } else if (size < smallestFont || size > largestFont) {
        failure = "\"" + printable(name) + "\": sizes of fonts go from " + std::to_string(smallestFont) +
                  " to " + std::to_string(largestFont) + " pixels, not " + std::to_string(size);
    } else if (const auto files = FontFiles::find(name, style, failure)) {
        sayOnce(files->substitution());
        shaper = TextShaper::create(files, size, failure);
        if (shaper == nullptr) {
            failure = printable(files->first().path) + ": " + failure;
        }
    } else {
        failure = "\"" + printable(name) + "\": " + failure;
    }
    if (shaper == nullptr) {
        Log("Fonts: %s\n", failure.c_str());
    }
    return shaper;
}

} // namespace Qx::Host::Text
