// Any bytes as a file of profiles to import: whatever is taken can be stored, and what is exported
// of it imports as the same record.
#include "profile_json.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

bool fill(NAP_PROFILE_S &record, const JsonProfile &profile)
{
    return setFields(record, profile.values).isNull();
}

void checkRoundTrip(const QString &name, const NAP_PROFILE_S &record)
{
    if (!recordFaults(record).isEmpty())
        std::abort(); // what was taken from JSON has no faults
    QString fault;
    const QList<JsonProfile> again = parseProfiles(formatProfile(name, record, true), fault);
    NAP_PROFILE_S same{};
    if (!fault.isNull() || again.size() != 1 || again[0].name != name || !fill(same, again[0]) ||
        std::memcmp(&same, &record, sizeof record) != 0)
        std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    QString fault;
    const QList<JsonProfile> profiles = parseProfiles(
        QByteArray(reinterpret_cast<const char *>(data), static_cast<qsizetype>(size)), fault);
    if (!fault.isNull())
        return 0;
    for (const JsonProfile &profile : profiles) {
        NAP_PROFILE_S record{};
        if (fill(record, profile) && profile.maskedSecrets.isEmpty())
            checkRoundTrip(profile.name, record);
    }
    return 0;
}
