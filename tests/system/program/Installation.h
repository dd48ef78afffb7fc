#pragma once

#include "tests/system/program/Program.h"

namespace Qx::System {

/// A test with an installation of its own, in "prefix".
class Installation : public ProgramTest
{
protected:
    void SetUp() override
    {
        ProgramTest::SetUp();
        const Outcome outcome =
            run({QX_CMAKE, "--install", QX_BUILD_FOLDER, "--prefix", at("prefix").string()});
        ASSERT_EQ(outcome.exitCode, 0) << outcome.out << outcome.err;
    }

    /// Configures a project of tests/system/, or of another folder, against the installation.
    void configure(const std::string& project, const std::vector<std::string>& options = {},
                   const fs::path& folder = fs::path(QX_SOURCE_FOLDER) / "tests/system") const
    {
        std::vector<std::string> command{QX_CMAKE,
                                         "-G",
                                         "Ninja",
                                         "-S",
                                         (folder / project).string(),
                                         "-B",
                                         at(project).string(),
                                         "-DCMAKE_PREFIX_PATH=" + at("prefix").string()};
        command.insert(command.end(), options.begin(), options.end());
        const Outcome configured = run(command);
        ASSERT_EQ(configured.exitCode, 0) << configured.out << configured.err;
    }

    void build(const std::string& project, const std::string& target = "all") const
    {
        const Outcome built = run({QX_CMAKE, "--build", at(project).string(), "--target", target});
        ASSERT_EQ(built.exitCode, 0) << built.out << built.err;
    }

    /// The examples of the installation.
    fs::path examples() const { return at("prefix/share/doc/libqxfxresources-dev/examples"); }

    fs::path libraryFolder() const { return at("prefix/" QX_LIBRARY_FOLDER); }
};

} // namespace Qx::System
