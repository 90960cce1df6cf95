// The calls of the profile service: checked arguments in, one operation of the store each.
#pragma GCC visibility push(default)
#include "napi.h"
#pragma GCC visibility pop

#include <atomic>
#include <bitset>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>
#include <mutex>
#include <optional>

#include "foreign_text.h"
#include "profile_call_observer.h"
#include "profile_copy.h"
#include "profile_name.h"
#include "profile_rename.h"
#include "profile_store.h"
#include "store_backend.h"
#include "stored_maximum.h"

namespace {

using call_observer::ProfileCall;
using call_observer::ProfileCallObserver;

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

/// What an observer that wants records is told of the profile which a call names, beyond what the
/// call itself asks of the store.
enum class LookUp { Nothing, Id, IdAndRecordBefore, IdAfterwards };

/// What the calls of a process share. Opened by the first call that needs the store; after a
/// failure the next call tries again.
class Service {
public:
    static Service &instance()
    {
        static Service service;
        return service;
    }

    /// Runs an operation of the store, which completes what is told of the call; a failure comes
    /// back as its code, and the first of each kind goes to stderr, of refused values every one.
    template <typename Operation>
    int run(ProfileCall &call, LookUp lookUp, Operation operation)
    {
        ProfileCallObserver *const observer = m_observer.load(std::memory_order_acquire);
        if (observer)
            return runObserved(*observer, call, lookUp, operation);
        const StoreResult result = runOnStore(operation);
        report(result);
        return result.status;
    }

    int refuse(ProfileCall &call, NAPI_STATUS status, const char *message)
    {
        return end(m_observer.load(std::memory_order_acquire), call, {status, message});
    }

    void setObserver(ProfileCallObserver *observer)
    {
        m_observer.store(observer, std::memory_order_release);
    }

    /// A failure is only the caller's: no call of the profile service has failed.
    StoreResult copyProfiles(const char *folder)
    {
        return runOnStore([folder](ProfileStore &store) { return store.copyTo(folder); });
    }

private:
    template <typename Operation>
    StoreResult runOnStore(Operation operation)
    {
        const std::lock_guard guard(m_mutex);
        try {
            StoreResult result;
            if (!m_store)
                result = open();
            if (!result.failed())
                result = operation(*m_store);
            return result;
        } catch (const std::exception &error) { // out of memory; the callers may be C
            return {NAPI_ERROR_IO, error.what()};
        }
    }

    template <typename Operation>
    int runObserved(ProfileCallObserver &observer, ProfileCall &call, LookUp lookUp,
                    Operation operation)
    {
        using Clock = std::chrono::steady_clock;
        NAP_PROFILE_S before;
        Clock::duration duration = {};
        const StoreResult result = runOnStore([&](ProfileStore &store) {
            const bool wantsRecords = observer.wantsRecords();
            if (wantsRecords && lookUp != LookUp::IdAfterwards)
                lookUpBefore(store, lookUp, call, before);
            const Clock::time_point began = Clock::now();
            StoreResult ofOperation = operation(store);
            duration = Clock::now() - began;
            if (wantsRecords && lookUp == LookUp::IdAfterwards && !ofOperation.failed())
                lookUpId(store, call);
            return ofOperation;
        });
        call.duration = duration;
        return end(&observer, call, result);
    }

    int end(ProfileCallObserver *observer, ProfileCall &call, const StoreResult &result)
    {
        call.status = result.status;
        call.reason = result.message;
        if (!observer || !observer->observe(call))
            report(result);
        return result.status;
    }

    // The caller asked for none of these: what cannot be found out is not told.
    static void lookUpId(ProfileStore &store, ProfileCall &call)
    {
        std::uint32_t id = 0;
        if (!store.idByName(call.profile, id).failed())
            call.id = id;
    }

    static void lookUpBefore(ProfileStore &store, LookUp lookUp, ProfileCall &call,
                             NAP_PROFILE_S &before)
    {
        if (lookUp != LookUp::Nothing)
            lookUpId(store, call);
        if (lookUp == LookUp::IdAndRecordBefore && !store.read(call.profile, before).failed())
            call.before = &before;
    }

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
        if (isOrdinaryAnswer)
            return;
        const std::lock_guard guard(m_reportMutex);
        const bool isTold = m_reported.test(result.status) &&
                            result.status != NAPI_ERROR_VALUE_REFUSED; // each is another value
        if (isTold)
            return;
        m_reported.set(result.status);
        std::fprintf(stderr, "libnapi: %s\n", foreign_text::printable(result.message).c_str());
    }

    std::atomic<ProfileCallObserver *> m_observer = nullptr;
    std::mutex m_mutex; ///< of the store
    std::unique_ptr<ProfileStore> m_store;
    std::mutex m_reportMutex;
    std::bitset<statusCount> m_reported;
};

int refuseNull(ProfileCall &call)
{
    return Service::instance().refuse(call, NAPI_ERROR_BAD_ARGUMENT, "a call got a null pointer");
}

constexpr char notAProfileName[] =
    "a profile name is empty, longer than 63 bytes, not UTF-8, has a slash, or is . or .. or *";

/// Runs an operation of the store on the profile of that name. With success it completes what is
/// told of the call.
/// @param isNull  whether the call got a null pointer beside the name
template <typename Operation>
int runOnProfile(ProfileCall call, const char *name, bool isNull, LookUp lookUp,
                 Operation operation)
{
    if (name)
        call.profile = {name, strnlen(name, NAPI_NAME_SIZE)};
    if (!name || isNull)
        return refuseNull(call);
    if (!isProfileName(call.profile))
        return Service::instance().refuse(call, NAPI_ERROR_BAD_NAME, notAProfileName);
    return Service::instance().run(call, lookUp,
                                   [&](ProfileStore &store) { return operation(store, call); });
}

/// Finds the ID of a profile, for the call of that name.
int findId(const char *function, const char *name, unsigned int *id)
{
    const auto find = [id](ProfileStore &store, ProfileCall &call) {
        StoreResult result = store.idByName(call.profile, *id);
        if (!result.failed())
            call.id = *id;
        return result;
    };
    return runOnProfile({.function = function}, name, !id, LookUp::Nothing, find);
}

} // namespace

int NAPI_ListAllProfile(char *names, unsigned int *count)
{
    ProfileCall call = {.function = __func__};
    if (!count)
        return refuseNull(call);
    return Service::instance().run(call, LookUp::Nothing, [&](ProfileStore &store) {
        std::vector<std::string> found;
        StoreResult result = names ? store.list(*count, found) : store.count(*count);
        if (result.failed())
            return result;
        for (std::size_t index = 0; index < found.size(); ++index)
            std::strcpy(names + index * NAPI_NAME_SIZE, found[index].c_str());
        if (names)
            *count = static_cast<unsigned int>(found.size());
        call.count = *count;
        return result;
    });
}

int NAPI_ReadProfile(const char *name, NAP_PROFILE_S *record, int, int)
{
    const auto read = [record](ProfileStore &store, ProfileCall &call) {
        StoreResult result = store.read(call.profile, *record);
        call.after = result.failed() ? nullptr : record;
        return result;
    };
    return runOnProfile({.function = __func__}, name, !record, LookUp::Id, read);
}

int NAPI_ModifyProfile(const char *name, const NAP_PROFILE_S *record, int, int)
{
    const auto modify = [record](ProfileStore &store, ProfileCall &call) {
        StoreResult result = store.modify(call.profile, *record);
        call.after = result.failed() ? nullptr : record;
        return result;
    };
    return runOnProfile({.function = __func__}, name, !record, LookUp::IdAndRecordBefore, modify);
}

int NAPI_CreateProfile(const char *name, const NAP_PROFILE_S *record, int, int)
{
    const auto create = [record](ProfileStore &store, ProfileCall &call) {
        unsigned int maximum = 0;
        StoreResult result = readMaximum(store.database(), maximum);
        if (!result.failed())
            result = store.create(call.profile, *record, maximum);
        call.after = result.failed() ? nullptr : record;
        return result;
    };
    return runOnProfile({.function = __func__}, name, !record, LookUp::IdAfterwards, create);
}

int NAPI_DeleteProfile(const char *name)
{
    const auto remove = [](ProfileStore &store, const ProfileCall &call) {
        return store.remove(call.profile);
    };
    return runOnProfile({.function = __func__}, name, false, LookUp::IdAndRecordBefore, remove);
}

extern "C" __attribute__((visibility("default"))) int kub_napi_rename_profile(const char *name,
                                                                              const char *newName)
{
    const auto rename = [newName](ProfileStore &store, const ProfileCall &call) -> StoreResult {
        const std::string_view wanted(newName, strnlen(newName, NAPI_NAME_SIZE));
        if (!isProfileName(wanted))
            return {NAPI_ERROR_BAD_NAME, notAProfileName};
        return store.rename(call.profile, wanted);
    };
    return runOnProfile({.function = __func__}, name, !newName, LookUp::Id, rename);
}

int NAPI_GetProfileIDByName(const char *name, unsigned int *id)
{
    return findId(__func__, name, id);
}

int NAPI_GetProfileNameByID(unsigned int id, char *name)
{
    ProfileCall call = {.function = __func__, .id = id};
    if (!name)
        return refuseNull(call);
    return Service::instance().run(call, LookUp::Nothing, [&](ProfileStore &store) {
        std::string found;
        StoreResult result = store.nameById(id, found);
        if (result.failed())
            return result;
        std::memcpy(name, found.c_str(), found.size() + 1);
        call.profile = name;
        return result;
    });
}

int NAPI_GetMaxProfiles(void)
{
    unsigned int maximum = maximumFromEnvironment().value_or(defaultMaximum);
    ProfileCall call = {.function = __func__};
    Service::instance().run(call, LookUp::Nothing, [&](ProfileStore &store) {
        StoreResult result = readMaximum(store.database(), maximum);
        call.count = maximum;
        return result;
    });
    return static_cast<int>(maximum);
}

int NAPI_IsProfileValid(const char *name)
{
    unsigned int id = 0;
    return findId(__func__, name, &id);
}

extern "C" profile_copy::CopyProfiles kub_napi_copy_profiles;

extern "C" __attribute__((visibility("default"))) int
kub_napi_copy_profiles(const char *folder, char *reason, std::size_t size)
{
    const StoreResult result = Service::instance().copyProfiles(folder);
    std::snprintf(reason, size, "%s", result.message.c_str());
    return result.status;
}

extern "C" __attribute__((visibility("default"))) void
kub_napi_set_call_observer(ProfileCallObserver *observer)
{
    Service::instance().setObserver(observer);
}
