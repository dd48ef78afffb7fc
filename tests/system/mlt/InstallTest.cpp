#include "tests/system/mlt/MeltProgram.h"
#include "tests/system/program/Installation.h"

namespace {

using namespace Qx::System;

TEST_F(Installation, its_module_describes_effects_in_melt_where_it_is_moved_to)
{
    fs::rename(at("prefix"), at("moved"));
    const fs::path modules = at("moved/" QX_LIBRARY_FOLDER "/mlt-7");
    for (const fs::directory_entry& module : fs::directory_iterator(fs::path(QX_MLT_FOLDER) / "few")) {
        if (module.path().filename() != "libmltqx.so") {
            fs::create_symlink(fs::canonical(module.path()), modules / module.path().filename());
        }
    }
    const std::string repository = "MLT_REPOSITORY=" + modules.string();
    const std::string data = "MLT_DATA=" + at("moved/share/mlt-7").string();
    const Outcome query = run({"env", repository, data, QX_MELT, "-query", "filter=qx.effect"});
    EXPECT_NE(query.out.find("identifier: technique"), std::string::npos) << query.out << query.err;
    const Outcome described = run({"env", repository, QX_MELT, "-query", "filter=qx.effect.qx-vignette"});
    EXPECT_NE(described.out.find("identifier: qx.effect.qx-vignette"), std::string::npos)
        << described.out << described.err;
}

} // namespace
