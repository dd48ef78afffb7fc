#include "host/gpu/effects/EffectFiles.h"

#include "host/core/EffectIncludes.h"
#include "platform/Text.h"

#include <algorithm>

namespace Qx::Host {

Worker::CompileRequest compileRequest(const LightweightString<wchar_t>& path,
                                      const iGPUService::Definitions& definitions)
{
    Worker::CompileRequest request;
    request.file = toUTF8(path).c_str();
    std::error_code error;
    request.directory = std::filesystem::current_path(error);
    for (const iShaderEffect::CompilerDefinition& definition : definitions) {
        request.options.definitions.emplace_back(definition.name.c_str(), definition.value.c_str());
    }
    request.options.includeDirectories = effectIncludeDirectories();
    return request;
}

std::vector<Worker::CompileRequest> requestsBeside(const Worker::CompileRequest& request)
{
    std::vector<std::string> names;
    std::error_code error;
    const std::filesystem::path directory = request.file.parent_path();
    std::filesystem::directory_iterator entry(directory.empty() ? "." : directory, error);
    for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
        const std::filesystem::path name = entry->path().filename();
        std::error_code unknown;
        if (name.extension() == ".fx" && !name.native().starts_with('_') && name != request.file.filename() &&
            entry->is_regular_file(unknown)) {
            names.push_back(name);
        }
    }
    std::sort(names.begin(), names.end());
    std::vector<Worker::CompileRequest> requests(names.size(), request);
    for (std::size_t i = 0; i < names.size(); ++i) {
        requests[i].file.replace_filename(names[i]);
    }
    return requests;
}

} // namespace Qx::Host
