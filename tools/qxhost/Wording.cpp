#include "tools/qxhost/Wording.h"

namespace Qx::Program {

std::string listed(const std::vector<std::string>& words)
{
    std::string text;
    for (std::size_t i = 0; i < words.size(); ++i) {
        text += i == 0 ? "" : i + 1 == words.size() ? " and " : ", ";
        text += words[i];
    }
    return text;
}

} // namespace Qx::Program
