#include "explore_module.h"

#include "loaded_module.h"

namespace client {

support::Expected<const ExploreModule *, QString> ExploreModule::load()
{
    const auto module = support::loadModule("libdmclientexplore.so", "dmclient_explore_module");
    if (!module)
        return support::Unexpected(module.error());
    return static_cast<const ExploreModule *>(*module);
}

} // namespace client
