#include "setup_set_manager.h"

#include "foreign_text.h"
#include "setting_call_observer.h"
#include "settings_file.h"

#include <atomic>
#include <cstdio>

using call_observer::SettingCall;
using call_observer::SettingCallObserver;

namespace {

std::atomic<SettingCallObserver *> callObserver = nullptr;

SettingCallObserver *currentObserver()
{
    return callObserver.load(std::memory_order_acquire);
}

/// @return null when there is none.
QString entryOf(const SettingsFile &file, const QString &group, const QString &key)
{
    return file.groups().value(group).value(key);
}

QString joined(const std::vector<std::string> &faults)
{
    QStringList sentences;
    for (const std::string &fault : faults)
        sentences += QString::fromStdString(fault);
    return sentences.isEmpty() ? QString() : sentences.join(QStringLiteral("; "));
}

/// Tells of a call that reads or writes the file: what goes wrong there reaches somebody.
void tellOfFile(const char *function, SettingsFile &file, bool result)
{
    const std::vector<std::string> faults = file.takeFaults();
    SettingCallObserver *const observer = currentObserver();
    const bool isShown = observer && observer->observe({.function = function,
                                                        .file = file.name(),
                                                        .result = result,
                                                        .reason = joined(faults)});
    for (const std::string &fault : faults)
        if (!isShown)
            std::fprintf(stderr, "kubappbase: %s\n", foreign_text::printable(fault).c_str());
}

} // namespace

SETUP_SET_Manager::SETUP_SET_Manager(const QString &path, bool) : m_file(new SettingsFile(path))
{
    tellOfFile("open", *m_file, !m_file->hasFaults());
}

SETUP_SET_Manager::~SETUP_SET_Manager()
{
    delete m_file;
}

bool SETUP_SET_Manager::flush()
{
    const bool isWritten = m_file->flush();
    tellOfFile("flush", *m_file, isWritten);
    return isWritten;
}

QMap<QString, QString> SETUP_SET_Manager::getEntryKeyList(const QString &group) const
{
    if (SettingCallObserver *const observer = currentObserver())
        observer->observe({.function = "getEntryKeyList", .file = m_file->name(), .group = group});
    return m_file->groups().value(group);
}

bool SETUP_SET_Manager::getSettingInfo(const QString &group, const QString &key, QString &value,
                                       const QString &defaultText, bool) const
{
    const SettingsGroup entries = m_file->groups().value(group);
    const auto entry = entries.constFind(key);
    const bool isThere = entry != entries.cend();
    value = isThere ? *entry : defaultText;
    if (SettingCallObserver *const observer = currentObserver())
        observer->observe({.function = "getSettingInfo",
                           .file = m_file->name(),
                           .group = group,
                           .key = key,
                           .after = isThere ? *entry : QString(),
                           .result = isThere});
    return isThere;
}

bool SETUP_SET_Manager::setSettingInfo(const QString &group, const QString &key,
                                       const QString &value, bool)
{
    SettingCallObserver *const observer = currentObserver();
    const QString before = observer ? entryOf(*m_file, group, key) : QString();
    m_file->set(group, key, value.isNull() ? QLatin1StringView("") : value);
    if (observer)
        observer->observe({.function = "setSettingInfo",
                           .file = m_file->name(),
                           .group = group,
                           .key = key,
                           .before = before,
                           .after = entryOf(*m_file, group, key)});
    return true;
}

bool SETUP_SET_Manager::removeEntry(const QString &group, const QString &key)
{
    SettingCallObserver *const observer = currentObserver();
    const QString before = observer ? entryOf(*m_file, group, key) : QString();
    const bool wasThere = m_file->remove(group, key);
    if (observer)
        observer->observe({.function = "removeEntry",
                           .file = m_file->name(),
                           .group = group,
                           .key = key,
                           .before = before,
                           .result = wasThere});
    return wasThere;
}

extern "C" __attribute__((visibility("default"))) void
kub_appbase_set_call_observer(SettingCallObserver *observer)
{
    callObserver.store(observer, std::memory_order_release);
}
