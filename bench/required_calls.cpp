#include "required_calls.h"

#include "temporary_handset.h"

#include <QByteArray>
#include <QFile>

#include <array>
#include <unistd.h>

namespace bench {

namespace {

const std::array<QString, 2> FILE_NAMES{QStringLiteral("kub_napdef_profilemapping.cfg"),
                                        QStringLiteral("kub_proxy_profilemapping.cfg")};
const std::array<QString, 2> GROUPS{QStringLiteral("NAPIDEF_Profile"),
                                    QStringLiteral("PROXY_Profile")};
const QString CONN_GROUP = QStringLiteral("PROXY_Conn");
const std::array<QString, 3> SUFFIXES{QStringLiteral("Ph1DC1"), QStringLiteral("Ph2DC1"),
                                      QStringLiteral("Ph3DC1")};
const std::array<QString, 3> PH_NAMES{QStringLiteral("/Ph1"), QStringLiteral("/Ph2"),
                                      QStringLiteral("/Ph3")};

std::unique_ptr<SETUP_SET_Manager> Open(MappingFile::Kind kind)
{
    return std::make_unique<SETUP_SET_Manager>(getSettingDirectory() + FILE_NAMES[kind], false);
}

QString Read(SETUP_SET_Manager &manager, const QString &group, const QString &key)
{
    QString value;
    manager.getSettingInfo(group, key, value, QString(), false);
    return value;
}

void Write(SETUP_SET_Manager &manager, const QString &group, const QString &key,
           const QString &value)
{
    Require(manager.setSettingInfo(group, key, value, false), "setSettingInfo");
    Require(manager.flush(), "flush");
}

std::string NameOf(unsigned int id)
{
    char name[NAPI_NAME_SIZE];
    Require(NAPI_GetProfileNameByID(id, name) == 0, "NAPI_GetProfileNameByID");
    return name;
}

/// The bearer that the profile's subtree gets at mount: index of SUFFIXES, or -1.
int FirstBearer(const NAP_PROFILE_S &record)
{
    if (record.gprsAddress[0])
        return 0;
    if (record.csdAddress[0])
        return 1;
    return record.csd2Address[0] ? 2 : -1;
}

struct Listed {
    QString nodeName;
    QString id;
    int bearer;
    NAP_PROFILE_S record;
};

void RequiredForConnSubtrees(SETUP_SET_Manager &manager, const std::vector<Listed> &profiles)
{
    // The bearer leaf of each profile takes the entry out of the file and puts it in again.
    for (const Listed &profile : profiles) {
        const QString key = profile.id + SUFFIXES[static_cast<std::size_t>(profile.bearer)];
        manager.removeEntry(GROUPS[MappingFile::Napdef], key);
        Require(manager.flush(), "flush");
        Write(manager, GROUPS[MappingFile::Napdef], key, profile.nodeName);
    }
}

void RequiredForIntProfsSubtrees(SETUP_SET_Manager &manager, const std::vector<Listed> &profiles)
{
    for (const Listed &profile : profiles) {
        const NAP_PROFILE_S &record = profile.record;
        const bool bearers[] = {record.gprsAddress[0] != 0, record.csdAddress[0] != 0,
                                record.csd2Address[0] != 0};
        for (std::size_t i = 0; i < PH_NAMES.size(); ++i) {
            const QString key = profile.nodeName + PH_NAMES[i];
            Read(manager, CONN_GROUP, key);
            if (!bearers[i])
                continue;
            const QString reference = Read(*Open(MappingFile::Napdef), GROUPS[MappingFile::Napdef],
                                           profile.id + SUFFIXES[i]);
            Write(manager, CONN_GROUP, key, reference);
        }
    }
}

} // namespace

MappingFile::MappingFile(Kind kind) : m_kind(kind), m_group(GROUPS[kind]), m_manager(Open(kind)) {}

KnownProfile LookUpProfile(const char *name, const QString &suffix)
{
    KnownProfile profile;
    Require(NAPI_GetProfileIDByName(name, &profile.id) == 0, "NAPI_GetProfileIDByName");
    profile.name = name;
    profile.nodeName = QString::fromUtf8(name);
    profile.idKey = QString::number(profile.id) + suffix;
    return profile;
}

void RequiredForMount(MappingFile::Kind kind)
{
    const QString path = getSettingDirectory() + FILE_NAMES[kind];
    ::unlink(QFile::encodeName(path).constData());
    SETUP_SET_Manager manager(path, false);
    manager.getEntryKeyList(GROUPS[kind]);
    if (kind == MappingFile::Proxy)
        manager.getEntryKeyList(CONN_GROUP);
    unsigned int count = 0;
    Require(NAPI_ListAllProfile(nullptr, &count) == 0, "NAPI_ListAllProfile");
    std::vector<char> names(std::size_t{count} * NAPI_NAME_SIZE);
    Require(NAPI_ListAllProfile(names.data(), &count) == 0, "NAPI_ListAllProfile");

    std::vector<Listed> profiles;
    profiles.reserve(count);
    for (unsigned int i = 0; i < count; ++i) {
        const char *const name = names.data() + std::size_t{i} * NAPI_NAME_SIZE;
        Listed &profile = profiles.emplace_back();
        unsigned int id = 0;
        Require(NAPI_ReadProfile(name, &profile.record, 0, 0) == 0, "NAPI_ReadProfile");
        Require(NAPI_GetProfileIDByName(name, &id) == 0, "NAPI_GetProfileIDByName");
        profile.bearer = FirstBearer(profile.record);
        profile.nodeName = QString::fromUtf8(name);
        profile.id = QString::number(id);
        const QString key = kind == MappingFile::Napdef
                                ? profile.id + SUFFIXES[static_cast<std::size_t>(profile.bearer)]
                                : profile.id;
        Read(manager, GROUPS[kind], key);
        Write(manager, GROUPS[kind], key, profile.nodeName);
    }
    if (kind == MappingFile::Napdef)
        RequiredForConnSubtrees(manager, profiles);
    else
        RequiredForIntProfsSubtrees(manager, profiles);
}

void RequiredForReadingRecordLeaf(const KnownProfile &profile)
{
    NAP_PROFILE_S record;
    Require(NAPI_ReadProfile(NameOf(profile.id).c_str(), &record, 0, 0) == 0, "NAPI_ReadProfile");
}

void RequiredForWritingRecordLeaf(const KnownProfile &profile, const NAP_PROFILE_S &record)
{
    NAP_PROFILE_S before;
    const std::string name = NameOf(profile.id);
    Require(NAPI_ReadProfile(name.c_str(), &before, 0, 0) == 0, "NAPI_ReadProfile");
    Require(NAPI_ModifyProfile(name.c_str(), &record, 0, 0) == 0, "NAPI_ModifyProfile");
}

void RequiredForWritingBearer(MappingFile &file, KnownProfile &profile, const QString &newKey,
                              const NAP_PROFILE_S &record)
{
    NAP_PROFILE_S before;
    const std::string name = NameOf(profile.id);
    Require(NAPI_ReadProfile(name.c_str(), &before, 0, 0) == 0, "NAPI_ReadProfile");
    Require(file.Manager().removeEntry(file.Group(), profile.idKey), "removeEntry");
    Require(file.Manager().flush(), "flush");
    profile.idKey = newKey;
    Write(file.Manager(), file.Group(), profile.idKey, profile.nodeName);
    Require(NAPI_ModifyProfile(name.c_str(), &record, 0, 0) == 0, "NAPI_ModifyProfile");
}

void RequiredForWritingConn(MappingFile &file, const KnownProfile &profile, const QString &key,
                            const QString &value)
{
    RequiredForReadingRecordLeaf(profile);
    Write(file.Manager(), CONN_GROUP, key, value);
}

KnownProfile RequiredForAddingProfile(MappingFile &file, const std::string &name)
{
    NAP_PROFILE_S record{};
    record.creation = 1;
    Require(NAPI_IsProfileValid(name.c_str()) != 0, "a new profile's name");
    NAPI_GetMaxProfiles();
    Require(NAPI_CreateProfile(name.c_str(), &record, 0, 0) == 0, "NAPI_CreateProfile");
    KnownProfile profile = LookUpProfile(
        name.c_str(), file.GetKind() == MappingFile::Napdef ? SUFFIXES[1] : QString());
    Read(file.Manager(), file.Group(), profile.idKey);
    Write(file.Manager(), file.Group(), profile.idKey, profile.nodeName);
    return profile;
}

void RequiredForDeletingProfile(MappingFile &file, const KnownProfile &profile)
{
    const std::string name = NameOf(profile.id);
    Require(file.Manager().removeEntry(file.Group(), profile.idKey), "removeEntry");
    Require(file.Manager().flush(), "flush");
    unsigned int id = 0;
    Require(NAPI_GetProfileIDByName(name.c_str(), &id) == 0, "NAPI_GetProfileIDByName");
    const std::unique_ptr<SETUP_SET_Manager> other =
        Open(file.GetKind() == MappingFile::Napdef ? MappingFile::Proxy : MappingFile::Napdef);
    SETUP_SET_Manager &proxy = file.GetKind() == MappingFile::Napdef ? *other : file.Manager();
    SETUP_SET_Manager &napdef = file.GetKind() == MappingFile::Napdef ? file.Manager() : *other;
    const QString idText = QString::number(id);
    Read(proxy, GROUPS[MappingFile::Proxy], idText);
    for (const QString &suffix : SUFFIXES)
        Read(napdef, GROUPS[MappingFile::Napdef], idText + suffix);
    Require(NAPI_DeleteProfile(name.c_str()) == 0, "NAPI_DeleteProfile");
}

void RequiredForRenamingProfile(MappingFile &file, KnownProfile &profile, const QString &newName)
{
    Write(file.Manager(), file.Group(), profile.idKey, newName);
    if (file.GetKind() == MappingFile::Proxy) {
        for (const QString &phName : PH_NAMES) {
            const QString oldKey = profile.nodeName + phName;
            const QString reference = Read(file.Manager(), CONN_GROUP, oldKey);
            if (reference.isNull())
                continue;
            file.Manager().removeEntry(CONN_GROUP, oldKey);
            Write(file.Manager(), CONN_GROUP, newName + phName, reference);
        }
    }
    profile.nodeName = newName;
}

} // namespace bench
