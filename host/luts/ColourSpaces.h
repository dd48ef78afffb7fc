#pragma once

#include "host/Host.h"
#include "host/luts/LUTReader.h"

#include <filesystem>
#include <string>
#include <vector>

/// Colour spaces, displays and views of OpenColorIO configurations.
namespace Qx::Host {

/// A way between two colour spaces, or between a colour space and a view of a display. Of `from` and `to`,
/// one is empty if there is a display: with `from`, colours go to the display, with `to` they come from it.
struct ColourSpaceChange
{
    std::filesystem::path config; ///< a .ocio file
    std::string from;             ///< a colour space, a role or an alias
    std::string to;               ///< a colour space, a role or an alias
    std::string display;          ///< a display of the configuration; empty for none
    std::string view;             ///< empty: the display's default

    /// Compares all members.
    bool operator==(const ColourSpaceChange&) const = default;
};

/// What tables may be off by where there is no better way: a 10-bit code.
inline constexpr double largestViewError = 1.0 / 1023.0;

/// A change of colour spaces, in one of two forms, or why there is none.
struct ColourSpaceReading
{
    /// As readLUT makes them: curves, matrices and tables are kept, and formulas become curves.
    LUTReading steps;

    /// The text of an effect, if formulas mix channels and steps would be off by more than largestLUTError.
    /// Its parameter "amount" is that of LUT.fx.
    std::string effect;
};

/// Reads a configuration and what its change consists of. Steps that are off by more than largestLUTError are
/// given where formulas stand beside tables, up to largestViewError; what would be off by more is refused.
/// The failure, in `steps`, names the configuration, and the names that there are. Thread-safe; throws
/// nothing.
QX_HOST_API ColourSpaceReading readColourSpaceChange(const ColourSpaceChange& change, LUTInput input);
QX_HOST_API ColourSpaceReading
readColourSpaceChange(const ColourSpaceChange& change); ///< The same for codes.

/// What a configuration offers.
struct ColourSpaceList
{
    /// A colour space.
    struct Space
    {
        std::string name;        ///< what ColourSpaceChange takes
        std::string family;      ///< its group in menus; may be empty
        std::string description; ///< its first line
    };
    /// A display with its views.
    struct Display
    {
        std::string name;               ///< what ColourSpaceChange::display takes
        std::vector<std::string> views; ///< the default first
    };

    std::string description;        ///< of the configuration, its first line
    std::vector<Space> spaces;      ///< in the configuration's order
    std::vector<std::string> roles; ///< "scene_linear: ACEScg"
    std::vector<Display> displays;  ///< the default first
    std::string failure;            ///< why nothing could be read
};

/// Returns what a configuration offers, or why it cannot be read. Thread-safe; throws nothing.
QX_HOST_API ColourSpaceList listColourSpaces(const std::filesystem::path& config);

} // namespace Qx::Host
