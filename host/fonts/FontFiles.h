#pragma once

#include <memory>
#include <optional>
#include <span>
#include <string>

namespace Qx::Host::Text {

/// A face of a font file, and how to synthesise the requested style.
struct FontFile
{
    std::string path;
    int index = 0;      ///< of the face; the named instance in the upper 16 bits, as FreeType counts
    bool bold = false;  ///< the face is not bold: embolden it
    bool slant = false; ///< the face is upright: slant it
};

/// The file of a typeface, and those for characters that it lacks. Fontconfig finds them; a typeface with a
/// '/' in its name is a file itself. Only TrueType and OpenType files are used. Thread-safe.
class FontFiles
{
public:
    /// Null, with the reason, if there is no file. `style` is a combination of iFont::eStyle.
    static std::shared_ptr<const FontFiles> find(const std::string& typeface, int style,
                                                 std::string& failure);
    ~FontFiles();
    FontFiles(const FontFiles&) = delete;
    FontFiles& operator=(const FontFiles&) = delete;

    const FontFile& first() const { return first_; }

    /// A sentence about the substitute for a missing typeface; empty if it exists.
    const std::string& substitution() const { return substitution_; }

    /// The best file with all these characters, with colour glyphs if `colour`.
    std::optional<FontFile> covering(std::span<const char32_t> characters, bool colour) const;

private:
    struct Sorted;
    FontFiles();

    FontFile first_;
    std::string substitution_;
    std::unique_ptr<Sorted> sorted_;
};

} // namespace Qx::Host::Text
