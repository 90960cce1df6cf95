// Tests of the store on the real daemon of with-private-networkmanager.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include <QStringList>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include "profile_store.h"

/// Each test begins with a daemon that has no connection and with no numeric ID given.
class PrivateDaemonTest : public testing::Test {
protected:
    PrivateDaemonTest();
    ~PrivateDaemonTest() override;

    /// Runs nmcli, the witness that does not use our code. A failure fails the test.
    /// @return its output without the line break at the end
    static QString nmcli(const QStringList &arguments);
    static QString settled(const QStringList &arguments);
    /// Makes a connection of type gsm with nmcli. @return its UUID.
    static QString addByHand(const QString &id, const QStringList &properties = {});
    /// @return a property as nmcli shows it, secrets included.
    static QString shown(const QString &uuid, const QString &property);
    /// @return everything that nmcli shows of a connection, secrets included.
    static QStringList shownAll(const QString &uuid);
    /// Starts or stops the daemon.
    static void daemon(const char *action);
    /// @return the key file of a connection.
    static QString keyFile(const QString &uuid);

    /// Forgets what the store keeps in memory, and the IDs on disk when wanted.
    void reopen();
    void forgetNumbers();
    /// Reopens the store with the IDs on a read-only disk, and on the one from before.
    void mountNumbersReadOnly();
    void unmountNumbers();

    // Operations of the store that have to succeed.
    NAP_PROFILE_S read(std::string_view name);
    void modify(std::string_view name, const NAP_PROFILE_S &record);
    void create(std::string_view name, const NAP_PROFILE_S &record = {});
    void remove(std::string_view name);
    std::vector<std::string> list();
    std::uint32_t idOf(std::string_view name);

    ProfileStore &store() { return *m_store; }

private:
    void open();

    std::unique_ptr<QTemporaryDir> m_directory;
    std::unique_ptr<ProfileStore> m_store;
};

/// Puts a text into a field of a record.
template <std::size_t size>
void setText(char (&field)[size], std::string_view text)
{
    std::fill_n(field, size, '\0');
    text.copy(field, size);
}
