#include "host/gpu/GPUService.h"
#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/studio/scopes/ClipScopes.h"
#include "tools/qxhost/studio/session/NamedLinks.h"
#include "tools/qxhost/studio/session/Probe.h"
#include "tools/qxhost/studio/session/Worker.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <fmt/format.h>
#include <string_view>
#include <utility>

namespace Qx::Program::Studio {

namespace {

constexpr std::size_t mostStills = 24;
constexpr int thumbnailSide = 240; ///< of thumbnails, and of stills in their gallery, at most
constexpr int stillSide = 640;
constexpr int smallQuality = 80;

/// Effects that the program draws itself with.
constexpr std::array ownEffects{
    "ColourConvert.fx", "ColourConvert2020.fx", "ColourConvert444.fx", "LUT.fx", "Alpha.fx", "null.fx"};

PictureSize fitted(const PictureSize& size, int side)
{
    const double scale = std::min(1.0, static_cast<double>(side) / std::max(size.width, size.height));
    return {std::max(1, static_cast<int>(size.width * scale + 0.5)),
            std::max(1, static_cast<int>(size.height * scale + 0.5))};
}

/// Nothing if the clip holds no YCbCr there.
std::optional<ProbedSample> sampleAt(const std::optional<Media::FrameCodes>& codes, int x, int y)
{
    const bool isThere = codes && x < codes->width() && y < codes->height();
    return isThere ? std::optional(ProbedSample{codes->at(x, y), codes->coding()}) : std::nullopt;
}

/// "NAME" of "still/NAME.jpg"; empty for any other path.
std::string_view nameIn(std::string_view path, std::string_view folder)
{
    constexpr std::string_view ending = ".jpg";
    const bool fits =
        path.starts_with(folder) && path.ends_with(ending) && path.size() > folder.size() + ending.size();
    return fits ? path.substr(folder.size(), path.size() - folder.size() - ending.size())
                : std::string_view();
}

} // namespace

Json Session::Worker::doProbe(Client&, const Message& message)
{
    const Media::StreamInfo& info = projector_.clip().info();
    const auto x = message.integer("x", 0, info.width - 1);
    const auto y = message.integer("y", 0, info.height - 1);
    drawFrame();
    if (!problem_.empty()) {
        throw Failure(ExitCode::input, problem_);
    }
    const PictureSize size = pictureSize();
    const auto atX = static_cast<int>(x * size.width / info.width);
    const auto atY = static_cast<int>(y * size.height / info.height);
    const Scene& scene = projector_.scene();
    const ColourChoice& colour = projector_.clip().colour();
    const std::optional<ProbedSample> sample = sampleAt(projector_.clipCodes(), atX, atY);
    const ProbedSignal signal{.matrix = colour.matrix,
                              .range = holdsRgb(info) ? Media::Range::video : colour.range,
                              .bits = sample ? sample->coding.bits : info.bitsPerComponent};
    const auto codesOf = [&](const Image::Surface& picture, bool isOfClip) {
        return probed({scene.codes(picture, atX, atY), scene.bits(), scene.range()}, signal,
                      isOfClip ? sample : std::nullopt);
    };
    const bool isExact = !proxy_ && (sample || holdsRgb(info));
    return {{"x", x},
            {"y", y},
            {"frame", projector_.frame()},
            {"exact", isExact ? Json(signal.bits) : Json()},
            {"drawn", scene.bits()},
            {"before", codesOf(projector_.before(), true)},
            {"after", codesOf(projector_.after(), projector_.isUnchanged())}};
}

Json Session::Worker::doStill(Client&, const Message& message)
{
    const std::string name = message.has("name") ? message.text("name", 200) : "";
    if (stills_.size() >= mostStills) {
        throw Failure(ExitCode::usage,
                      fmt::format("there are {} stills, the most that are kept; remove one", mostStills));
    }
    drawFrame();
    if (!problem_.empty()) {
        throw Failure(ExitCode::input, problem_);
    }
    stills_.push_back({++lastStill_, name, projector_.frame(), projector_.after()});
    changed();
    return {{"still", lastStill_}};
}

Json Session::Worker::doUnstill(Client&, const Message& message)
{
    const auto id = message.integer("still", 1, lastStill_);
    if (std::erase_if(stills_, [&](const Still& each) { return each.id == id; }) == 0) {
        throw Failure(ExitCode::usage, fmt::format("\"still\": there is no still {}", id));
    }
    for (Client& client : clients_) {
        if (client.view && client.view->against == id) {
            client.view->against = 0;
            ++client.viewVersion;
        }
    }
    changed();
    return {};
}

Json Session::Worker::catalogue() const
{
    Json effects = Json::array();
    for (const std::filesystem::path& file : cataloguedFiles(LookLink::Kind::effect)) {
        const std::string name = file.filename().string();
        if (std::find(ownEffects.begin(), ownEffects.end(), name) != ownEffects.end()) {
            continue;
        }
        const auto found = drawable_.find(file.string());
        effects.push_back({{"name", name},
                           {"file", file.string()},
                           {"ok", found == drawable_.end() ? Json() : Json(found->second.empty())},
                           {"reason", found == drawable_.end() ? "" : found->second}});
    }
    Json luts = Json::array();
    for (const std::filesystem::path& file : cataloguedFiles(LookLink::Kind::lut)) {
        luts.push_back({{"name", file.filename().string()}, {"file", file.string()}});
    }
    return {{"is", "catalogue"}, {"effects", effects}, {"luts", luts}};
}

Json Session::Worker::doCatalogue(Client& client, const Message&)
{
    client.wantsCatalogue = true;
    thumbnails_.recompileChanged();
    tell(client, catalogue(), iWindow::Kind::catalogue);
    survey_.start([this](Survey::Result result) {
        post([this, result = std::move(result)] {
            drawable_ = result;
            for (const Client& each : clients_) {
                if (each.wantsCatalogue) {
                    tell(each, catalogue(), iWindow::Kind::catalogue);
                }
            }
        });
    });
    return {};
}

/// Pictures by their addresses wait until no window wants one.
void Session::Worker::answerPicture(const std::string& path, const TakeJpeg& done)
{
    waiting_.emplace_back(path, done);
}

void Session::Worker::answerNextPicture()
{
    if (waiting_.empty()) {
        return;
    }
    const auto [path, done] = std::move(waiting_.front());
    waiting_.pop_front();
    try {
        done(smallPicture(path));
    } catch (const Failure&) { // a step that cannot be drawn has no picture
        done({});
    }
}

/// The step of a thumbnail. Effects stay compiled, since that takes longer than drawing them; of the LUTs,
/// whose tables are large, the last one.
const LookLink& Session::Worker::thumbnailLink(LookLink::Kind kind, const std::string& name)
{
    constexpr std::size_t mostKept = 64;
    LookLink link = catalogueLink(kind, name);
    std::vector<LookLink>& links = thumbnailSteps_.links;
    const auto known = std::find_if(links.begin(), links.end(), [&](const LookLink& each) {
        return each.kind == kind && each.file == link.file;
    });
    if (known != links.end()) {
        return *known;
    }
    std::erase_if(links, [](const LookLink& each) { return each.kind == LookLink::Kind::lut; });
    if (links.size() >= mostKept) {
        links.erase(links.begin());
    }
    link.id = editor_.newId();
    links.push_back(std::move(link));
    return links.back();
}

std::optional<std::string> Session::Worker::smallPicture(const std::string& path)
{
    const auto jpegOf = [&](const Image::Surface& picture, int side) {
        const PictureSize own{static_cast<int>(picture.getWidth()), static_cast<int>(picture.getHeight())};
        return jpeg_.encode(projector_.scene().bytes(Scene::shrunk(picture, fitted(own, side))).view,
                            smallQuality);
    };
    if (const std::string_view id = nameIn(path, "still/"); !id.empty()) {
        std::int64_t number = 0;
        const auto [end, error] = std::from_chars(id.data(), id.data() + id.size(), number);
        const Still* const kept =
            error == std::errc() && end == id.data() + id.size() ? still(number) : nullptr;
        return kept != nullptr ? std::optional(jpegOf(kept->picture, stillSide)) : std::nullopt;
    }
    for (const auto& [folder, kind] : {std::pair("thumbnail/effect/", LookLink::Kind::effect),
                                       std::pair("thumbnail/lut/", LookLink::Kind::lut)}) {
        if (const std::string_view name = nameIn(path, folder); !name.empty()) {
            const LookLink& link = thumbnailLink(kind, std::string(name));
            thumbnails_.fit(thumbnailSteps_);
            const Image::Surface picture = projector_.sample(thumbnails_, Look{.about = {}, .links = {link}},
                                                             fitted(pictureSize(), thumbnailSide));
            const bool isDrawn = thumbnails_.isDrawn(link.id);
            return isDrawn ? std::optional(jpegOf(picture, thumbnailSide)) : std::nullopt;
        }
    }
    return {};
}

Json Session::Worker::doScopes(Client& client, const Message& message)
{
    ScopeWish wish;
    wish.kinds = scopeKinds(message.texts("kinds", 8));
    const std::string of = message.has("of") ? message.text("of", 16) : "after";
    if (of != "after" && of != "before") {
        throw Failure(ExitCode::usage, "\"of\": expected after or before");
    }
    wish.ofBefore = of == "before";
    if (message.has("rate")) {
        wish.pace = ScopePace(message.number("rate", 0.1, 60));
    }
    client.scopes = wish;
    return {};
}

void Session::Worker::sendScopes(Client& client)
{
    ScopeWish& wish = client.scopes;
    wish.stamp = pictureVersion_;
    const auto begin = ScopePace::Clock::now();
    const Image::Surface& picture = wish.ofBefore ? projector_.before() : projector_.after();
    if (!picture.getGPUSurface()) {
        return; // nothing has been drawn yet
    }
    const ClipFrames& clip = projector_.clip();
    const Scene& scene = projector_.scene();
    ScopeSignal signal{.colour = clip.info().colour,
                       .bits = clip.info().bitsPerComponent,
                       .pictureRange = scene.range(),
                       .pictureBits = scene.bits()};
    signal.colour.matrix = clip.colour().matrix;
    signal.colour.range = clip.colour().range;
    const Host::ScopeRequest request = scopeRequest(signal, scopeSizes(wish.kinds));
    const bool isOfClip = wish.ofBefore || projector_.isUnchanged();
    const std::optional<Media::FrameCodes> own = isOfClip ? projector_.clipCodes() : std::nullopt;
    std::optional<Host::ScopeCounts> counts{std::in_place};
    if (!own || wish.kinds.needPicture()) {
        counts = Host::gpuService().countScopes(scene.inCodes(picture).getGPUSurface(), request);
    }
    if (!counts) {
        wish.kinds = {};
        throw Failure(ExitCode::device,
                      device_ + ": cannot count the codes of pictures; there are no scopes");
    }
    if (own) {
        countClip(*own, request, signal.colour.range, *counts);
    }
    Json scopes{{"is", "scopes"},
                {"frame", projector_.frame()},
                {"of", wish.ofBefore ? "before" : "after"},
                {"own", own.has_value()}};
    scopes.update(scopeMessage(wish.kinds, signal, request, *counts));
    tell(client, scopes, iWindow::Kind::scopes);
    wish.pace.counted(begin, ScopePace::Clock::now());
}

} // namespace Qx::Program::Studio
