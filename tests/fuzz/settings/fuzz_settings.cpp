// Any bytes as a settings file: what is read is written as a file that reads the same, without a
// line that has to be skipped.
#include "settings_format.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const QByteArrayView bytes(reinterpret_cast<const char *>(data), static_cast<qsizetype>(size));
    ParsedSettings first = parseSettings(bytes);
    first.groups.removeIf([](const auto &group) { return group.value().isEmpty(); });
    for (const SettingsGroup &group : first.groups)
        for (auto entry = group.cbegin(); entry != group.cend(); ++entry)
            if (entry.key().isNull() || entry.value().isNull())
                std::abort(); // null stands for an entry that is not there
    const QByteArray written = formatSettings(first.groups);
    const ParsedSettings second = parseSettings(written);
    if (second.skippedLines != 0 || second.groups != first.groups ||
        formatSettings(second.groups) != written)
        std::abort();
    return 0;
}
