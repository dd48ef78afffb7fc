#include "bench/Catalogue.h"
#include "bench/MarkdownReport.h"
#include "host/Host.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

namespace Qx::Bench {
void registerConversions();
void registerFormats();
void registerLooks();
void registerStartUp();
void registerTechniqueApplication();
void registerText();
} // namespace Qx::Bench

/// qx_bench [--markdown=FILE] [Google Benchmark's options]
int main(int argc, char** argv)
{
    setenv("QX_SHADERS_DIR", QX_SHADERS_FOLDER, 0);
    if (argc == 2 && std::string_view(argv[1]).starts_with(Qx::Bench::catalogueOption)) {
        return Qx::Bench::runCatalogue(argv[1] + Qx::Bench::catalogueOption.size());
    }
    constexpr const char* markdownOption = "--markdown=";
    std::string markdown;
    if (argc > 1 && std::strncmp(argv[1], markdownOption, std::strlen(markdownOption)) == 0) {
        markdown = argv[1] + std::strlen(markdownOption);
        argv[1] = argv[0];
        --argc;
        ++argv;
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 2;
    }

    setenv("QX_CACHE", "0", 1);                                 // measures compilation, not the cache
    const char* const arguments[] = {"qx_bench", "-transcode"}; // no background compilation
    Qx::Host::StartOptions options;
    options.argc = 2;
    options.argv = arguments;
    Qx::Host::start(options);

    Qx::Bench::registerConversions();
    Qx::Bench::registerFormats();
    Qx::Bench::registerLooks();
    Qx::Bench::registerTechniqueApplication();
    Qx::Bench::registerText();
    Qx::Bench::registerStartUp();
    Qx::Bench::MarkdownReport report;
    benchmark::RunSpecifiedBenchmarks(&report);
    const bool written = markdown.empty() || report.write(markdown);
    if (!written) {
        std::fprintf(stderr, "%s: cannot be written\n", markdown.c_str());
    }
    benchmark::ClearRegisteredBenchmarks(); // they hold surfaces
    benchmark::Shutdown();
    Qx::Host::stop();
    return written ? 0 : 1;
}
