#include "http_module.h"

#include <dlfcn.h>

namespace client {

namespace {

constexpr char libraryFile[] = "libdmclienthttp.so";
constexpr char moduleSymbol[] = "dmclient_http_module";

} // namespace

support::Expected<const HttpModule *, QString> HttpModule::load()
{
    void *const library = dlopen(libraryFile, RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    const void *const module = library ? dlsym(library, moduleSymbol) : nullptr;
    if (!module)
        return support::Unexpected(
            QStringLiteral("cannot load %1: %2")
                .arg(QString::fromLatin1(libraryFile), QString::fromLocal8Bit(dlerror())));
    return static_cast<const HttpModule *>(module);
}

} // namespace client
