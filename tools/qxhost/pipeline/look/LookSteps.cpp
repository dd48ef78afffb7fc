#include "tools/qxhost/pipeline/look/LookSteps.h"

#include "host/core/Suggestion.h"
#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/pipeline/effects/EffectFile.h"
#include "tools/qxhost/pipeline/effects/LutFile.h"
#include "tools/qxhost/pipeline/look/LookFile.h"

#include <algorithm>
#include <fmt/format.h>

namespace Qx::Program {

namespace {

bool isBareName(const std::string& file)
{
    return file.find('/') == std::string::npos;
}

/// The file of the catalogue's LUT of that name.
std::string listedLut(const EffectRequest& request)
{
    std::vector<std::string> names;
    for (const std::filesystem::path& file : listedLuts()) {
        if (file.filename() == request.lut) {
            return file.string();
        }
        names.push_back(file.filename().string());
    }
    throw Failure(ExitCode::effect,
                  fmt::format("{}: there is no LUT {} beside it, nor in the catalogue{}; 'qxhost lut list' "
                              "shows what is there",
                              request.look.string(), request.lut, Host::didYouMean(request.lut, names)));
}

std::vector<EffectRequest> stepsOf(const std::filesystem::path& file, const std::optional<TimeCode>& code,
                                   const std::string& clip)
{
    Look look;
    try {
        look = readLook(file);
    } catch (const Failure& failure) {
        throw Failure(ExitCode::effect, failure.what());
    }
    try {
        resolveTimeCodes(look, code, clip);
    } catch (const Failure& failure) {
        throw Failure(failure.code(), file.string() + ": " + failure.what());
    }
    std::vector<EffectRequest> requests = effectRequests(look);
    for (EffectRequest& request : requests) {
        request.look = file;
    }
    return requests;
}

} // namespace

std::vector<EffectRequest> withStepsOfLooks(const std::vector<EffectRequest>& requests,
                                            const std::optional<TimeCode>& code, const std::string& clip)
{
    std::vector<EffectRequest> all;
    for (const EffectRequest& request : requests) {
        if (!request.isLook()) {
            all.push_back(request);
            continue;
        }
        for (EffectRequest& step : stepsOf(request.look, code, clip)) {
            all.push_back(std::move(step));
        }
    }
    return all;
}

void settleNamesOfLooks(std::vector<EffectRequest>& requests)
{
    for (EffectRequest& request : requests) {
        if (request.look.empty() || request.isLook()) {
            continue;
        }
        if (!request.lut.empty() && isBareName(request.lut)) {
            request.lut = listedLut(request);
        } else if (request.lut.empty() && isBareName(request.file) && !isCatalogued(request.file)) {
            throw Failure(ExitCode::effect,
                          fmt::format("{}: there is no effect {} beside it, nor in the catalogue; 'qxhost "
                                      "effects list' shows what is there",
                                      request.look.string(), request.file));
        }
    }
}

void settleNames(Look& look, const std::filesystem::path& file)
{
    for (LookLink& link : look.links) {
        if (!link.on) {
            continue;
        }
        std::vector<EffectRequest> request{effectRequest(link)};
        request.front().look = file;
        settleNamesOfLooks(request);
        link.file = link.kind == LookLink::Kind::lut ? request.front().lut : link.file;
    }
}

} // namespace Qx::Program
