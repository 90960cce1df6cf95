#include "store_backend.h"

#include "networkmanager_profile_store.h"
#include "sqlite_profile_store.h"
#include "state_location.h"

#include <cstdlib>
#include <string>

namespace {

struct Backend {
    std::string_view name;
    std::string_view file; ///< in the state directory
    StoreResult (*open)(const std::string &path, std::unique_ptr<ProfileStore> &store);
};

constexpr Backend backends[] = {
    {"sqlite", "profiles.db", SqliteProfileStore::open},
    {"networkmanager", "networkmanager-ids.db", NetworkManagerProfileStore::open},
};

} // namespace

StoreResult openChosenStore(std::unique_ptr<ProfileStore> &store)
{
    const char *variable = std::getenv("KUB_NAPI_BACKEND");
    const std::string chosen = !variable || *variable == '\0' ? "sqlite" : variable;
    std::string names;
    for (const Backend &backend : backends) {
        if (backend.name == chosen) {
            static const std::string directory = handset_state::location();
            return backend.open(directory + "/" + std::string(backend.file), store);
        }
        names += names.empty() ? "" : " or ";
        names += backend.name;
    }
    return {NAPI_ERROR_UNAVAILABLE, "KUB_NAPI_BACKEND is '" + chosen + "', it can be " + names};
}
