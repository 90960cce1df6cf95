#include "temporary_handset.h"

#include "profile_fields.h"
#include "profile_naming.h"
#include "provider_database.h"

#include <QByteArray>
#include <QFile>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace bench {

void Require(bool succeeded, const std::string &call)
{
    if (succeeded)
        return;
    std::fprintf(stderr, "kub-bench: %s failed\n", call.c_str());
    std::exit(1);
}

TemporaryHandset::TemporaryHandset()
{
    std::string name = std::filesystem::temp_directory_path() / "kub-bench-XXXXXX";
    Require(::mkdtemp(name.data()) != nullptr, "mkdtemp " + name);
    m_directory = name;
    Require(::setenv("KUB_STATE_DIR", name.c_str(), 1) == 0, "setenv");
    Require(::setenv("KUB_NAPI_MAX", "1000000", 1) == 0, "setenv");
}

TemporaryHandset::~TemporaryHandset()
{
    std::error_code ignored;
    std::filesystem::remove_all(m_directory, ignored);
}

namespace {

template <std::size_t Size>
void SetText(char (&field)[Size], const std::string &text)
{
    std::copy_n(text.data(), std::min(text.size(), Size), field);
}

std::vector<std::string> StoredNames()
{
    unsigned int count = 0;
    Require(NAPI_ListAllProfile(nullptr, &count) == 0, "NAPI_ListAllProfile");
    std::vector<char> slots(std::size_t{count} * NAPI_NAME_SIZE + 1);
    Require(NAPI_ListAllProfile(slots.data(), &count) == 0, "NAPI_ListAllProfile");
    std::vector<std::string> names;
    for (unsigned int i = 0; i < count; ++i)
        names.emplace_back(slots.data() + std::size_t{i} * NAPI_NAME_SIZE);
    return names;
}

void Create(const std::string &name, const NAP_PROFILE_S &record)
{
    Require(NAPI_CreateProfile(name.c_str(), &record, 0, 0) == 0, "NAPI_CreateProfile " + name);
}

} // namespace

NAP_PROFILE_S PacketRecord(int number)
{
    NAP_PROFILE_S record{};
    SetText(record.gprsAddress, "apn" + std::to_string(number) + ".operator.example");
    SetText(record.gprsAuthId, "user" + std::to_string(number));
    SetText(record.gprsAuthPassword, "password" + std::to_string(number));
    record.gprsDns1 = 0x0A000001;
    record.gprsDns2 = 0x0A000002;
    record.gprsLinger = 30;
    SetText(record.proxy1Address, "proxy.operator.example");
    record.proxy1Port = 8080;
    SetText(record.proxy2Address, "proxy2.operator.example");
    record.proxy2Port = 3128;
    return record;
}

namespace {

void EmptyStore()
{
    for (const std::string &name : StoredNames())
        Require(NAPI_DeleteProfile(name.c_str()) == 0, "NAPI_DeleteProfile " + name);
}

void StoreNamedProfiles(int number)
{
    NAP_PROFILE_S modem{};
    SetText(modem.csdAddress, "+491720000");
    modem.csdSpeedCode = 0x4B;
    Create(MODEM_PROFILE, modem);
    Create(PACKET_PROFILE, PacketRecord(number));
}

NAP_PROFILE_S RecordOf(const AccessPoint &accessPoint)
{
    NAP_PROFILE_S record{};
    const auto set = [&record](QStringView path, const QString &value) {
        if (!value.isEmpty()) // a value that does not fit is left out
            (void)setFields(record, {FieldValue{findField(path), value}});
    };
    set(u"gprs.address", accessPoint.apn);
    set(u"gprs.authId", accessPoint.userName);
    set(u"gprs.authPassword", accessPoint.password);
    set(u"gprs.dns1", accessPoint.dnsServers.value(0));
    set(u"gprs.dns2", accessPoint.dnsServers.value(1));
    return record;
}

} // namespace

void StoreProfiles(int count)
{
    EmptyStore();
    for (int i = 0; i < count - 2; ++i)
        Create("Operator " + std::to_string(i), PacketRecord(i));
    StoreNamedProfiles(count);
}

int StoreOperatorsProfiles(const std::string &databaseFile)
{
    QFile file(QString::fromStdString(databaseFile));
    if (!file.open(QIODevice::ReadOnly))
        return 0;
    const auto providers = parseProviderDatabase(file.readAll());
    Require(bool(providers),
            databaseFile + ": " + (providers ? "" : providers.error().toStdString()));
    EmptyStore();
    int count = 0;
    for (const Provider &provider : *providers)
        for (const AccessPoint &accessPoint : provider.accessPoints) {
            ++count;
            const QString name =
                profileNameCandidates(provider.displayName(), accessPoint.displayName(), true)
                    .first();
            Create(cutProfileName(name, ' ' + QByteArray::number(count)).toStdString(),
                   RecordOf(accessPoint));
        }
    StoreNamedProfiles(count);
    return count + 2;
}

} // namespace bench
