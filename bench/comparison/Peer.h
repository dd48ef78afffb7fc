#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <sys/types.h>
#include <utility>
#include <vector>

namespace Qx::Bench {

using Variables = std::vector<std::string>; ///< NAME=VALUE

/// A participant of the comparison in its own process; bench/peers/Participant.h describes the protocol. The
/// process ends with the object. One that does not answer in time, or dies, is not used again.
class Peer
{
public:
    struct Offer
    {
        std::string work;
        std::string method;
        std::string remark;
    };

    struct Ran
    {
        double amount = 0;
        double seconds = 0;
        std::string note;
    };

    /// Starts a program. `variables` override the environment's.
    Peer(const std::string& program, const Variables& variables);
    ~Peer();
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

    /// Returns why it does not take part, or the last error; empty if there is none.
    const std::string& failure() const { return failure_; }
    bool alive() const { return process_ > 0; }

    const std::string& name() const { return name_; }
    const std::string& device() const { return device_; }
    const std::string& description() const { return description_; }
    const std::vector<Offer>& offers() const { return offers_; }

    bool prepare(const std::string& work, const std::string& method);
    std::optional<Ran> run(double seconds);
    bool writeResult(const std::string& file);

private:
    using Fields = std::vector<std::string>;

    Fields ask(const std::string& line, const char* expected, std::chrono::milliseconds limit);
    Fields readLine(std::chrono::milliseconds limit);
    void readIntroduction();
    void end(const std::string& why);

    pid_t process_ = -1;
    int toIt_ = -1;
    int fromIt_ = -1;
    std::string unread_;
    std::string failure_;
    std::string name_;
    std::string device_;
    std::string description_;
    std::vector<Offer> offers_;
};

/// Runs a program to its end with its standard output in a file. `variables` override the environment's.
/// Returns whether it started and exited with 0.
bool runProgram(const std::vector<std::string>& arguments, const Variables& variables,
                const std::string& outputFile);

} // namespace Qx::Bench
