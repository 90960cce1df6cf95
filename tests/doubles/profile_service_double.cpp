#include "profile_service_double.h"

#include "handset_doubles.h"

#include <algorithm>
#include <cstring>

namespace doubles {

ProfileServiceDouble::Profile &ProfileServiceDouble::Store(const std::string &name,
                                                           const NAP_PROFILE_S &record,
                                                           std::optional<unsigned int> id)
{
    profiles.push_back({id.value_or(nextId), name, record});
    nextId = std::max(nextId, profiles.back().id + 1);
    return profiles.back();
}

ProfileServiceDouble::Profile *ProfileServiceDouble::Find(const std::string &name)
{
    const auto found = std::find_if(profiles.begin(), profiles.end(),
                                    [&name](const Profile &p) { return p.name == name; });
    return found == profiles.end() ? nullptr : &*found;
}

ProfileServiceDouble::Profile *ProfileServiceDouble::Find(unsigned int id)
{
    const auto found = std::find_if(profiles.begin(), profiles.end(),
                                    [id](const Profile &p) { return p.id == id; });
    return found == profiles.end() ? nullptr : &*found;
}

namespace {

std::string Quoted(const char *text)
{
    return text ? "\"" + std::string(text) + "\"" : "null";
}

std::string ReservedArguments(int first, int second)
{
    return first == 0 && second == 0 ? ""
                                     : ", " + std::to_string(first) + ", " + std::to_string(second);
}

/// Journals a call and carries it out, unless a fault says how it ends.
template <class Body>
int Call(const std::string &name, const std::string &arguments, Body body)
{
    ProfileServiceDouble &service = ProfileService();
    HandsetDoubles &handset = *HandsetDoubles::Current();
    handset.journal.Add(name + "(" + arguments + ")");
    const std::optional<Fault> fault = handset.faults.Next(name);
    return fault ? (fault->kind == FaultKind::Fails ? fault->status : 0) : body(service);
}

NameSlot SlotOf(const std::string &name)
{
    NameSlot slot{};
    std::memcpy(slot.data(), name.data(), std::min(name.size(), slot.size()));
    return slot;
}

} // namespace

} // namespace doubles

using doubles::Call;
using doubles::NameSlot;
using doubles::ProfileServiceDouble;
using doubles::Quoted;

extern "C" {

int NAPI_ListAllProfile(char *names, unsigned int *count)
{
    const std::string arguments = names ? std::to_string(*count) + " slots" : "null";
    return Call("NAPI_ListAllProfile", arguments, [=](ProfileServiceDouble &service) {
        std::vector<NameSlot> slots;
        if (service.listedSlots)
            slots = *service.listedSlots;
        else
            for (const auto &profile : service.profiles)
                slots.push_back(doubles::SlotOf(profile.name));
        if (!names) {
            *count = service.announcedCount.value_or(static_cast<unsigned int>(slots.size()));
            return 0;
        }
        *count = std::min(*count, static_cast<unsigned int>(slots.size()));
        if (*count > 0)
            std::memcpy(names, slots.data(), std::size_t{*count} * NAPI_NAME_SIZE);
        return 0;
    });
}

int NAPI_ReadProfile(const char *name, NAP_PROFILE_S *record, int first, int second)
{
    return Call("NAPI_ReadProfile", Quoted(name) + doubles::ReservedArguments(first, second),
                [=](ProfileServiceDouble &service) -> int {
                    const auto *profile = service.Find(name);
                    if (!profile)
                        return NAPI_ERROR_NOT_FOUND;
                    std::memcpy(record, &profile->record, sizeof *record);
                    return 0;
                });
}

int NAPI_ModifyProfile(const char *name, const NAP_PROFILE_S *record, int first, int second)
{
    return Call("NAPI_ModifyProfile", Quoted(name) + doubles::ReservedArguments(first, second),
                [=](ProfileServiceDouble &service) -> int {
                    auto *profile = service.Find(name);
                    if (!profile)
                        return NAPI_ERROR_NOT_FOUND;
                    std::memcpy(&profile->record, record, sizeof *record);
                    service.modified.push_back(*record);
                    return 0;
                });
}

int NAPI_CreateProfile(const char *name, const NAP_PROFILE_S *record, int first, int second)
{
    return Call("NAPI_CreateProfile", Quoted(name) + doubles::ReservedArguments(first, second),
                [=](ProfileServiceDouble &service) -> int {
                    const std::size_t length = std::strlen(name);
                    if (length == 0 || length >= NAPI_NAME_SIZE)
                        return NAPI_ERROR_BAD_NAME;
                    if (service.Find(name))
                        return NAPI_ERROR_EXISTS;
                    if (static_cast<int>(service.profiles.size()) >= service.maxProfiles)
                        return NAPI_ERROR_STORE_FULL;
                    service.Store(name, *record);
                    service.created.push_back(*record);
                    return 0;
                });
}

int NAPI_DeleteProfile(const char *name)
{
    return Call("NAPI_DeleteProfile", Quoted(name), [=](ProfileServiceDouble &service) -> int {
        const auto *profile = service.Find(name);
        if (!profile)
            return NAPI_ERROR_NOT_FOUND;
        service.profiles.erase(service.profiles.begin() + (profile - service.profiles.data()));
        return 0;
    });
}

int NAPI_GetProfileIDByName(const char *name, unsigned int *id)
{
    return Call("NAPI_GetProfileIDByName", Quoted(name), [=](ProfileServiceDouble &service) -> int {
        const auto *profile = service.Find(name);
        if (!profile)
            return NAPI_ERROR_NOT_FOUND;
        *id = profile->id;
        return 0;
    });
}

int NAPI_GetProfileNameByID(unsigned int id, char *name)
{
    return Call(
        "NAPI_GetProfileNameByID", std::to_string(id), [=](ProfileServiceDouble &service) -> int {
            const auto *profile = service.Find(id);
            if (!profile)
                return NAPI_ERROR_NOT_FOUND;
            const NameSlot slot = service.nameOfEveryId.value_or(doubles::SlotOf(profile->name));
            std::memcpy(name, slot.data(), slot.size());
            return 0;
        });
}

int NAPI_GetMaxProfiles(void)
{
    return Call("NAPI_GetMaxProfiles", "",
                [](ProfileServiceDouble &service) { return service.maxProfiles; });
}

int NAPI_IsProfileValid(const char *name)
{
    return Call("NAPI_IsProfileValid", Quoted(name), [=](ProfileServiceDouble &service) -> int {
        return service.Find(name) ? NAPI_OK : NAPI_ERROR_NOT_FOUND;
    });
}
}
