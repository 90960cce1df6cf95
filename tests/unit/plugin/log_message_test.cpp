// Which messages print, and what one costs that does not.
#include "DM_Napi_Plugin.h"
#include "plugin_test.h"

namespace {

using namespace doubles;

class LogMessageTest : public PluginTest {};

TEST_F(LogMessageTest, ArgumentsOfALevelThatDoesNotPrintAreNotEvaluated)
{
    int evaluated = 0;
    LOG_TRACE("%d\n", ++evaluated);
    EXPECT_EQ(evaluated, 0);
    ExpectNothingLogged();

    LOG_FAILURE("%d\n", ++evaluated);
    EXPECT_EQ(evaluated, 1);
    EXPECT_EQ(handset.log.Take().size(), 1U);
}

TEST_F(LogMessageTest, LevelsBelowEightPrint)
{
    LogMessage(8, "never\n");
    ExpectNothingLogged();
    LogMessage(7, "seen %d\n", 7);
    EXPECT_EQ(handset.log.Take(), Lines{"seen 7\n"});
}

} // namespace
