#pragma once

#include <cstddef>
#include <filesystem>
#include <string>

namespace Qx::Program::Studio {

/// A file of text, and the digest of its bytes.
struct TextFile
{
    std::string text;
    std::string digest; ///< SHA-256 in hexadecimal digits
};

constexpr std::size_t largestText = std::size_t{512} << 10U; ///< bytes

std::string digestOfText(const std::string& text);

/// Reads a regular file. Throws Failure (input) if there is none, it is larger than largestText, or it is not
/// UTF-8, which would not survive being edited.
TextFile readText(const std::filesystem::path& file);

/// Replaces a file by the text: aside, synced and renamed. Its mode stays. Returns the digest. Throws Failure
/// (output), also if the file is protected from writing.
std::string writeText(const std::filesystem::path& file, const std::string& text);

/// The file of that name beneath the folder. Throws Failure (usage) if the name does not end so, leads out
/// of the folder, or goes through something hidden.
std::filesystem::path beneath(const std::filesystem::path& folder, const std::string& name,
                              const std::string& ending);

} // namespace Qx::Program::Studio
