#include "bench/peers/Participant.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <unistd.h>

namespace Qx::Bench {
namespace {

std::vector<std::string> fieldsOf(const std::string& line)
{
    std::vector<std::string> fields(1);
    for (const char c : line) {
        if (c == '\t') {
            fields.emplace_back();
        } else {
            fields.back() += c;
        }
    }
    return fields;
}

class Server
{
public:
    Server(const Participant& participant, std::FILE* out) : participant_(participant), out_(out) {}

    void introduce()
    {
        std::fprintf(out_, "identity\t%s\t%s\t%s\n", participant_.name.c_str(), participant_.device.c_str(),
                     participant_.description.c_str());
        for (const Offer& offer : participant_.offers) {
            std::fprintf(out_, "offer\t%s\t%s\t%s\n", offer.work.c_str(), offer.method.c_str(),
                         offer.remark.c_str());
        }
        say("open");
    }

    void answer(const std::vector<std::string>& fields)
    {
        if (fields[0] == "prepare" && fields.size() == 3) {
            prepare(fields[1], fields[2]);
        } else if (fields[0] == "run" && fields.size() == 2 && job_) {
            run(std::atof(fields[1].c_str()));
        } else if (fields[0] == "result" && fields.size() == 2 && job_) {
            result(fields[1]);
        } else {
            say("refused\tnot a command at this point: " + fields[0]);
        }
    }

private:
    void say(const std::string& text)
    {
        std::fprintf(out_, "%s\n", text.c_str());
        std::fflush(out_);
    }

    void prepare(const std::string& work, const std::string& method)
    {
        job_.reset();
        for (const Offer& offer : participant_.offers) {
            if (offer.work == work && offer.method == method) {
                job_ = offer.prepare();
                say(job_ && job_->warmUp() ? "ready" : "refused\tit cannot be set up");
                return;
            }
        }
        say("refused\tnot offered: " + work + ", " + method);
    }

    void run(double seconds)
    {
        const Measurement measured = job_->run(seconds);
        if (!(measured.amount > 0) || !(measured.seconds > 0)) {
            say("refused\tno frame was made");
            return;
        }
        std::fprintf(out_, "ran\t%.17g\t%.17g\t%s\n", measured.amount, measured.seconds,
                     measured.note.c_str());
        std::fflush(out_);
    }

    void result(const std::string& file)
    {
        const std::vector<std::byte> frame = job_->result();
        std::ofstream out(file, std::ios::binary);
        out.write(reinterpret_cast<const char*>(frame.data()), static_cast<std::streamsize>(frame.size()));
        out.flush();
        say(!frame.empty() && out.good() ? "written" : "refused\tthere is no result");
    }

    const Participant& participant_;
    std::FILE* out_;
    std::unique_ptr<Job> job_;
};

} // namespace

Measurement Job::run(double seconds)
{
    using Clock = std::chrono::steady_clock;
    Measurement measured;
    const Clock::time_point begin = Clock::now();
    while (measured.seconds < seconds) {
        const int done = frames();
        if (done <= 0) {
            return {};
        }
        measured.amount += done;
        measured.seconds = std::chrono::duration<double>(Clock::now() - begin).count();
    }
    if (!settle()) {
        return {};
    }
    measured.seconds = std::chrono::duration<double>(Clock::now() - begin).count();
    return measured;
}

int serve(const Participant& participant)
{
    const int answers = ::dup(STDOUT_FILENO);
    if (answers < 0 || ::dup2(STDERR_FILENO, STDOUT_FILENO) < 0) {
        return 1;
    }
    std::FILE* const out = ::fdopen(answers, "w");
    if (out == nullptr) {
        return 1;
    }
    Server server(participant, out);
    server.introduce();
    for (std::string line; std::getline(std::cin, line);) {
        server.answer(fieldsOf(line));
    }
    std::fclose(out);
    return 0;
}

std::string wantedDevice()
{
    const char* const name = std::getenv(deviceVariable);
    return name != nullptr ? name : "";
}

} // namespace Qx::Bench
