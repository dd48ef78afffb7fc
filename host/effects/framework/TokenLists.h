#pragma once

#include "host/effects/framework/Lexer.h"

#include <algorithm>
#include <initializer_list>
#include <string_view>
#include <vector>

namespace Qx::Host::Effects {

inline bool isOneOf(std::string_view text, std::initializer_list<std::string_view> list)
{
    return std::find(list.begin(), list.end(), text) != list.end();
}

inline void append(std::vector<Token>& to, const std::vector<Token>& tokens)
{
    to.insert(to.end(), tokens.begin(), tokens.end());
}

/// An End token with the place of the last token, or with `otherwise` if there are none.
inline Token endTokenAfter(const std::vector<Token>& tokens, Location otherwise)
{
    Token end;
    end.at = tokens.empty() ? otherwise : tokens.back().at;
    return end;
}

} // namespace Qx::Host::Effects
