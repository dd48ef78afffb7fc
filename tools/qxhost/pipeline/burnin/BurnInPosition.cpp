#include "tools/qxhost/pipeline/burnin/BurnInPosition.h"

#include "host/core/AsciiCase.h"

#include <array>
#include <charconv>
#include <cstdlib>
#include <string_view>

namespace Qx::Program {

namespace {

struct NamedAnchor
{
    const char* name;
    BurnInAnchor anchor;
};

constexpr std::array<NamedAnchor, 10> anchors{{{"top-left", {-1, -1}},
                                               {"top", {0, -1}},
                                               {"top-right", {1, -1}},
                                               {"left", {-1, 0}},
                                               {"centre", {0, 0}},
                                               {"center", {0, 0}},
                                               {"right", {1, 0}},
                                               {"bottom-left", {-1, 1}},
                                               {"bottom", {0, 1}},
                                               {"bottom-right", {1, 1}}}};

bool readPlace(const std::string& word, BurnInPlace& place)
{
    const char* end = word.data() + word.size();
    const auto [comma, first] = std::from_chars(word.data(), end, place.x);
    if (first != std::errc() || comma == end || *comma != ',') {
        return false;
    }
    const auto [stopped, second] = std::from_chars(comma + 1, end, place.y);
    // No picture is larger, and sums cannot overflow.
    constexpr int farthest = 1000000;
    return second == std::errc() && stopped == end && std::abs(place.x) <= farthest &&
           std::abs(place.y) <= farthest;
}

} // namespace

std::optional<std::variant<BurnInAnchor, BurnInPlace>> positionNamed(const std::string& word)
{
    for (const NamedAnchor& anchor : anchors) {
        if (anchor.name == Host::asciiLower(word)) {
            return anchor.anchor;
        }
    }
    BurnInPlace place;
    return readPlace(word, place) ? std::optional<std::variant<BurnInAnchor, BurnInPlace>>(place)
                                  : std::nullopt;
}

std::vector<std::string> positionWords()
{
    std::vector<std::string> names;
    for (const NamedAnchor& anchor : anchors) {
        if (anchor.name != std::string_view("center")) {
            names.emplace_back(anchor.name);
        }
    }
    return names;
}

} // namespace Qx::Program
