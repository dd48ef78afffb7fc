#pragma once

#include <memory>
#include <optional>
#include <span>
#include <string>

namespace Qx::Host::Text {

/// A face of a font file, and what has to be done to it to have the style that was asked for.
struct FontFile
{
    std::string path;
    int index = 0;      ///< of the face; the named instance in the upper 16 bits, as FreeType counts
    bool bold = false;  ///< the face is not bold and has to be made so
    bool slant = false; ///< the face is upright and has to be slanted
};

/// The file of a typeface, and those that have the characters which it lacks. Found by Fontconfig; a typeface
/// with a '/' in its name is a file itself. Only TrueType and OpenType files count. Any thread.
class FontFiles
{
public:
    /// Null, and says why, when there is no file. `style` is a combination of iFont::eStyle.
    static std::shared_ptr<const FontFiles> find(const std::string& typeface, int style,
                                                 std::string& failure);
    ~FontFiles();
    FontFiles(const FontFiles&) = delete;
    FontFiles& operator=(const FontFiles&) = delete;

    const FontFile& first() const { return first_; }

    /// What stands in for a typeface that is not there, as a sentence; empty when it is there.
    const std::string& substitution() const { return substitution_; }

    /// The best file that has all these characters, with pictures in colour when `colour` says so.
    std::optional<FontFile> covering(std::span<const char32_t> characters, bool colour) const;

private:
    struct Sorted;
    FontFiles();

    FontFile first_;
    std::string substitution_;
    std::unique_ptr<Sorted> sorted_;
};

} // namespace Qx::Host::Text
