#include "nmcli_witness.h"

#include <QProcess>
#include <QStringList>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

namespace {

QStringList Nmcli(const QStringList &arguments)
{
    QProcess process;
    process.start(QStringLiteral("nmcli"), arguments);
    EXPECT_TRUE(process.waitForFinished());
    EXPECT_EQ(process.exitCode(), 0) << process.readAllStandardError().toStdString();
    QString output = QString::fromUtf8(process.readAllStandardOutput());
    output.chop(1);
    return output.split(u'\n');
}

/// nmcli itself now and then shows no secret of a connection that has just been changed, although
/// the daemon hands it out: what is not expected is asked for again.
void ExpectNmcli(const QStringList &expected, const QStringList &arguments)
{
    QStringList shown = Nmcli(arguments);
    for (int attempt = 0; shown != expected && attempt < 3; ++attempt)
        shown = Nmcli(arguments);
    EXPECT_EQ(shown.join(u'\n').toStdString(), expected.join(u'\n').toStdString())
        << arguments.last().toStdString();
}

template <std::size_t size>
QString RecordText(const char (&field)[size])
{
    return QString::fromUtf8(field, static_cast<qsizetype>(strnlen(field, size)));
}

/// The fields without empty places, as a connection lists its servers.
QString Servers(const NAP_PROFILE_S &record)
{
    QStringList servers;
    for (const std::uint32_t address : {record.gprsDns1, record.gprsDns2})
        if (address != 0)
            servers.append(QStringLiteral("%1.%2.%3.%4")
                               .arg(address >> 24U)
                               .arg(address >> 16U & 0xFFU)
                               .arg(address >> 8U & 0xFFU)
                               .arg(address & 0xFFU));
    return servers.join(u',');
}

} // namespace

bool isNetworkManagerBackend()
{
    return qEnvironmentVariable("KUB_NAPI_BACKEND") == QStringLiteral("networkmanager");
}

void expectNmcliShows(const std::map<std::string, NAP_PROFILE_S> &profilesByName)
{
    const QStringList types = Nmcli({QStringLiteral("-g"), QStringLiteral("type"),
                                     QStringLiteral("connection"), QStringLiteral("show")});
    EXPECT_EQ(types.count(QStringLiteral("gsm")), static_cast<qsizetype>(profilesByName.size()));
    for (const auto &[name, record] : profilesByName) {
        ExpectNmcli({RecordText(record.gprsAddress), RecordText(record.gprsAuthId),
                     RecordText(record.gprsAuthPassword), Servers(record)},
                    {QStringLiteral("-s"), QStringLiteral("-e"), QStringLiteral("no"),
                     QStringLiteral("-g"),
                     QStringLiteral("gsm.apn,gsm.username,gsm.password,ipv4.dns"),
                     QStringLiteral("connection"), QStringLiteral("show"), QStringLiteral("id"),
                     QString::fromStdString(name)});
    }
}
