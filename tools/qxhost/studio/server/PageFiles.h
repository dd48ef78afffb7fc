#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Qx::Program::Studio {

/// A file that is compiled into the program.
struct EmbeddedFile
{
    std::string_view name;
    const unsigned char* bytes;
    std::size_t size;
};

/// All of them; the build writes this function.
const std::vector<EmbeddedFile>& embeddedFiles();

struct PageFile
{
    std::string bytes;
    std::string_view type; ///< "text/html; charset=utf-8"
};

/// The files of the page: those compiled in, or, for who works on the page, those of a directory, which
/// override them.
class PageFiles
{
public:
    /// `directory` is empty for none.
    explicit PageFiles(std::filesystem::path directory) : directory_(std::move(directory)) {}

    /// The file of that name; "" is index.html. Nothing for any other name than those of the files: what
    /// leads out of the directory is no name of a file.
    std::optional<PageFile> find(std::string_view name) const;

private:
    std::filesystem::path directory_;
};

} // namespace Qx::Program::Studio
