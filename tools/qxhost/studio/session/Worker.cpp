#include "tools/qxhost/studio/session/Worker.h"

#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/console/Wording.h"
#include "tools/qxhost/pipeline/device/HostSession.h"
#include "tools/qxhost/pipeline/look/LookFile.h"
#include "tools/qxhost/studio/server/Guard.h"
#include "tools/qxhost/studio/session/NamedLinks.h"
#include "tools/qxhost/studio/session/TextFiles.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <utility>

namespace Qx::Program::Studio {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

/// How often files are looked at, and the time of each step is measured while it plays.
constexpr milliseconds filesPeriod{250};
constexpr milliseconds measurePeriod{500};

/// Pictures of a kind that a window may have to show still.
constexpr int mostUnderWay = 2;

/// Bytes that may wait for a window before it gets no more pictures and states.
constexpr std::size_t mostWaitingBytes = std::size_t{4} << 20U;

/// Four bytes of the header's length, the header, and a JPEG.
std::shared_ptr<const std::string> framed(const Json& header, const std::string& jpeg)
{
    const std::string text = header.dump(-1, ' ', false, Json::error_handler_t::replace);
    auto bytes = std::make_shared<std::string>();
    bytes->reserve(4 + text.size() + jpeg.size());
    for (unsigned shift = 0; shift < 32; shift += 8) {
        bytes->push_back(static_cast<char>((text.size() >> shift) & 0xFFU));
    }
    return (*bytes += text) += jpeg, bytes;
}

/// What nobody says of the clip's colours, for people; empty if they are known.
std::string guessNote(const ClipFrames& clip)
{
    const ColourChoice& colour = clip.colour();
    std::vector<std::string> tags;
    std::vector<std::string> guesses;
    if (colour.matrixGuessed) {
        tags.emplace_back("matrix");
        guesses.emplace_back(nameOf(colour.matrix));
    }
    if (colour.rangeGuessed) {
        tags.emplace_back("range");
        guesses.push_back(std::string(nameOf(colour.range)) + " range");
    }
    return tags.empty()
               ? ""
               : clip.file().string() + ": has no tag for its " + listed(tags, "and") + "; assuming " +
                     listed(guesses, "and") + "; 'qxhost convert' takes others with --matrix and --range";
}

/// What is not done that the clip asks players for; empty if it asks for nothing.
std::string turnNote(const ClipFrames& clip)
{
    return !clip.isLeftUnturned()
               ? ""
               : clip.file().string() + ": players turn or flip it, and here it is as it lies in the file; "
                                        "--rotate shows it as they do";
}

int scaled(int value, double scale)
{
    return std::max(1, static_cast<int>(std::lround(value * scale)));
}

/// The region of the whole, at that scale and within a picture of that size.
Region scaledRegion(const Region& region, double scale, const PictureSize& size)
{
    Region result{static_cast<int>(std::lround(region.x * scale)),
                  static_cast<int>(std::lround(region.y * scale)), scaled(region.width, scale),
                  scaled(region.height, scale)};
    result.x = std::clamp(result.x, 0, size.width - 1);
    result.y = std::clamp(result.y, 0, size.height - 1);
    result.width = std::min(result.width, size.width - result.x);
    result.height = std::min(result.height, size.height - result.y);
    return result;
}

} // namespace

Session::Worker::Worker(const SessionOptions& options, Console& console)
    : options_(options),
      console_(console),
      projector_(options.clip, options.rotates),
      playback_(projector_.clip().info().isStill ? 0 : projector_.clip().info().frameRate.toDouble(),
                projector_.clip().count()),
      thumbnails_(projector_.input()),
      device_(deviceName()),
      isSoftware_(deviceIsSoftware()),
      start_(makeToken().substr(0, 16))
{
    std::error_code error;
    looks_ = options.looks.empty() ? std::filesystem::current_path(error) : options.looks;
    if (!std::filesystem::is_directory(looks_, error)) {
        throw Failure(ExitCode::usage, "--looks " + looks_.string() + ": is no folder");
    }
    Look look;
    if (!options.look.empty()) {
        look = readLookOfClip(options.look);
        const std::string name = options.look.filename().string();
        if (name.ends_with(lookEnding) && std::filesystem::equivalent(looks_ / name, options.look, error)) {
            lookFile_ = name; // which saving writes
            lookDigest_ = readText(options.look).digest;
        }
    }
    for (const std::string& word : options.effects) {
        look.links.push_back(linkNamed(word));
        const std::filesystem::path file = look.links.back().file;
        if (look.links.back().kind == LookLink::Kind::effect && file.is_absolute()) {
            editable_.insert(file);
        }
    }
    editor_.start(std::move(look));
    lookChanged();
    drawFrame();
    if (!problem_.empty()) {
        throw Failure(ExitCode::input, problem_);
    }
    for (const std::string& note : {guessNote(projector_.clip()), turnNote(projector_.clip())}) {
        if (!note.empty()) {
            console_.note(note);
        }
    }
    thread_ = std::thread([this] { run(); });
}

Session::Worker::~Worker()
{
    stop();
}

void Session::Worker::stop()
{
    std::deque<std::function<void()>> dropped;
    {
        const std::lock_guard lock(mutex_);
        stops_ = true;
        dropped.swap(tasks_);
    }
    wakes_.notify_one();
    if (thread_.joinable()) {
        thread_.join();
    }
    clients_.clear();
    waiting_.clear();
}

void Session::Worker::post(std::function<void()> task)
{
    {
        const std::lock_guard lock(mutex_);
        if (stops_) {
            return;
        }
        tasks_.push_back(std::move(task));
    }
    wakes_.notify_one();
}

std::chrono::steady_clock::time_point Session::Worker::wakeUp() const
{
    Clock::time_point next = filesAt_ + filesPeriod;
    for (const Client& client : clients_) {
        if (wantsPicture(client)) {
            return Clock::now();
        }
        if (wantsScopes(client)) {
            next = std::min(next, client.scopes.pace.due());
        }
    }
    if (playback_.isPlaying()) {
        next = std::min(next, playback_.nextDue());
    }
    if (isStateNew_ || !waiting_.empty()) {
        next = Clock::now();
    }
    return next;
}

std::deque<std::function<void()>> Session::Worker::waitForTasks()
{
    const Clock::time_point until = wakeUp();
    std::unique_lock lock(mutex_);
    wakes_.wait_until(lock, until, [&] { return stops_ || !tasks_.empty(); });
    return std::exchange(tasks_, {});
}

void Session::Worker::run()
{
    while (true) {
        const std::deque<std::function<void()>> tasks = waitForTasks();
        {
            const std::lock_guard lock(mutex_);
            if (stops_) {
                return;
            }
        }
        try {
            for (const std::function<void()>& task : tasks) {
                task();
            }
            work();
        } catch (const std::exception& error) { // such as exhausted memory, which may pass
            problem_ = error.what();
            changed();
            std::this_thread::sleep_for(filesPeriod);
        }
    }
}

void Session::Worker::work()
{
    lookAtFiles();
    advance();
    present();
    sendState(false);
    answerNextPicture();
}

/// The number of the current frame, as effects and key frames count.
std::int64_t Session::Worker::number() const
{
    return projector_.frame() == playback_.frame() ? projector_.number() : playback_.frame();
}

void Session::Worker::advance()
{
    if (clients_.empty()) {
        playback_.pause();
    }
    const bool wasPlaying = playback_.isPlaying();
    if (playback_.advance(Clock::now())) {
        ++pictureVersion_;
    } else if (wasPlaying && !playback_.isPlaying()) {
        changed();
    }
}

void Session::Worker::lookAtFiles()
{
    const Clock::time_point now = Clock::now();
    if (now < filesAt_ + filesPeriod) {
        return;
    }
    if (projector_.chain().recompileChanged()) {
        ++drawVersion_;
        ++pictureVersion_;
        changed();
    }
    if (projector_.forgetIfChanged()) {
        playback_.setCount(projector_.count());
        ++pictureVersion_;
        changed();
    }
    noteLosses();
    lookForConflicts();
    filesAt_ = Clock::now();
}

void Session::Worker::noteLosses()
{
    const std::string losses = projector_.losses();
    if (losses != losses_) {
        if (!problem_.empty() && problem_ == losses_) { // there is one more, or one less
            problem_ = losses;
        }
        losses_ = losses;
        changed();
    }
}

void Session::Worker::lookChanged()
{
    projector_.chain().fit(editor_.look());
    ++drawVersion_;
    ++pictureVersion_;
    changed();
}

std::uint64_t Session::Worker::stampFor(const Client& client) const
{
    return (pictureVersion_ << 24U) + (client.viewVersion & 0xFFFFFFU);
}

std::vector<std::string> Session::Worker::kindsFor(const View& view) const
{
    switch (view.compare) {
    case View::Compare::wipe:
    case View::Compare::side:
        return {"after", "before"};
    case View::Compare::difference:
        return {"difference"};
    case View::Compare::none:
        break;
    }
    return {"after"};
}

bool Session::Worker::wantsPicture(const Client& client) const
{
    if (!client.view || client.window->backlog() > mostWaitingBytes) {
        return false;
    }
    const std::vector<std::string> kinds = kindsFor(*client.view);
    return std::any_of(kinds.begin(), kinds.end(), [&](const std::string& kind) {
        const auto found = client.channels.find(kind);
        return found == client.channels.end() ||
               (found->second.stamp != stampFor(client) && found->second.underWay < mostUnderWay);
    });
}

void Session::Worker::drawFrame()
{
    const Clock::time_point now = Clock::now();
    const bool measures = !playback_.isPlaying() || now > measuredAt_ + measurePeriod;
    if (measures) {
        measuredAt_ = now;
    }
    const std::uint64_t news = projector_.chain().news();
    const std::int64_t since = projector_.since();
    std::string problem;
    try {
        projector_.show({.frame = playback_.frame(), .version = drawVersion_, .measures = measures},
                        editor_.look());
    } catch (const Failure& failure) {
        problem = failure.what();
        playback_.hold();
    }
    if (problem.empty()) {
        const bool wasPlaying = playback_.isPlaying();
        playback_.resume(now);
        isStateNew_ = isStateNew_ || playback_.isPlaying() != wasPlaying;
    }
    if (problem != problem_ || projector_.chain().news() != news || projector_.since() != since) {
        problem_ = problem;
        changed();
    }
    noteLosses();
    const std::optional<std::int64_t> count = projector_.count();
    if (problem_.empty() && projector_.frame() < playback_.frame()) { // the clip is shorter than it says
        playback_.setCount(count);
        changed();
    }
}

bool Session::Worker::wantsScopes(const Client& client) const
{
    return client.scopes.kinds.any() && client.scopes.stamp != pictureVersion_ &&
           client.window->backlog() <= mostWaitingBytes;
}

void Session::Worker::present()
{
    const Clock::time_point now = Clock::now();
    const auto isServed = [&](const Client& client) {
        return wantsPicture(client) || (wantsScopes(client) && client.scopes.pace.due() <= now);
    };
    std::vector<Client*> served;
    for (Client& client : clients_) {
        if (isServed(client)) {
            served.push_back(&client);
        }
    }
    if (served.empty()) {
        return;
    }
    drawFrame();
    for (Client* const client : served) {
        serve(*client);
    }
}

void Session::Worker::serve(Client& client)
{
    try {
        if (wantsPicture(client)) {
            sendPictures(client);
        }
        if (wantsScopes(client) && client.scopes.pace.due() <= Clock::now()) {
            sendScopes(client);
        }
    } catch (const Failure& failure) {
        problem_ = failure.what();
        changed();
        client.scopes.stamp = pictureVersion_;
        for (const std::string& kind : client.view ? kindsFor(*client.view) : std::vector<std::string>()) {
            client.channels[kind].stamp = stampFor(client);
        }
    }
}

void Session::Worker::sendPictures(Client& client)
{
    for (const std::string& kind : kindsFor(*client.view)) {
        Channel& channel = client.channels[kind];
        if (channel.stamp == stampFor(client) || channel.underWay >= mostUnderWay) {
            continue;
        }
        channel.stamp = stampFor(client);
        if (!projector_.after().getGPUSurface()) {
            continue; // nothing has been drawn yet
        }
        sendPicture(client, kind);
        ++channel.underWay;
    }
}

PictureSize Session::Worker::pictureSize() const
{
    return {static_cast<int>(projector_.after().getWidth()),
            static_cast<int>(projector_.after().getHeight())};
}

const Still* Session::Worker::still(std::int64_t id) const
{
    const auto found =
        std::find_if(stills_.begin(), stills_.end(), [&](const Still& each) { return each.id == id; });
    return found == stills_.end() ? nullptr : &*found;
}

/// What is compared with, at that size.
Pixels Session::Worker::against(const View& view, const PictureSize& size) const
{
    const Still* const kept = view.against == 0 ? nullptr : still(view.against);
    if (kept != nullptr) {
        const PictureSize own{static_cast<int>(kept->picture.getWidth()),
                              static_cast<int>(kept->picture.getHeight())};
        const bool isLarger = size.width <= own.width && size.height <= own.height;
        const HostPixels read =
            projector_.scene().bytes(isLarger ? Scene::shrunk(kept->picture, size) : kept->picture);
        const int n = isSoftware_ ? reductionFor(size) : 1;
        const PictureSize whole = isSoftware_ ? pictureSize() : size;
        return resized(read.view, whole.width / n, whole.height / n);
    }
    return pixelsOf(projector_.before(), size);
}

bool Session::Worker::isEditable(const LookLink& link) const
{
    return link.kind == LookLink::Kind::effect && editable_.contains(link.file);
}

/// By how much pictures are reduced here for that size: to it, or to something somewhat larger, since a
/// device that is the CPU takes longer to reduce a picture than the browser does.
int Session::Worker::reductionFor(const PictureSize& size) const
{
    const PictureSize whole = pictureSize();
    return std::max(1, std::min(whole.width / size.width, whole.height / size.height));
}

/// A picture in host memory at that size, or somewhat larger.
Pixels Session::Worker::pixelsOf(const Image::Surface& picture, const PictureSize& size) const
{
    const Scene& scene = projector_.scene();
    return isSoftware_ ? reduced(scene.bytes(picture).view, reductionFor(size))
                       : copyOf(scene.bytes(Scene::shrunk(picture, size)).view);
}

void Session::Worker::sendPicture(Client& client, const std::string& kind)
{
    const View& view = *client.view;
    const Media::StreamInfo& info = projector_.clip().info();
    const Region region = view.region.value_or(Region{0, 0, info.width, info.height});
    const PictureSize whole = pictureSize();
    const double proxied = static_cast<double>(whole.width) / info.width;
    const double scale = std::min(
        {1.0, view.place.width / (region.width * proxied), view.place.height / (region.height * proxied)});
    const PictureSize size{std::min(scaled(whole.width, scale), whole.width),
                           std::min(scaled(whole.height, scale), whole.height)};

    const Clock::time_point begin = Clock::now();
    Pixels held = kind == "before" ? against(view, size) : pixelsOf(projector_.after(), size);
    const Region part =
        scaledRegion(region, static_cast<double>(held.width) / info.width, {held.width, held.height});
    PixelView shown = held.view().part(part);
    if (kind == "difference") {
        const Pixels other = against(view, size);
        held = differenceOf(shown, other.view().part(part), view.times);
        shown = held.view();
    }
    const Clock::time_point drawn = Clock::now();
    const std::string jpeg = jpeg_.encode(shown, view.quality);
    const auto spent = [](Clock::time_point from, Clock::time_point to) {
        return std::round(std::chrono::duration<double, std::milli>(to - from).count() * 100) / 100;
    };
    const Json header{{"is", "picture"},
                      {"of", kind},
                      {"frame", projector_.frame()},
                      {"width", shown.width},
                      {"height", shown.height},
                      {"region", {region.x, region.y, region.width, region.height}},
                      {"milliseconds",
                       {{"decode", std::round(projector_.times().decode * 100) / 100},
                        {"draw", std::round(projector_.times().draw * 100) / 100 + spent(begin, drawn)},
                        {"encode", spent(drawn, Clock::now())}}},
                      {"answers", client.change}};
    client.window->sendBytes(framed(header, jpeg));
}

} // namespace Qx::Program::Studio
