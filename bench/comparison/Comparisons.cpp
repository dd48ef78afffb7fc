#include "bench/comparison/Comparisons.h"

namespace Qx::Bench {
namespace {

// Methods by the names that participants give them; bars select by these.
constexpr const char* handWritten = "hand-written pass";
constexpr const char* renderer = "renderer";
constexpr const char* oneThread = "one thread";
constexpr const char* allThreads = "all threads";
constexpr const char* allThreadsPlanes = "all threads, planes";

std::string titleOf(const Work& work)
{
    return work.text() + (work.place == Place::Device ? ", on the device" : ", there and back");
}

bool isPassThrough(const Peer::Offer& offer)
{
    return offer.method.starts_with("pass-through");
}

Comparison passThrough(const std::string& program, const Peer& peer, const Peer::Offer& offer,
                       const Work& work)
{
    return {"limits",
            work.text(),
            peer.name() + ", " + offer.method,
            {"ours", offer.work, "ours"},
            {program, offer.work, offer.method},
            1,
            1,
            offer.remark,
            std::nullopt};
}

Comparison ourOwn(const char* title, const char* against, const char* work, const char* one,
                  const char* other, double oneWeight = 1, double otherWeight = 1)
{
    return {"", title, against, {"ours", work, one}, {"ours", work, other}, oneWeight, otherWeight};
}

bool isMethod(const Result& result, const char* program, const std::string& method)
{
    const Contender& theirs = result.comparison.theirs;
    return theirs.program == program && theirs.method.starts_with(method);
}

bool isConversion(const Result& result)
{
    const auto work = workOf(result.comparison.ours.work);
    return work && (work->kind == WorkKind::Decode || work->kind == WorkKind::Encode);
}

bool isZimg(const Result& result, std::string_view method)
{
    return isMethod(result, "zimg", "") && result.comparison.theirs.method == method && isConversion(result);
}

Place placeOf(const Result& result)
{
    return result.comparison.work ? result.comparison.work->place : Place::Device;
}

bool isFiltered(const Result& result)
{
    const auto work = workOf(result.comparison.ours.work);
    return work && work->filter != ChromaFilter::Point && work->filter != ChromaFilter::None;
}

void addBesideOthers(const std::vector<Result>& peers, std::vector<Bar>& bars)
{
    const auto add = [&](const char* text, double least, auto holds) {
        bars.push_back(judge(text, least, peers, holds));
    };
    add("every conversion on the device: 2 times a libplacebo pass written by hand", 2,
        [](const Result& r) { return isMethod(r, "placebo", handWritten) && placeOf(r) == Place::Device; });
    add("every conversion there and back: 2 times the same", 2,
        [](const Result& r) { return isMethod(r, "placebo", handWritten) && placeOf(r) == Place::Memory; });
    add("every conversion: 4 times libplacebo's renderer", 4,
        [](const Result& r) { return isMethod(r, "placebo", renderer); });
    add("every conversion: 4 times Movit", 4, [](const Result& r) { return isMethod(r, "movit", ""); });
    add("upload, conversion and read back: 1.25 times zimg on one core", 1.25,
        [](const Result& r) { return isZimg(r, oneThread); });
    add("upload, conversion and read back: ahead of zimg on all cores", 1,
        [](const Result& r) { return isZimg(r, allThreads); });
    add("the same beside zimg between planes, packing left out: 80 % of it on all cores", 0.8,
        [](const Result& r) { return isZimg(r, allThreadsPlanes); });
    add("upload, conversion and read back: ahead of accurate swscale on all cores", 1,
        [](const Result& r) { return isMethod(r, "swscale", allThreads); });
    add("v210 to 4:2:2 and back: half of FFmpeg's v210 codec between planes, on all cores", 0.5,
        [](const Result& r) { return isMethod(r, "v210", allThreads); });
    const auto look = [](const char* program) {
        return [program](const Result& r) {
            return isMethod(r, program, allThreads) && placeOf(r) == Place::Memory;
        };
    };
    add("look of 33 points, there and back: 3 times FFmpeg's lut3d on as many threads", 3, look("lut3d"));
    add("look of 33 points, there and back: 3 times OpenColorIO on as many threads", 3, look("colourio"));
}

void addBesideLimits(const Measured& measured, std::vector<Bar>& bars)
{
    const auto passes = [](bool filtered) {
        return [filtered](const Result& r) {
            return r.comparison.theirs.method.starts_with("pass-through") && isConversion(r) &&
                   isFiltered(r) == filtered;
        };
    };
    bars.push_back(judge("every point-sampled conversion: 60 % of the best pass that moves the same bytes",
                         0.6, measured.limits, passes(false)));
    bars.push_back(judge("every filtered conversion: 40 % of the same", 0.4, measured.limits, passes(true)));
    for (const char* const direction : {"upload", "download"}) {
        bars.push_back(judge(std::string(direction) + ": 95 % of memcpy", 0.95, measured.limits,
                             [direction](const Result& r) { return r.comparison.ours.method == direction; }));
    }
    if (!measured.softwareDevice) {
        bars.push_back(judge("frames of 2160 lines: 80 % of the device's copy of as many bytes", 0.8,
                             measured.limits,
                             [](const Result& r) { return r.comparison.theirs.work == "frame2160"; }));
    }
}

void addCosts(const Measured& measured, std::vector<Bar>& bars)
{
    bars.push_back(judge("cost per frame grows no faster than the pixels, to 2160 and to 4320 lines", 1,
                         measured.costs, [](const Result& r) { return r.comparison.ours.work == "lines"; }));
    bars.push_back(judge("eight surfaces by eight threads: as fast as by one", 1, measured.costs,
                         [](const Result& r) { return r.comparison.ours.work == "eight"; }));
    bars.push_back(judgeAtMost("one technique application: 5 microseconds on the caller's thread", 5,
                               measured.applicationMicroseconds, " us"));
    bars.push_back(judgeAtMost("one technique application: no allocation by our code", 0,
                               measured.applicationAllocations, " allocations"));
    bars.push_back(judgeAtMost("warm start of 50 effects: 5 % of the cold one", 5, measured.warmShare, " %"));
    Bar cores{"cold start of 50 effects: 1.7 times as fast on two cores as on one", "", Bar::NotMeasured, ""};
    if (measured.secondCore) {
        cores.measured = textOf(*measured.secondCore);
        cores.verdict = measured.secondCore->median >= 1.7 ? Bar::Reached : Bar::NotReached;
    }
    bars.push_back(cores);
}

} // namespace

std::vector<Comparison> besideOther(const std::string& program, const Peer& peer)
{
    std::vector<Comparison> comparisons;
    for (const Peer::Offer& offer : peer.offers()) {
        const auto work = workOf(offer.work);
        if (!work || isPassThrough(offer)) {
            continue;
        }
        Comparison comparison{program,
                              titleOf(*work),
                              peer.name() + ", " + offer.method,
                              {"ours", offer.work, "ours"},
                              {program, offer.work, offer.method},
                              1,
                              1,
                              offer.remark,
                              work};
        comparisons.push_back(comparison);
        if (work->kind == WorkKind::Look) {
            Work onDevice = *work;
            onDevice.place = Place::Device;
            comparison.title = titleOf(onDevice);
            comparison.ours.work = onDevice.key();
            comparison.work = onDevice;
            comparison.remark = "ours without transfers";
            comparisons.push_back(comparison);
        }
    }
    return comparisons;
}

std::vector<Comparison> besideLimits(const Peer& ours, const Peer* placebo)
{
    std::vector<Comparison> comparisons;
    const auto addPasses = [&comparisons](const std::string& program, const Peer& peer) {
        for (const Peer::Offer& offer : peer.offers()) {
            if (const auto work = workOf(offer.work); work && isPassThrough(offer)) {
                comparisons.push_back(passThrough(program, peer, offer, *work));
            }
        }
    };
    addPasses("ours", ours);
    if (placebo != nullptr) {
        addPasses("placebo", *placebo);
    }
    for (const bool deep : {false, true}) {
        const char* const frame = deep ? "frame16" : "frame8";
        const std::string of = deep ? " of an RGB frame, 16 bits" : " of an RGB frame, 8 bits";
        const auto add = [&](const char* what, const char* against) {
            comparisons.push_back(ourOwn((what + of).c_str(), against, frame, what, against));
        };
        add("upload", "memcpy");
        add("download", "memcpy");
        add("device copy", "memcpy");
    }
    // Reads 4:2:2 and writes RGB, 2 and 4 bytes per pixel; a copy reads and writes 4.
    comparisons.push_back({"",
                           "4:2:2 to RGB, 8 bits, Point, 2160 lines, bytes a second",
                           "device copy",
                           {"ours", "lines", "2160"},
                           {"ours", "frame2160", "device copy"},
                           6,
                           8});
    for (Comparison& comparison : comparisons) {
        comparison.part = "limits";
    }
    return comparisons;
}

std::vector<Comparison> ourCosts()
{
    std::vector<Comparison> comparisons{ourOwn("4:2:2 to RGB, 8 bits, 2160 lines, pixels a second",
                                               "1080 lines", "lines", "2160", "1080", 4, 1),
                                        ourOwn("4:2:2 to RGB, 8 bits, 4320 lines, pixels a second",
                                               "1080 lines", "lines", "4320", "1080", 16, 1),
                                        ourOwn("eight surfaces by eight threads, frames a second",
                                               "by one thread", "eight", "eight threads", "one thread")};
    for (Comparison& comparison : comparisons) {
        comparison.part = "costs";
    }
    return comparisons;
}

std::vector<Bar> barsOf(const Measured& measured)
{
    std::vector<Bar> bars;
    addBesideOthers(measured.peers, bars);
    addBesideLimits(measured, bars);
    addCosts(measured, bars);
    return bars;
}

} // namespace Qx::Bench
