// Every class of the boundary with the engine, for the compiler to lay out.
#include "DM_Napi_PluginNode.h"
#include "DM_Napi_PluginTree.h"
#include "setup_set_manager.h"
