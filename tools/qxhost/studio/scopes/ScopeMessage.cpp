#include "tools/qxhost/studio/scopes/ScopeMessage.h"

#include "tools/qxhost/console/Failure.h"

#include <nettle/base64.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <numeric>

namespace Qx::Program {

namespace {

using Counts = Host::ScopeCounts::Counts;

struct Kind
{
    const char* name;
    bool ScopeKinds::*member;
};

constexpr std::array<Kind, 5> kindNames{{{"waveform", &ScopeKinds::waveform},
                                         {"parade", &ScopeKinds::parade},
                                         {"vectorscope", &ScopeKinds::vectorscope},
                                         {"histogram", &ScopeKinds::histogram},
                                         {"chromaticity", &ScopeKinds::chromaticity}}};

std::string encoded(const Counts& counts)
{
    std::vector<std::uint8_t> bytes;
    bytes.reserve(counts.size() * 2);
    for (const std::uint32_t count : counts) {
        const std::uint32_t word = std::min<std::uint32_t>(count, UINT16_MAX);
        bytes.push_back(static_cast<std::uint8_t>(word & 0xff));
        bytes.push_back(static_cast<std::uint8_t>(word >> 8));
    }
    std::string text(BASE64_ENCODE_RAW_LENGTH(bytes.size()), '\0');
    base64_encode_raw(text.data(), bytes.size(), bytes.data());
    return text;
}

/// Of each code, over all columns.
Counts histogramOf(const Counts& waveform, unsigned columns)
{
    Counts result;
    result.reserve(waveform.size() / columns);
    for (auto row = waveform.begin(); row != waveform.end(); row += columns) {
        result.push_back(std::accumulate(row, row + columns, 0U));
    }
    return result;
}

} // namespace

ScopeKinds scopeKinds(const nlohmann::json& names)
{
    ScopeKinds kinds;
    for (const nlohmann::json& each : names) {
        const auto found = std::find_if(kindNames.begin(), kindNames.end(), [&](const Kind& kind) {
            return each.is_string() && each.get_ref<const std::string&>() == kind.name;
        });
        if (found == kindNames.end()) {
            throw Failure(ExitCode::usage,
                          "there is no scope " + each.dump() +
                              "; there are waveform, parade, vectorscope, histogram and chromaticity");
        }
        kinds.*(found->member) = true;
    }
    return kinds;
}

ScopeSizes scopeSizes(const ScopeKinds& kinds)
{
    ScopeSizes sizes;
    sizes.vectorscope = kinds.vectorscope ? sizes.vectorscope : 0;
    sizes.chromaticity = kinds.chromaticity ? sizes.chromaticity : 0;
    return sizes;
}

nlohmann::json scopeMessage(const ScopeKinds& kinds, const ScopeSignal& signal,
                            const Host::ScopeRequest& request, const Host::ScopeCounts& counts)
{
    const ScopeRange range = scopeRange(request);
    nlohmann::json message{
        {"bits", request.levels == 256 ? 8 : 10}, {"black", range.black}, {"white", range.white}};
    if (kinds.waveform) {
        message["waveform"] = {
            {"columns", request.columns}, {"levels", request.levels}, {"luma", encoded(counts.luma)}};
    }
    if (kinds.parade) {
        message["parade"] = {{"columns", request.columns},
                             {"levels", request.levels},
                             {"r", encoded(counts.red)},
                             {"g", encoded(counts.green)},
                             {"b", encoded(counts.blue)}};
    }
    if (kinds.histogram) {
        message["histogram"] = {{"levels", request.levels},
                                {"luma", histogramOf(counts.luma, request.columns)},
                                {"r", histogramOf(counts.red, request.columns)},
                                {"g", histogramOf(counts.green, request.columns)},
                                {"b", histogramOf(counts.blue, request.columns)}};
    }
    if (kinds.vectorscope) {
        nlohmann::json targets = nlohmann::json::array();
        for (const ScopeTarget& target : scopeTargets(request)) {
            targets.push_back({{"name", target.name}, {"cb", target.cb}, {"cr", target.cr}});
        }
        message["vectorscope"] = {{"size", request.vectorscope},
                                  {"levels", request.levels},
                                  {"counts", encoded(counts.vectorscope)},
                                  {"targets", targets}};
    }
    if (kinds.chromaticity) {
        message["chromaticity"] = {{"size", request.chromaticity},
                                   {"end", Host::ScopeCounts::chromaticityEnd},
                                   {"counts", encoded(counts.chromaticity)},
                                   {"locus", spectralLocus()},
                                   {"gamut", scopeGamut(signal)}};
    }
    return message;
}

} // namespace Qx::Program
