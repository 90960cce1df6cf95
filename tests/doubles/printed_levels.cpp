// Built with the plug-in's sources: tells the fixture which messages they print.
#include "printed_levels.h"

#include "DM_Napi_Plugin.h"

namespace doubles {

const bool TRACES_PRINT = LOG_LEVEL_TRACE < KUB_LOG_PRINT_BELOW;

} // namespace doubles
