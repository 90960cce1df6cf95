// The installed completions for bash say what the tables say.

#include "bash_completion.h"
#include "command_table.h"
#include "napictl.h"

#include <fstream>
#include <gtest/gtest.h>
#include <sstream>

namespace {

class CompletionScriptTest : public testing::TestWithParam<const commandline::Program *> {};

TEST_P(CompletionScriptTest, IsWhatTheTablesSay)
{
    const std::string name = GetParam()->name;
    const std::string path = KUB_SOURCE_FOLDER "/packaging/completions/" + name;
    std::ostringstream installed;
    installed << std::ifstream(path).rdbuf();
    const std::string expected = bashCompletion(*GetParam());
    const std::string copy = testing::TempDir() + name + ".completion";
    if (installed.str() != expected)
        std::ofstream(copy) << expected;
    EXPECT_EQ(installed.str(), expected) << "cp " << copy << ' ' << path;
}

INSTANTIATE_TEST_SUITE_P(Programs, CompletionScriptTest,
                         testing::Values(&client::cli::program(), &napictlProgram()),
                         [](const auto &row) { return std::string(row.param->name); });

} // namespace
