#include "bench/MarkdownReport.h"
#include "host/Host.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace Qx::Bench {
void registerConversions();
void registerFormats();
void registerStartUp();
void registerTechniqueApplication();
} // namespace Qx::Bench

/// qx_bench [--markdown=FILE] [Google Benchmark's options]
int main(int argc, char** argv)
{
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

    setenv("QX_SHADERS_DIR", QX_SHADERS_FOLDER, 0);
    const char* const arguments[] = {"qx_bench", "-transcode"}; // nothing compiles in the background
    Qx::Host::StartOptions options;
    options.argc = 2;
    options.argv = arguments;
    Qx::Host::start(options);

    Qx::Bench::registerConversions();
    Qx::Bench::registerFormats();
    Qx::Bench::registerTechniqueApplication();
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
