#include "service_module.h"

#include "loaded_module.h"

namespace client {

support::Expected<const ServiceModule *, QString> ServiceModule::load()
{
    const auto module = support::loadModule("libdmclientservice.so", "dmclient_service_module");
    if (!module)
        return support::Unexpected(module.error());
    return static_cast<const ServiceModule *>(*module);
}

} // namespace client
