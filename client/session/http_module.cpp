#include "http_module.h"

#include "loaded_module.h"

namespace client {

support::Expected<const HttpModule *, QString> HttpModule::load()
{
    const auto module = support::loadModule("libdmclienthttp.so", "dmclient_http_module");
    if (!module)
        return support::Unexpected(module.error());
    return static_cast<const HttpModule *>(*module);
}

} // namespace client
