// The calls of the profile service: checked arguments in, one operation of the store each.
#pragma GCC visibility push(default)
#include "napi.h"
#pragma GCC visibility pop

#include <bitset>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>

#include "foreign_text.h"
#include "profile_name.h"
#include "profile_store.h"
#include "store_backend.h"
#include "stored_maximum.h"

namespace {

constexpr std::size_t statusCount = NAPI_ERROR_UNAVAILABLE + 1;

std::optional<unsigned int> parseMaximum(const char *text)
{
    unsigned int maximum = 0;
    const char *end = text + std::strlen(text);
    const auto [parsedEnd, error] = std::from_chars(text, end, maximum);
    if (error == std::errc() && parsedEnd == end && maximum >= 1 && maximum <= largestMaximum)
        return maximum;
    std::fprintf(stderr, "libnapi: KUB_NAPI_MAX is not a number from 1 to %u and is ignored\n",
                 largestMaximum);
    return std::nullopt;
}

/// The maximum that KUB_NAPI_MAX sets; none when it is not set, or wrong, which is told once.
std::optional<unsigned int> maximumFromEnvironment()
{
    static const std::optional<unsigned int> maximum = [] {
        const char *text = std::getenv("KUB_NAPI_MAX");
        return !text ? std::nullopt : parseMaximum(text);
    }();
    return maximum;
}

/// What the calls of a process share. Opened by the first call that needs the store; after a
/// failure the next call tries again.
class Service {
public:
    static Service &instance()
    {
        static Service service;
        return service;
    }

    /// Runs an operation of the store; a failure comes back as its code, and the first of each kind
    /// goes to stderr, of refused values every one.
    template <typename Operation>
    int run(Operation operation)
    {
        const std::lock_guard guard(m_mutex);
        StoreResult result;
        try {
            if (!m_store)
                result = open();
            if (!result.failed())
                result = operation(*m_store);
        } catch (const std::exception &error) { // out of memory; the callers may be C
            result = {NAPI_ERROR_IO, error.what()};
        }
        report(result);
        return result.status;
    }

    int refuse(NAPI_STATUS status, const char *message)
    {
        const std::lock_guard guard(m_mutex);
        report({status, message});
        return status;
    }

private:
    /// What the environment says of the store is kept with it, for processes that do not know.
    StoreResult open()
    {
        StoreResult result = openChosenStore(m_store);
        const std::optional<unsigned int> wanted = maximumFromEnvironment();
        unsigned int maximum = 0;
        if (result.failed() || !wanted.has_value())
            return result;
        StoreResult kept = readMaximum(m_store->database(), maximum);
        if (kept.failed() || maximum != *wanted)
            kept = storeMaximum(m_store->database(), *wanted);
        report(kept); // without it the profiles are there all the same
        return result;
    }

    void report(const StoreResult &result)
    {
        const bool isOrdinaryAnswer = result.status == NAPI_OK ||
                                      result.status == NAPI_ERROR_NOT_FOUND ||
                                      result.status == NAPI_ERROR_EXISTS;
        const bool isTold = m_reported.test(result.status) &&
                            result.status != NAPI_ERROR_VALUE_REFUSED; // each is another value
        if (isOrdinaryAnswer || isTold)
            return;
        m_reported.set(result.status);
        std::fprintf(stderr, "libnapi: %s\n", foreign_text::printable(result.message).c_str());
    }

    std::mutex m_mutex;
    std::unique_ptr<ProfileStore> m_store;
    std::bitset<statusCount> m_reported;
};

int refuseNull()
{
    return Service::instance().refuse(NAPI_ERROR_BAD_ARGUMENT, "a call got a null pointer");
}

/// Runs an operation of the store on the profile of that name, and on what the pointers point to.
template <typename Operation, typename... Arguments>
int runOnProfile(const char *name, Operation operation, Arguments *...arguments)
{
    if (!name || (!arguments || ...))
        return refuseNull();
    const std::string_view text(name, strnlen(name, NAPI_NAME_SIZE));
    if (!isProfileName(text)) {
        return Service::instance().refuse(
            NAPI_ERROR_BAD_NAME,
            "a profile name is empty, longer than 63 bytes, not UTF-8, has a slash, or is . or .. "
            "or *");
    }
    return Service::instance().run(
        [&](ProfileStore &store) { return std::invoke(operation, store, text, *arguments...); });
}

} // namespace

int NAPI_ListAllProfile(char *names, unsigned int *count)
{
    if (!count)
        return refuseNull();
    if (!names)
        return Service::instance().run([&](ProfileStore &store) { return store.count(*count); });
    return Service::instance().run([&](ProfileStore &store) {
        std::vector<std::string> found;
        StoreResult result = store.list(*count, found);
        if (result.failed())
            return result;
        for (std::size_t index = 0; index < found.size(); ++index)
            std::strcpy(names + index * NAPI_NAME_SIZE, found[index].c_str());
        *count = static_cast<unsigned int>(found.size());
        return result;
    });
}

int NAPI_ReadProfile(const char *name, NAP_PROFILE_S *record, int, int)
{
    return runOnProfile(name, &ProfileStore::read, record);
}

int NAPI_ModifyProfile(const char *name, const NAP_PROFILE_S *record, int, int)
{
    return runOnProfile(name, &ProfileStore::modify, record);
}

int NAPI_CreateProfile(const char *name, const NAP_PROFILE_S *record, int, int)
{
    const auto create = [](ProfileStore &store, std::string_view text, const NAP_PROFILE_S &made) {
        unsigned int maximum = 0;
        StoreResult result = readMaximum(store.database(), maximum);
        return result.failed() ? result : store.create(text, made, maximum);
    };
    return runOnProfile(name, create, record);
}

int NAPI_DeleteProfile(const char *name)
{
    return runOnProfile(name, &ProfileStore::remove);
}

int NAPI_GetProfileIDByName(const char *name, unsigned int *id)
{
    return runOnProfile(name, &ProfileStore::idByName, id);
}

int NAPI_GetProfileNameByID(unsigned int id, char *name)
{
    if (!name)
        return refuseNull();
    return Service::instance().run([&](ProfileStore &store) {
        std::string found;
        StoreResult result = store.nameById(id, found);
        if (!result.failed())
            std::memcpy(name, found.c_str(), found.size() + 1);
        return result;
    });
}

int NAPI_GetMaxProfiles(void)
{
    unsigned int maximum = maximumFromEnvironment().value_or(defaultMaximum);
    Service::instance().run(
        [&](ProfileStore &store) { return readMaximum(store.database(), maximum); });
    return static_cast<int>(maximum);
}

int NAPI_IsProfileValid(const char *name)
{
    unsigned int id = 0;
    return NAPI_GetProfileIDByName(name, &id);
}
