#include "loaded_module.h"

#include <dlfcn.h>

namespace support {

Expected<const void *, QString> loadModule(const char *file, const char *symbol)
{
    void *const library = dlopen(file, RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    const void *const module = library ? dlsym(library, symbol) : nullptr;
    if (!module)
        return Unexpected(QStringLiteral("cannot load %1: %2")
                              .arg(QString::fromLatin1(file), QString::fromLocal8Bit(dlerror())));
    return module;
}

} // namespace support
