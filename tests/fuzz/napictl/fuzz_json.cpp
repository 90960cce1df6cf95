// Any bytes as a file of profiles to import: whatever is taken can be stored, and what is exported
// of it imports as the same record.
#include "profile_json.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

bool fill(NAP_PROFILE_S &record, const JsonProfile &profile)
{
    return bool(setFields(record, profile.values));
}

void checkRoundTrip(const QString &name, const NAP_PROFILE_S &record)
{
    if (!recordFaults(record).isEmpty())
        std::abort(); // what was taken from JSON has no faults
    const auto again = parseProfiles(formatProfile(name, record, true));
    NAP_PROFILE_S same{};
    if (!again || again->size() != 1 || again->at(0).name != name || !fill(same, again->at(0)) ||
        std::memcmp(&same, &record, sizeof record) != 0)
        std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const auto profiles = parseProfiles(
        QByteArray(reinterpret_cast<const char *>(data), static_cast<qsizetype>(size)));
    if (!profiles)
        return 0;
    for (const JsonProfile &profile : *profiles) {
        NAP_PROFILE_S record{};
        if (fill(record, profile) && profile.maskedSecrets.isEmpty())
            checkRoundTrip(profile.name, record);
    }
    return 0;
}
