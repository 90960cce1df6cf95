#include "characteristic_reader.h"

#include <algorithm>
#include <initializer_list>
#include <utility>

namespace client::bootstrap {

namespace {

const QString &shownNameOf(const Parm &parm)
{
    return parm.shownAs.isEmpty() ? parm.name : parm.shownAs;
}

} // namespace

CharacteristicReader::CharacteristicReader(const Characteristic &characteristic, QString label,
                                           std::vector<IgnoredPart> &ignored)
    : m_characteristic(characteristic), m_label(std::move(label)), m_ignored(ignored),
      m_isUsed(characteristic.parms.size() + characteristic.parts.size())
{
}

CharacteristicReader::~CharacteristicReader()
{
    const std::size_t parms = m_characteristic.parms.size();
    for (std::size_t i = 0; i < m_isUsed.size(); ++i)
        if (!m_isUsed[i])
            tell(i < parms ? shownNameOf(m_characteristic.parms[i])
                           : labelOf(m_characteristic.parts[i - parms], {}),
                 QStringLiteral("nothing on this device keeps it"));
}

QString CharacteristicReader::labelOfPart(const Characteristic &part) const
{
    return QStringLiteral("%1: %2").arg(m_label, labelOf(part, {}));
}

QString CharacteristicReader::shownName(const QString &parm) const
{
    const auto found = std::ranges::find(m_characteristic.parms, parm, &Parm::name);
    return found == m_characteristic.parms.end() ? parm : shownNameOf(*found);
}

void CharacteristicReader::ignoreWhole(const QString &why)
{
    m_isUsed.assign(m_isUsed.size(), true);
    m_ignored.push_back({m_label, why});
}

void CharacteristicReader::ignore(const QString &what, const QString &why)
{
    tell(shownName(what), why);
}

void CharacteristicReader::tell(const QString &what, const QString &why)
{
    m_ignored.push_back({QStringLiteral("%1: %2").arg(m_label, what), why});
}

std::vector<QString> CharacteristicReader::texts(const char *name)
{
    std::vector<QString> found;
    for (std::size_t i = 0; i < m_characteristic.parms.size(); ++i) {
        const Parm &parm = m_characteristic.parms[i];
        if (parm.name != QLatin1String(name) || !parm.value)
            continue;
        m_isUsed[i] = true;
        found.push_back(*parm.value);
    }
    return found;
}

std::optional<QString> CharacteristicReader::text(const char *name)
{
    for (std::size_t i = 0; i < m_characteristic.parms.size(); ++i) {
        const Parm &parm = m_characteristic.parms[i];
        if (parm.name == QLatin1String(name) && parm.value) {
            m_isUsed[i] = true;
            return parm.value;
        }
    }
    return std::nullopt;
}

bool CharacteristicReader::flag(const char *name)
{
    bool isThere = false;
    for (std::size_t i = 0; i < m_characteristic.parms.size(); ++i)
        if (m_characteristic.parms[i].name == QLatin1String(name))
            isThere = m_isUsed[i] = true;
    return isThere;
}

std::vector<const Characteristic *> CharacteristicReader::parts(const char *type)
{
    std::vector<const Characteristic *> found;
    for (std::size_t i = 0; i < m_characteristic.parts.size(); ++i) {
        if (m_characteristic.parts[i].type != QLatin1String(type))
            continue;
        m_isUsed[m_characteristic.parms.size() + i] = true;
        found.push_back(&m_characteristic.parts[i]);
    }
    return found;
}

QString labelOf(const Characteristic &characteristic, std::initializer_list<const char *> names)
{
    if (!characteristic.shownAs.isEmpty())
        return characteristic.shownAs;
    for (const char *const name : names)
        if (const auto value = valueOf(characteristic, name))
            return QStringLiteral("%1 %2").arg(characteristic.type, *value);
    return characteristic.type;
}

std::optional<QString> valueOf(const Characteristic &characteristic, const char *name)
{
    for (const Parm &parm : characteristic.parms)
        if (parm.name == QLatin1String(name) && parm.value)
            return parm.value;
    return std::nullopt;
}

} // namespace client::bootstrap
