#pragma once

#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/studio/picture/Jpeg.h"
#include "tools/qxhost/studio/scopes/ScopeMessage.h"
#include "tools/qxhost/studio/scopes/ScopePace.h"
#include "tools/qxhost/studio/session/Editor.h"
#include "tools/qxhost/studio/session/Message.h"
#include "tools/qxhost/studio/session/Playback.h"
#include "tools/qxhost/studio/session/Projector.h"
#include "tools/qxhost/studio/session/Session.h"
#include "tools/qxhost/studio/session/Survey.h"

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <list>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace Qx::Program::Studio {

/// What a window wants to see.
struct View
{
    enum class Compare
    {
        none,
        wipe,
        side,
        difference
    };

    PictureSize place; ///< in the pixels of the screen
    std::optional<Region> region;
    Compare compare = Compare::none;
    double times = 1;
    std::int64_t against = 0; ///< a still; 0: the picture before the look
    int quality = 80;
};

/// A picture of an earlier moment, to compare with.
struct Still
{
    std::int64_t id = 0;
    std::string name;
    std::int64_t frame = 0;
    Image::Surface picture; ///< on the device
};

/// The thread behind a Session, and everything that it owns. Functions without a comment belong to that
/// thread.
class Session::Worker
{
public:
    Worker(const SessionOptions& options, Console& console);
    ~Worker();
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    /// Ends the thread, and forgets the windows. For the thread that made it.
    void stop();

    /// Runs it on the thread, after what came before; never after stop(). Thread-safe.
    void post(std::function<void()> task);

    void open(const WindowPtr& window);
    void close(const WindowPtr& window);
    void take(const WindowPtr& window, const std::string& text);
    void answerPicture(const std::string& path, const TakeJpeg& done);

private:
    /// Pictures of one kind that a window has been sent.
    struct Channel
    {
        int underWay = 0;        ///< that it has not said to have shown
        std::uint64_t stamp = 0; ///< of what the last one shows
    };

    /// The scopes that a window wants.
    struct ScopeWish
    {
        ScopeKinds kinds;
        bool ofBefore = false;
        std::uint64_t stamp = 0; ///< of the picture that was counted last
        ScopePace pace{};
    };

    struct Client
    {
        WindowPtr window;
        std::optional<View> view;
        std::uint64_t viewVersion = 0;
        std::int64_t change = 0; ///< the highest number of its messages
        std::map<std::string, Channel> channels;
        std::set<std::filesystem::path> read; ///< effect files whose text it has
        bool wantsCatalogue = false;
        ScopeWish scopes;
    };

    /// A file is not as a window believes.
    class Conflict : public Failure
    {
    public:
        using Failure::Failure;
    };

    using Handler = Json (Worker::*)(Client&, const Message&);
    static const std::map<std::string, Handler, std::less<>>& handlers();

    // The loop.
    void run();
    void work();
    std::deque<std::function<void()>> waitForTasks();
    std::chrono::steady_clock::time_point wakeUp() const;
    void advance();
    std::int64_t number() const;
    void lookAtFiles();
    void lookForConflicts();
    void noteLosses();
    void answerNextPicture();

    // Pictures.
    bool wantsPicture(const Client& client) const;
    bool wantsScopes(const Client& client) const;
    void sendScopes(Client& client);
    std::vector<std::string> kindsFor(const View& view) const;
    std::uint64_t stampFor(const Client& client) const;
    void present();
    void drawFrame();
    void serve(Client& client);
    void sendPictures(Client& client);
    void sendPicture(Client& client, const std::string& kind);
    Image::Surface surfaceOf(const std::string& kind) const;
    int reductionFor(const PictureSize& size) const;
    Pixels pixelsOf(const Image::Surface& picture, const PictureSize& size) const;
    Pixels against(const View& view, const PictureSize& size) const;
    const Still* still(std::int64_t id) const;
    PictureSize pictureSize() const;

    // What windows are told.
    Json state() const;
    Json catalogue() const;
    Json clipState() const;
    Json linkState(const LookLink& link) const;
    void sendState(bool always);
    void tell(const Client& client, const Json& message, iWindow::Kind kind);
    void changed() { isStateNew_ = true; }
    void lookChanged();

    // What windows ask for.
    Client* clientOf(const WindowPtr& window);
    Json dispatch(Client& client, const Message& message);
    Json doView(Client&, const Message&);
    Json doShown(Client&, const Message&);
    Json doSeek(Client&, const Message&);
    Json doStep(Client&, const Message&);
    Json doPlay(Client&, const Message&);
    Json doPause(Client&, const Message&);
    Json doRange(Client&, const Message&);
    Json doLoop(Client&, const Message&);
    Json doProxy(Client&, const Message&);
    Json doSet(Client&, const Message&);
    Json doKey(Client&, const Message&);
    Json doUnkey(Client&, const Message&);
    Json doAdd(Client&, const Message&);
    Json doRemove(Client&, const Message&);
    Json doMove(Client&, const Message&);
    Json doSwitch(Client&, const Message&);
    Json doTechnique(Client&, const Message&);
    Json doReset(Client&, const Message&);
    Json doProbe(Client&, const Message&);
    Json doStill(Client&, const Message&);
    Json doUnstill(Client&, const Message&);
    Json doCatalogue(Client&, const Message&);
    Json doScopes(Client&, const Message&);
    Json doRead(Client&, const Message&);
    Json doWrite(Client&, const Message&);
    Json doSave(Client&, const Message&);
    Json doOpen(Client&, const Message&);
    Json doLooks(Client&, const Message&);
    Json doExport(Client&, const Message&);
    Json doUndo(Client&, const Message&);
    Json doRedo(Client&, const Message&);

    const LookLink& thumbnailLink(LookLink::Kind kind, const std::string& name);
    std::optional<std::string> smallPicture(const std::string& path);
    std::filesystem::path editableFile(const Message& message) const;
    Look readLookOfClip(const std::filesystem::path& file) const;
    static Json errorFor(const std::optional<std::int64_t>& id, const Failure& failure);
    bool isEditable(const LookLink& link) const;
    std::uint64_t linkOf(const Message& message) const;
    const Host::CompiledEffect::Parameter& parameterOf(const Message& message) const;
    std::vector<float> valuesOf(const Message& message,
                                const Host::CompiledEffect::Parameter& parameter) const;

    const SessionOptions options_;
    Console& console_;
    Projector projector_;
    Playback playback_;
    Editor editor_;
    JpegEncoder jpeg_;
    std::uint64_t drawVersion_ = 1; ///< of what the look is compiled to
    std::uint64_t pictureVersion_ = 1;
    std::optional<PictureSize> proxy_;
    std::list<Client> clients_;
    std::vector<Still> stills_;
    std::int64_t lastStill_ = 0;
    std::string problem_;                                  ///< of the last drawing; empty if it succeeded
    std::string losses_;                                   ///< what of the clip cannot be read
    std::filesystem::path looks_;                          ///< the folder of looks
    std::string lookFile_;                                 ///< in it; empty before the look is saved
    std::string lookDigest_;                               ///< of the file when it was read or written
    std::set<std::filesystem::path> editable_;             ///< the effect files that windows may write
    std::map<std::filesystem::path, std::string> known_;   ///< digests of effect files that windows have read
    std::deque<std::pair<std::string, TakeJpeg>> waiting_; ///< pictures that are asked for by their addresses
    ChainDrawing thumbnails_;
    Look thumbnailSteps_; ///< that thumbnails_ has compiled
    Survey::Result drawable_;
    std::string device_;
    const bool isSoftware_;
    std::string start_; ///< tells this start of the program from others
    bool isStateNew_ = false;
    std::int64_t toldFrame_ = -1;
    std::chrono::steady_clock::time_point toldAt_;
    std::chrono::steady_clock::time_point filesAt_;
    std::chrono::steady_clock::time_point measuredAt_;

    std::mutex mutex_;
    std::condition_variable wakes_;
    std::deque<std::function<void()>> tasks_;
    bool stops_ = false;
    std::thread thread_;
    Survey survey_; ///< ends before what it posts to
};

} // namespace Qx::Program::Studio
