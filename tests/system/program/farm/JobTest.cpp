// A job from its making to its end, whatever happens in between.

#include "tests/system/program/farm/FarmTest.h"

#include <chrono>
#include <csignal>
#include <fstream>
#include <thread>

namespace Qx::System {

namespace {

class Jobs : public FarmTest
{
protected:
    void SetUp() override
    {
        FarmTest::SetUp();
        makeClip("clip.mov");
    }

    /// The piece's file, and when it was written.
    std::string pieceFile(int piece) const
    {
        const auto record =
            nlohmann::json::parse(std::ifstream(at("film.job/pieces/000" + std::to_string(piece) + ".json")));
        return record["files"][0]["path"];
    }

    /// Waits until an unfinished file lies in a folder; false if the program ends before.
    bool waitForPart(Running& program, const std::string& folder) const
    {
        while (program.isRunning()) {
            for (const auto& entry : fs::directory_iterator(at(folder))) {
                if (entry.path().filename().string().find(".part-") != std::string::npos) {
                    return true;
                }
            }
        }
        return false;
    }

    void expectGradedIsOneRun(const Words& arguments, const std::string& job = "film.job") const
    {
        convert("clip.mov", "one.mov", arguments);
        EXPECT_EQ(packets(job + "/graded.mov"), packets("one.mov"));
        fs::remove(at("one.mov"));
    }
};

TEST_F(Jobs, pieces_are_made_one_by_one_in_any_order_and_joined)
{
    write("film.cube", "LUT_3D_SIZE 2\n0.1 0 0\n1 0 0.1\n0 1 0\n1 1 0\n0 0 1\n1 0 1\n0 1 1\n1 1 0.9\n");
    const Words look{"--effect", "cc3.fx",    "--set",     "gain=1.1",
                     "--lut",    "film.cube", "--burn-in", "{timecode} {clip}"};
    Words arguments = look;
    arguments.insert(arguments.end(), {"--segments", "3"});
    makeJob(arguments);
    for (const char* piece : {"2", "0", "1"}) {
        EXPECT_EQ(qxhost({"farm", "join", "film.job/job.json"}).exitCode, 3) << "before all are done";
        const Outcome outcome = qxhost({"farm", "run-piece", "film.job/job.json", piece});
        EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
    }
    EXPECT_EQ(status()["done"], 3);
    EXPECT_EQ(status()["joined"], false);
    const Outcome joined = qxhost({"farm", "join", "film.job/job.json"});
    EXPECT_EQ(joined.exitCode, 0) << joined.err;
    EXPECT_EQ(status()["joined"], true);
    expectGradedIsOneRun(look);
    EXPECT_EQ(qxhost({"farm", "join", "film.job", "--output", "other.mkv"}).exitCode, 4) << "pieces are .mov";
    const Outcome over = qxhost({"farm", "join", "film.job", "--output", "clip.mov", "--force"});
    EXPECT_EQ(over.exitCode, 4) << "it is the input: " << over.err;
    EXPECT_EQ(qxhost({"farm", "run-piece", "film.job", "one"}).exitCode, 2);
    EXPECT_EQ(qxhost({"farm", "run-piece", "film.job"}).exitCode, 2);
    EXPECT_EQ(qxhost({"farm", "run-piece", "film.job", "3"}).exitCode, 2) << "there is none";
}

TEST_F(Jobs, what_is_done_is_not_done_again)
{
    makeJob({"--segments", "2"});
    ASSERT_EQ(qxhost({"farm", "run", "film.job", "--jobs", "2"}).exitCode, 0);
    const std::string file = pieceFile(0);
    const auto written = fs::last_write_time(at("film.job/graded.mov"));
    const Outcome again = qxhost({"farm", "run-piece", "film.job", "0"});
    EXPECT_EQ(again.exitCode, 0) << again.err;
    EXPECT_NE(again.err.find("piece 0 is done"), std::string::npos) << again.err;
    EXPECT_EQ(pieceFile(0), file);
    EXPECT_EQ(qxhost({"farm", "resume", "film.job"}).exitCode, 0);
    EXPECT_EQ(fs::last_write_time(at("film.job/graded.mov")), written);
    EXPECT_EQ(qxhost({"farm", "verify", "film.job"}).exitCode, 0);
    fs::remove(at("film.job/joined.json"));
    EXPECT_EQ(qxhost({"farm", "resume", "film.job"}).exitCode, 0)
        << "the join was killed before it noted its end";
    EXPECT_EQ(status()["joined"], true);
}

TEST_F(Jobs, a_damaged_or_missing_piece_is_told_and_made_again)
{
    makeJob({"--segments", "3"});
    ASSERT_EQ(qxhost({"farm", "run", "film.job", "--jobs", "2"}).exitCode, 0);
    const std::string damaged = "film.job/pieces/" + pieceFile(1);
    std::string bytes = read(at(damaged));
    bytes[bytes.size() / 2] = static_cast<char>(bytes[bytes.size() / 2] + 1);
    write(damaged, bytes);
    fs::remove(at("film.job/pieces") / pieceFile(2));
    const Outcome verified = qxhost({"farm", "verify", "film.job"});
    EXPECT_EQ(verified.exitCode, 1) << verified.err;
    EXPECT_NE(verified.err.find("piece 1: "), std::string::npos) << verified.err;
    EXPECT_NE(verified.err.find("piece 2: "), std::string::npos) << verified.err;
    EXPECT_EQ(verified.err.find("piece 0: "), std::string::npos) << verified.err;
    const Outcome joined = qxhost({"farm", "join", "film.job", "--force"});
    EXPECT_EQ(joined.exitCode, 3) << joined.err;
    EXPECT_NE(joined.err.find("pieces 1-2 of 0-2 are missing or damaged"), std::string::npos) << joined.err;
    EXPECT_EQ(qxhost({"farm", "run-piece", "film.job", "1"}).exitCode, 0);
    fs::remove(at("film.job/graded.mov"));
    EXPECT_EQ(qxhost({"farm", "resume", "film.job"}).exitCode, 0);
    EXPECT_EQ(qxhost({"farm", "verify", "film.job"}).exitCode, 0);
    expectGradedIsOneRun({});
}

TEST_F(Jobs, resume_makes_a_piece_again_whose_bytes_have_changed)
{
    makeJob({"--segments", "2"});
    const auto damage = [this](const std::string& file) {
        std::string bytes = read(at(file));
        bytes[bytes.size() / 2] = static_cast<char>(bytes[bytes.size() / 2] + 1);
        write(file, bytes);
    };
    for (const char* piece : {"0", "1"}) {
        ASSERT_EQ(qxhost({"farm", "run-piece", "film.job", piece}).exitCode, 0);
    }
    damage("film.job/pieces/" + pieceFile(1));
    EXPECT_EQ(qxhost({"farm", "join", "film.job"}).exitCode, 3);
    EXPECT_EQ(qxhost({"farm", "resume", "film.job"}).exitCode, 0);
    EXPECT_EQ(qxhost({"farm", "verify", "film.job"}).exitCode, 0);
    damage("film.job/pieces/" + pieceFile(0));
    EXPECT_EQ(qxhost({"farm", "verify", "film.job"}).exitCode, 1) << "though it is joined";
    EXPECT_EQ(qxhost({"farm", "resume", "film.job"}).exitCode, 0);
    EXPECT_EQ(qxhost({"farm", "verify", "film.job"}).exitCode, 0);
    expectGradedIsOneRun({});
}

TEST_F(Jobs, verify_reads_what_was_joined)
{
    makeJob({"--segments", "2"});
    ASSERT_EQ(qxhost({"farm", "run", "film.job"}).exitCode, 0);
    const auto expectFound = [this](const std::string& job, const std::string& file) {
        const Outcome found = qxhost({"farm", "verify", job});
        EXPECT_EQ(found.exitCode, 1) << found.err;
        EXPECT_NE(found.err.find(file + ": is "), std::string::npos) << found.err;
        EXPECT_NE(found.err.find("farm join --force"), std::string::npos) << found.err;
        EXPECT_EQ(qxhost({"farm", "join", job, "--force"}).exitCode, 0);
        EXPECT_EQ(qxhost({"farm", "verify", job}).exitCode, 0);
    };
    const std::string good = read(at("film.job/graded.mov"));
    std::string bad = good;
    bad[bad.size() / 2] = static_cast<char>(bad[bad.size() / 2] + 1);
    for (const std::string& bytes : {bad, good.substr(0, 1000)}) {
        write("film.job/graded.mov", bytes);
        expectFound("film.job", "graded.mov");
        EXPECT_EQ(read(at("film.job/graded.mov")), good);
    }
    const Outcome made = qxhost({"farm", "make", "clip.mov", "shot_%04d.png", "--job", "shots.job",
                                 "--segments", "2", "--frames", "4"});
    ASSERT_EQ(made.exitCode, 0) << made.err;
    ASSERT_EQ(qxhost({"farm", "run", "shots.job"}).exitCode, 0);
    const std::string picture = read(at("shots.job/shot_0003.png"));
    fs::remove(at("shots.job/shot_0003.png"));
    expectFound("shots.job", "shot_0003.png");
    fs::remove(at("shots.job/shot_0003.png")); // a name of the piece's file
    write("shots.job/shot_0003.png", picture + "x");
    expectFound("shots.job", "shot_0003.png");
}

TEST_F(Jobs, nothing_is_submitted_once_it_is_joined)
{
    makeJob({"--segments", "2"});
    ASSERT_EQ(qxhost({"farm", "run", "film.job"}).exitCode, 0);
    const Outcome outcome = qxhost({"farm", "submit", "film.job", "--slurm", "--json"});
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
    EXPECT_NE(outcome.err.find("is joined already; nothing is submitted"), std::string::npos) << outcome.err;
    EXPECT_EQ(nlohmann::json::parse(outcome.out)["joined"], true);
}

TEST_F(Jobs, a_job_goes_on_after_all_of_it_was_killed_and_in_another_directory)
{
    using namespace std::chrono_literals;
    makeJob({"--segments", "6", "--copy-input"});
    {
        Running running({programPath(), "farm", "run", "film.job", "--jobs", "2"}, directory_);
        for (int i = 0; i < 1200 && running.isRunning() && !fs::exists(at("film.job/pieces/0001.json"));
             ++i) {
            std::this_thread::sleep_for(10ms);
        }
        running.signalChildren(SIGKILL);
        running.signal(SIGKILL);
        running.wait();
    }
    EXPECT_FALSE(fs::exists(at("film.job/graded.mov")));
    fs::create_directory(at("elsewhere"));
    fs::rename(at("film.job"), at("elsewhere/moved.job"));
    fs::rename(at("clip.mov"), at("kept.mov"));
    const Outcome resumed = qxhost({"farm", "resume", "elsewhere/moved.job"});
    EXPECT_EQ(resumed.exitCode, 0) << resumed.err;
    fs::rename(at("kept.mov"), at("clip.mov"));
    expectGradedIsOneRun({}, "elsewhere/moved.job");
    for (const auto& entry : fs::directory_iterator(at("elsewhere/moved.job/pieces"))) {
        EXPECT_EQ(entry.path().filename().string().find(".part-"), std::string::npos) << "left behind";
    }
}

TEST_F(Jobs, a_worker_that_is_killed_is_tried_again)
{
    ffmpeg({"-stream_loop", "10", "-i", "clip.mov", "-c", "copy", "-an", "long.mov"});
    fs::rename(at("long.mov"), at("clip.mov"));
    makeJob({"--segments", "4"});
    Running running({programPath(), "farm", "run", "film.job", "--jobs", "2"}, directory_);
    EXPECT_TRUE(waitForPart(running, "film.job/pieces"));
    EXPECT_GT(running.signalChildren(SIGKILL), 0);
    const Outcome outcome = running.wait();
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
    EXPECT_NE(outcome.err.find("was killed; it is made again"), std::string::npos) << outcome.err;
    expectGradedIsOneRun({});
}

TEST_F(Jobs, a_piece_that_fails_is_named_with_the_reason_and_leaves_the_others_alone)
{
    const Words large{"--format", "b48r", "--resize", "640x"};
    Words arguments = large;
    arguments.insert(arguments.end(), {"--segments", "2"});
    makeJob(arguments);
    const Outcome failed = withFilesUpTo32MiB("farm run-piece film.job 1");
    EXPECT_EQ(failed.exitCode, 4) << failed.err;
    EXPECT_EQ(qxhost({"farm", "run-piece", "film.job", "0"}).exitCode, 0);
    const auto known = status();
    ASSERT_EQ(known["pieces"].size(), 2U);
    EXPECT_EQ(known["pieces"][0]["state"], "done");
    EXPECT_EQ(known["pieces"][1]["state"], "failed");
    EXPECT_EQ(known["pieces"][1]["exitCode"], 4);
    EXPECT_NE(known["pieces"][1]["message"].get<std::string>().find("cannot write"), std::string::npos);
    EXPECT_NE(qxhost({"farm", "status", "film.job"}).out.find("failed: piece 1 on "), std::string::npos);
    EXPECT_EQ(qxhost({"farm", "resume", "film.job"}).exitCode, 0);
    EXPECT_EQ(status()["pieces"][1]["state"], "done");
    expectGradedIsOneRun(large);
}

TEST_F(Jobs, the_date_is_the_local_one_of_its_making)
{
    // A day apart.
    for (const char* zone : {"TZ=AAA-14", "TZ=BBB+10"}) {
        const auto today = [&] { return run({"env", zone, "date", "+--date=%FT"}).out.substr(0, 18); };
        const std::string before = today();
        const Outcome made = run({"env", zone, programPath(), "farm", "make", "clip.mov", "graded.mov",
                                  "--job", zone, "--burn-in", "{date}"});
        ASSERT_EQ(made.exitCode, 0) << made.err;
        const auto manifest = nlohmann::json::parse(std::ifstream(at(zone) / "job.json"));
        const std::string date = manifest["arguments"][0];
        EXPECT_TRUE(date.substr(0, 18) == before || date.substr(0, 18) == today()) << date << " " << before;
        EXPECT_EQ(date.size(), before.size() + 8) << date;
    }
}

TEST_F(Jobs, the_end_of_a_log_tells_why_a_piece_is_missing)
{
    makeJob({"--segments", "3"});
    EXPECT_EQ(qxhost({"farm", "status", "film.job"}).out.find("logs/"), std::string::npos);
    write("film.job/logs/piece-0.log",
          std::string(9000, 'x') + "\nqxhost: converting\nkilled, attempt 3 of 3\n\n");
    write("film.job/logs/piece-2.log",
          "qxhost: converting\nslurmstepd-n1: error: *** JOB 7 ON n1 CANCELLED DUE "
          "TO TIME LIMIT ***\nqxhost: interrupted\n");
    const Outcome outcome = qxhost({"farm", "status", "film.job"});
    EXPECT_NE(outcome.out.find("not done: piece 0; logs/piece-0.log says: killed, attempt 3 of 3\n"),
              std::string::npos)
        << outcome.out;
    EXPECT_NE(
        outcome.out.find(
            "not done: piece 2; logs/piece-2.log says: slurmstepd-n1: error: *** JOB 7 ON n1 CANCELLED DUE "
            "TO TIME LIMIT ***\n"),
        std::string::npos)
        << outcome.out;
    EXPECT_NE(outcome.out.find("\nnot done: 0-2\n"), std::string::npos) << outcome.out;
    EXPECT_EQ(status()["pieces"][0]["log"], "killed, attempt 3 of 3");
    write("film.job/logs/piece-1.log", "\xff\xfe\n");
    EXPECT_FALSE(status().is_discarded()) << "it is JSON whatever a log holds";
}

TEST_F(Jobs, one_program_makes_the_pieces_that_standard_input_names)
{
    makeJob({"--segments", "4"});
    write("numbers", "3\n0\n7\n1\n");
    const Outcome outcome =
        run({"sh", "-c", "exec \"$0\" farm run-piece film.job - --quiet < numbers", programPath()});
    EXPECT_EQ(outcome.out, "3 0\n0 0\n7 2\n1 0\n") << outcome.err;
    EXPECT_EQ(outcome.exitCode, 2) << "there is no piece 7";
    EXPECT_NE(outcome.err.find("there is no piece 7"), std::string::npos) << outcome.err;
    EXPECT_EQ(status()["done"], 3);
    write("numbers", "2\ntwo\n0\n");
    const Outcome wrong =
        run({"sh", "-c", "exec \"$0\" farm run-piece film.job - --quiet < numbers", programPath()});
    EXPECT_EQ(wrong.exitCode, 2);
    EXPECT_EQ(wrong.out, "2 0\n");
    EXPECT_NE(wrong.err.find("standard input: "), std::string::npos) << wrong.err;
    EXPECT_NE(wrong.err.find("\"two\""), std::string::npos) << wrong.err;
    EXPECT_EQ(status()["done"], 4);
    ASSERT_EQ(qxhost({"farm", "join", "film.job"}).exitCode, 0);
    expectGradedIsOneRun({});
}

TEST_F(Jobs, the_same_piece_made_twice_at_a_time_is_whole)
{
    makeJob({"--segments", "2"});
    const Words command{programPath(), "farm", "run-piece", "film.job", "0"};
    Running one(command, directory_);
    Running other(command, directory_);
    EXPECT_EQ(one.wait().exitCode, 0);
    EXPECT_EQ(other.wait().exitCode, 0);
    EXPECT_EQ(qxhost({"farm", "run", "film.job"}).exitCode, 0);
    expectGradedIsOneRun({});
    int files = 0;
    for (const auto& entry : fs::directory_iterator(at("film.job/pieces"))) {
        files += entry.path().extension() == ".mov" ? 1 : 0;
    }
    EXPECT_EQ(files, 2);
}

TEST_F(Jobs, a_worker_that_was_stopped_finds_that_others_have_made_its_piece_and_joined)
{
    ffmpeg({"-stream_loop", "10", "-i", "clip.mov", "-c", "copy", "-an", "long.mov"});
    fs::rename(at("long.mov"), at("clip.mov"));
    makeJob({"--segments", "2"});
    Running stopped({programPath(), "farm", "run-piece", "film.job", "0"}, directory_);
    ASSERT_TRUE(waitForPart(stopped, "film.job/pieces"));
    stopped.signal(SIGSTOP);
    const Outcome others = qxhost({"farm", "run", "film.job"});
    EXPECT_EQ(others.exitCode, 0) << others.err;
    stopped.signal(SIGCONT);
    const Outcome outcome = stopped.wait();
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
    EXPECT_NE(outcome.err.find("has been made by somebody else"), std::string::npos) << outcome.err;
    EXPECT_FALSE(fs::exists(at("film.job/pieces/0000.failed.json")));
    EXPECT_EQ(qxhost({"farm", "verify", "film.job"}).exitCode, 0);
    expectGradedIsOneRun({});
}

TEST_F(Jobs, a_piece_that_is_cut_while_it_is_joined_is_told)
{
    ffmpeg({"-stream_loop", "7", "-i", "clip.mov", "-c", "copy", "-an", "long.mov"});
    const Outcome made = qxhost({"farm", "make", "long.mov", "graded.uyvy", "--job", "film.job", "--segments",
                                 "3", "--resize", "320x"});
    ASSERT_EQ(made.exitCode, 0) << made.err;
    ASSERT_EQ(qxhost({"farm", "run", "film.job"}).exitCode, 0);
    const fs::path last = at("film.job/pieces") / pieceFile(2);
    const std::uintmax_t bytes = fs::file_size(last);
    bool isCut = false;
    for (int attempt = 0; attempt < 10 && !isCut; ++attempt) {
        fs::remove(at("film.job/graded.uyvy"));
        Running join({programPath(), "farm", "join", "film.job", "--force"}, directory_);
        isCut = waitForPart(join, "film.job"); // all pieces have been compared with their digests
        join.signal(SIGSTOP);
        fs::resize_file(last, bytes - 100);
        join.signal(SIGCONT);
        const Outcome outcome = join.wait();
        isCut = isCut && outcome.exitCode != 0; // else it was too fast
        if (isCut) {
            EXPECT_EQ(outcome.exitCode, 3) << outcome.err;
            EXPECT_NE(outcome.err.find("it has changed while the pieces were joined"), std::string::npos)
                << outcome.err;
            EXPECT_FALSE(fs::exists(at("film.job/graded.uyvy")));
        }
        fs::resize_file(last, bytes);
    }
    EXPECT_TRUE(isCut);
}

TEST_F(Jobs, a_clock_that_is_ahead_removes_nothing_that_other_machines_write)
{
    makeJob({"--segments", "2"});
    const std::string part = "film.job/pieces/.0001-1234.mov.part-00000000-0123456789abcdef";
    write(part, "what another machine writes");
    const Outcome ahead =
        run({"env", "LD_PRELOAD=" QX_CLOCK_AHEAD, programPath(), "farm", "run-piece", "film.job", "0"});
    EXPECT_EQ(ahead.exitCode, 0) << ahead.err;
    EXPECT_TRUE(fs::exists(at(part)));
    fs::last_write_time(at(part), fs::file_time_type::clock::now() - std::chrono::hours(25));
    EXPECT_EQ(qxhost({"farm", "run-piece", "film.job", "1"}).exitCode, 0);
    EXPECT_FALSE(fs::exists(at(part))) << "it is abandoned";
}

TEST_F(Jobs, pictures_are_joined_in_the_folder_or_elsewhere)
{
    const Outcome made =
        qxhost({"farm", "make", "clip.mov", "shot_%04d.png", "--job", "film.job", "--segments", "3"});
    ASSERT_EQ(made.exitCode, 0) << made.err;
    ASSERT_EQ(qxhost({"farm", "run", "film.job"}).exitCode, 0);
    fs::create_directory(at("out"));
    EXPECT_EQ(qxhost({"farm", "join", "film.job", "--output", "out/p_%04d.png"}).exitCode, 0);
    convert("clip.mov", "one_%04d.png", {});
    for (const char* number : {"0001", "0017", "0018", "0050"}) {
        const std::string one = read(at("one_" + std::string(number) + ".png"));
        EXPECT_EQ(read(at("film.job/shot_" + std::string(number) + ".png")), one) << number;
        EXPECT_EQ(read(at("out/p_" + std::string(number) + ".png")), one) << number;
    }
    const Outcome again = qxhost({"farm", "join", "film.job", "--output", "out/p_%04d.png"});
    EXPECT_EQ(again.exitCode, 4) << "they exist";
}

TEST_F(Jobs, a_folder_is_made_whole_or_not_at_all)
{
    fs::create_directory(at("film.job"));
    const Outcome exists = qxhost({"farm", "make", "clip.mov", "graded.mov", "--job", "film.job"});
    EXPECT_EQ(exists.exitCode, 4) << exists.err;
    EXPECT_TRUE(fs::is_empty(at("film.job")));
    fs::remove(at("film.job"));
    EXPECT_EQ(
        qxhost({"farm", "make", "clip.mov", "graded.mov", "--job", "film.job", "--lut", "no.cube"}).exitCode,
        6);
    EXPECT_EQ(qxhost({"farm", "make", "absent.mov", "graded.mov", "--job", "film.job"}).exitCode, 3);
    EXPECT_EQ(qxhost({"farm", "make", "clip.mov", "out/graded.mov", "--job", "film.job"}).exitCode, 2);
    EXPECT_EQ(qxhost({"farm", "make", "clip.mov", "graded.mov"}).exitCode, 2);
    for (const Words& files : {Words{"-", "graded.mov"}, Words{"clip.mov", "-"}}) {
        const Outcome pipe = qxhost({"farm", "make", files[0], files[1], "--job", "film.job"});
        EXPECT_EQ(pipe.exitCode, 2);
        EXPECT_NE(pipe.err.find("standard input and output (-) cannot be split"), std::string::npos)
            << pipe.err;
    }
    const Outcome unmade = qxhost({"farm", "make", "clip.mov", "graded.mov", "--job", "/proc/film.job"});
    EXPECT_EQ(unmade.exitCode, 4);
    EXPECT_NE(unmade.err.find("cannot make \"/proc/film.job\": "), std::string::npos) << unmade.err;
    const Outcome spaces = qxhost({"farm", "make", "clip.mov", "graded.mov", "--job", "film.job", "--ocio",
                                   "c.ocio", "--from", "a", "--to", "b"});
    EXPECT_EQ(spaces.exitCode, 6) << spaces.err;
    const Outcome alone =
        qxhost({"farm", "make", "clip.mov", "graded.mov", "--job", "film.job", "--to", "{name}.mov"});
    EXPECT_EQ(alone.exitCode, 2);
    EXPECT_NE(alone.err.find("belongs to an --ocio before it"), std::string::npos) << alone.err;
    ffmpeg({"-i", "clip.mov", "-frames:v", "2", "shot_%d.png"});
    const Outcome folder = qxhost({"farm", "make", "shot_%d.png", "graded.mov", "--job", "a%20b"});
    EXPECT_EQ(folder.exitCode, 4) << folder.err;
    EXPECT_NE(folder.err.find("a folder with % in its name"), std::string::npos) << folder.err;
    fs::remove(at("shot_1.png"));
    fs::remove(at("shot_2.png"));
    const Outcome unsplit =
        qxhost({"farm", "make", "clip.mov", "graded.mov", "--job", "film.job", "--after", "hflip"});
    EXPECT_EQ(unsplit.exitCode, 2) << unsplit.err;
    EXPECT_NE(unsplit.err.find("--after: "), std::string::npos) << unsplit.err;
    EXPECT_EQ(unsplit.err.find("--segments"), std::string::npos) << "nobody has given it: " << unsplit.err;
    write("list.ffconcat", "ffconcat version 1.0\nfile clip.mov\n");
    const Outcome list = qxhost({"farm", "make", "list.ffconcat", "graded.mov", "--job", "film.job"});
    EXPECT_EQ(list.exitCode, 3) << list.err;
    EXPECT_NE(list.err.find("is a list of other files"), std::string::npos) << list.err;
    EXPECT_EQ(filesBeside({"clip.mov", "list.ffconcat"}), Words());
}

} // namespace

} // namespace Qx::System
