#include "setup_set_manager.h"

#include "settings_file.h"

SETUP_SET_Manager::SETUP_SET_Manager(const QString &path, bool) : m_file(new SettingsFile(path)) {}

SETUP_SET_Manager::~SETUP_SET_Manager()
{
    delete m_file;
}

bool SETUP_SET_Manager::flush()
{
    return m_file->flush();
}

QMap<QString, QString> SETUP_SET_Manager::getEntryKeyList(const QString &group) const
{
    return m_file->groups().value(group);
}

bool SETUP_SET_Manager::getSettingInfo(const QString &group, const QString &key, QString &value,
                                       const QString &defaultText, bool) const
{
    const SettingsGroup entries = m_file->groups().value(group);
    const auto entry = entries.constFind(key);
    const bool isThere = entry != entries.cend();
    value = isThere ? *entry : defaultText;
    return isThere;
}

bool SETUP_SET_Manager::setSettingInfo(const QString &group, const QString &key,
                                       const QString &value, bool)
{
    m_file->set(group, key, value.isNull() ? QLatin1StringView("") : value);
    return true;
}

bool SETUP_SET_Manager::removeEntry(const QString &group, const QString &key)
{
    return m_file->remove(group, key);
}
