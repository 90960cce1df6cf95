#include "profile_numbers.h"

#include "setup_set_manager.h"

#include <algorithm>
#include <optional>
#include <set>

namespace client {

namespace {

/// The number that a key begins with: "5" and "5Ph1DC1" belong to profile 5.
std::optional<quint32> numberOf(const QString &key)
{
    const auto isDigit = [](QChar character) { return character >= u'0' && character <= u'9'; };
    const auto end = std::ranges::find_if_not(key, isDigit);
    bool isNumber = false;
    const quint32 number = key.first(end - key.begin()).toUInt(&isNumber, 10);
    return isNumber ? std::optional(number) : std::nullopt;
}

} // namespace

std::map<QString, quint32> readProfileNumbers(const MappingFile &mapping)
{
    const SETUP_SET_Manager settings(getSettingDirectory() + QLatin1String(mapping.file), false);
    const QMap<QString, QString> entries = settings.getEntryKeyList(QLatin1String(mapping.group));
    std::map<QString, quint32> numbers;
    std::set<QString> ambiguous;
    for (auto entry = entries.begin(); entry != entries.end(); ++entry) {
        const auto number = numberOf(entry.key());
        if (!number || entry.value().isEmpty())
            continue;
        if (!numbers.emplace(entry.value(), *number).second)
            ambiguous.insert(entry.value());
    }
    for (const QString &name : ambiguous)
        numbers.erase(name);
    return numbers;
}

} // namespace client
