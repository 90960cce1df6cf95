// Any bytes as a settings file: what is read is written as a file that reads the same, without a
// line that has to be skipped. Changes at its end make the other half of the bytes of it, all or
// none.
#include "settings_format.h"

#include <cstdint>
#include <cstdlib>

namespace {

/// Every entry of the one that the other lacks, or has another value of.
QList<SettingsChange> changesBetween(const SettingsGroups &from, const SettingsGroups &to)
{
    QList<SettingsChange> changes;
    for (auto group = from.cbegin(); group != from.cend(); ++group)
        for (const QString &key : group->keys())
            if (!to.value(group.key()).contains(key))
                changes += SettingsChange{group.key(), key, std::nullopt};
    for (auto group = to.cbegin(); group != to.cend(); ++group)
        for (auto entry = group->cbegin(); entry != group->cend(); ++entry)
            if (!from.value(group.key()).contains(entry.key()) ||
                from[group.key()][entry.key()] != *entry)
                changes += SettingsChange{group.key(), entry.key(), *entry};
    return changes;
}

SettingsGroups withoutEmptyGroups(SettingsGroups groups)
{
    groups.removeIf([](const auto &group) { return group.value().isEmpty(); });
    return groups;
}

void checkChanges(QByteArrayView bytes)
{
    const SettingsGroups before =
        withoutEmptyGroups(parseSettings(bytes.first(bytes.size() / 2)).groups);
    const SettingsGroups after =
        withoutEmptyGroups(parseSettings(bytes.sliced(bytes.size() / 2)).groups);
    const QByteArray entries = formatSettings(before);
    const QByteArray file = entries + formatChanges(changesBetween(before, after));
    const ParsedSettings whole = parseSettings(file);
    if (whole.skippedLines != 0 || whole.isCutOff || withoutEmptyGroups(whole.groups) != after)
        std::abort();
    if (file.size() - entries.size() < 2)
        std::abort(); // there is always the line that says how many
    const qsizetype cut = entries.size() + 1 + bytes.size() % (file.size() - entries.size() - 1);
    const ParsedSettings part = parseSettings(file.first(cut));
    if (part.skippedLines != 0 || !part.isCutOff || part.groups != before)
        std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const QByteArrayView bytes(reinterpret_cast<const char *>(data), static_cast<qsizetype>(size));
    ParsedSettings first = parseSettings(bytes);
    first.groups = withoutEmptyGroups(std::move(first.groups));
    for (const SettingsGroup &group : first.groups)
        for (auto entry = group.cbegin(); entry != group.cend(); ++entry)
            if (entry.key().isNull() || entry.value().isNull())
                std::abort(); // null stands for an entry that is not there
    const QByteArray written = formatSettings(first.groups);
    const ParsedSettings second = parseSettings(written);
    if (second.skippedLines != 0 || second.groups != first.groups ||
        formatSettings(second.groups) != written)
        std::abort();
    checkChanges(bytes);
    return 0;
}
