#include "bench/comparison/Page.h"

#include <fmt/format.h>

#include <algorithm>

namespace Qx::Bench {
namespace {

std::string rateText(double rate)
{
    return rate >= 100 ? fmt::format("{:.0f}", rate) : fmt::format("{:.1f}", rate);
}

std::string differenceText(const Result& result)
{
    if (!result.comparison.work) {
        return "";
    }
    if (!result.difference) {
        return "not seen";
    }
    if (result.difference->largest == 0) {
        return "none";
    }
    return fmt::format("{} in {:.3g} %", result.difference->largest, result.difference->share * 100);
}

const char* fasterText(const Result& result)
{
    if (!result.otherwise().empty()) {
        return "not counted";
    }
    return result.ratio->median > 1 ? "yes" : "no";
}

void addIntroduction(const Page& page, std::string& text)
{
    text += "# Performance\n\nWritten by `bench/compare`; do not edit. ";
    text += fmt::format(
        "Two that are compared do the same work on the same frames of 1920 x 1080 in turn, {} rounds of {} s "
        "each; a ratio is the median over the rounds of ours to theirs, with the quartiles behind it, and "
        "above 1 where ours is faster. Compare figures of one run only.\n\n",
        page.rounds, page.seconds);
    text += "Machine: " + page.machine + "\n\nDevice: " + page.device + "\n\n";
    if (page.pingPong) {
        text +=
            fmt::format("A word from one thread to another and back, once a round: {:.0f} ns in the median, "
                        "{:.0f} to {:.0f} ns. Where that varies by more than a few times, the machine "
                        "moved its cores meanwhile, and what two threads did together varies with it.\n\n",
                        page.pingPong->median, page.pingPong->smallest, page.pingPong->largest);
    }
}

void addParticipants(const Page& page, std::string& text)
{
    if (!page.participants.empty()) {
        text += "Took part:\n\n";
        for (const std::string& participant : page.participants) {
            text += "- " + participant + '\n';
        }
        text += '\n';
    }
    if (!page.absences.empty()) {
        text += "Did not take part:\n\n";
        for (const Absence& absence : page.absences) {
            text += "- " + absence.name + ": " + absence.why +
                    (absence.packages.empty() ? "" : "; `apt-get install " + absence.packages + '`') + '\n';
        }
        text += '\n';
    }
}

void addBars(const Page& page, std::string& text)
{
    if (page.bars.empty()) {
        return;
    }
    text += "## What is asked\n\nWhat stands in the way of what is not reached: [speed](speed.md).\n\n| "
            "asked | measured | | |\n|---|---|---|---|\n";
    for (const Bar& bar : page.bars) {
        const char* const verdict = bar.verdict == Bar::Reached      ? "reached"
                                    : bar.verdict == Bar::NotReached ? "**not reached**"
                                                                     : "not measured";
        text += fmt::format("| {} | {} | {} | {} |\n", bar.text, bar.measured, verdict, bar.remark);
    }
    text += '\n';
}

void addPeers(const Page& page, std::string& text)
{
    if (page.peers.empty()) {
        return;
    }
    std::size_t same = 0;
    std::size_t faster = 0;
    for (const Result& result : page.peers) {
        if (result.ratio && result.otherwise().empty()) {
            ++same;
            faster += result.ratio->median > 1 ? 1U : 0U;
        }
    }
    text += "## Beside others\n\n";
    text += fmt::format(
        "Of the same work ours is faster in {} of {}. What is not the same work is never counted: the last "
        "column says why. *Apart* is by how many codes at most the two results for one test frame differ, "
        "and "
        "in how many components; one code (two of 16 bits) is rounding.\n\n",
        faster, same);
    text += "| work | beside | ours | theirs | ratio | apart | faster | "
            "|\n|---|---|---:|---:|---:|---|---|---|\n";
    for (const Result& result : page.peers) {
        const Comparison& c = result.comparison;
        if (!result.ratio) {
            text +=
                fmt::format("| {} | {} | | | | | | not measured: {} |\n", c.title, c.against, result.failure);
            continue;
        }
        text +=
            fmt::format("| {} | {} | {} | {} | {} | {} | {} | {} |\n", c.title, c.against,
                        rateText(result.ourMedian()), rateText(result.theirMedian()), textOf(*result.ratio),
                        differenceText(result), fasterText(result), result.otherwise());
    }
    text += "\nFrames a second.\n\n";
}

/// A table of ratios without the results of others.
void addRatios(const std::vector<Result>& results, const char* heading, std::string& text)
{
    if (results.empty()) {
        return;
    }
    text += heading;
    text += "\n\n| what | against | rate | against | ratio |\n|---|---|---:|---:|---:|\n";
    for (const Result& result : results) {
        const Comparison& c = result.comparison;
        text += result.ratio
                    ? fmt::format("| {} | {} | {} | {} | {} |\n", c.title, c.against,
                                  rateText(result.ourMedian() / c.ourWeight),
                                  rateText(result.theirMedian() / c.theirWeight), textOf(*result.ratio))
                    : fmt::format("| {} | {} | | | not measured: {} |\n", c.title, c.against, result.failure);
    }
    text += '\n';
}

void addAbsolutes(const Page& page, std::string& text)
{
    if (page.absolutes.empty()) {
        return;
    }
    text += "| cost | | |\n|---|---:|---|\n";
    for (const Cost& cost : page.absolutes) {
        text += fmt::format("| {} | {} {} | {} |\n", cost.title, textOf(cost.spread), cost.unit, cost.note);
    }
    text += '\n';
}

} // namespace

std::string markdownOf(const Page& page)
{
    std::string text;
    addIntroduction(page, text);
    addParticipants(page, text);
    addBars(page, text);
    if (!page.plotName.empty()) {
        text += "![The ratios](" + page.plotName + ")\n\n";
    }
    addPeers(page, text);
    addRatios(
        page.limits,
        "## Beside the limits\n\nFrames a second. A ratio of 1 is the limit itself; some limits have ways "
        "around them: a software device shares its images' memory with the host, so that frames are uploaded "
        "and read back without a copy.",
        text);
    addRatios(page.costs, "## Sizes, threads and starts\n\nRatios are by what each row says.", text);
    addAbsolutes(page, text);
    if (!page.start.empty()) {
        text +=
            "## Starting with a catalogue of effects\n\nEach start is a process of its own. The first one "
            "finds all caches empty, the driver's too.\n\n" +
            page.start + '\n';
    }
    text += page.figures;
    while (text.ends_with("\n\n")) {
        text.pop_back();
    }
    return text;
}

} // namespace Qx::Bench
