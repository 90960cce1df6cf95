/* Asks a plug-in for its interface version as an engine written in C would.
   Usage: version_client PLUGIN; exits with 0 when the version is 1.1. */
#include <dlfcn.h>
#include <stdio.h>
#include <string.h>

int main(int argc, char **argv)
{
    void *library;
    void *symbol;
    int (*version)(void);

    if (argc != 2) {
        fprintf(stderr, "usage: version_client PLUGIN\n");
        return 2;
    }
    library = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
    if (!library) {
        fprintf(stderr, "%s\n", dlerror());
        return 1;
    }
    symbol = dlsym(library, "DMT_PluginLib_GetAPIVersion");
    if (!symbol) {
        fprintf(stderr, "%s\n", dlerror());
        return 1;
    }
    memcpy(&version, &symbol, sizeof version);
    printf("0x%x\n", (unsigned int)version());
    return version() == 0x10001 ? 0 : 1; /* an engine keeps its plug-ins until it ends */
}
