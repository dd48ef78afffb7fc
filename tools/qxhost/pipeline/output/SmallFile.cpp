#include "tools/qxhost/pipeline/output/SmallFile.h"

#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/media/files/OutputFile.h"

namespace Qx::Program {

void writeText(const std::filesystem::path& file, const std::string& text, bool replace,
               const std::shared_ptr<const Media::FileSet>& kept)
{
    if (const Media::Status status = Media::OutputFile::writeWhole(file, text, replace, kept); !status) {
        throw Failure(ExitCode::output, status.text());
    }
}

void checkWritable(const std::filesystem::path& file, bool replace,
                   const std::shared_ptr<const Media::FileSet>& kept)
{
    if (const auto out = Media::OutputFile::create(file, replace, kept); !out) {
        throw Failure(ExitCode::output, out.text());
    }
}

} // namespace Qx::Program
