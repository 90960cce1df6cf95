// The tree of one mounted root.
//
//   ./DevDetail/Ext/Conf/Conn/Profiles            ./DevDetail/Ext/Conf/IntProfs/Profiles
//   NAPDEF kind                                   PROXY kind
//   `- <profile>                                  `- <profile>
//      |- Bearer    chr                              |- Ph1, Ph2, Ph3
//      |- Addr      chr                              |  |- Conn          chr
//      |- DNS1      chr                              |  |- Addr          chr
//      |- DNS2      chr                              |  `- Port
//      |- Linger    int                              |     `- PortNbr    int
//      |- Auth                                       `- UserEditable     bool
//      |  `- PAP
//      |     |- AuthId chr
//      |     `- AuthPw chr
//      |- LineType  chr
//      `- Speed     int
//
// A server names nodes as it likes; the profile service knows profiles by ID and by name.
// m_ProfileMaps and the kind's mapping file hold the association. The file is discarded and rebuilt
// at every mount, follows every single change, and is how the two trees, which never meet, learn of
// each other.
//
// Errors: every operation answers with a status. Nothing is rolled back: what an operation had done
// before it failed stays done. All calls come on the engine's thread, one at a time.
//
// Contents
//   Names and keys
//   Life cycle
//   Node paths
//   Map between node names and profiles
//   Questions about a profile
//   Map maintenance
//   Connection references
//   Layout of a profile
//   Mounting
//   Deleting
//   Renaming
//   Values of all children
//   Adding

#include "DM_Napi_PluginTree.h"

#include "DM_Napi_Plugin.h"
#include "DM_Napi_PluginNode.h"
#include "setup_set_manager.h"

#include <QByteArray>
#include <QFile>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include <unistd.h>

// ---- Names and keys -----------------------------------------------------------------------------

namespace {

/// What differs between the two mapping files.
struct MappingFile {
    QString fileName;
    QString profileGroup; // ID key = node name
};

const MappingFile NAPDEF_FILE{QStringLiteral("kub_napdef_profilemapping.cfg"),
                              QStringLiteral("NAPIDEF_Profile")};
const MappingFile PROXY_FILE{QStringLiteral("kub_proxy_profilemapping.cfg"),
                             QStringLiteral("PROXY_Profile")};

/// Group of the PROXY file: "node name/slot" = node name in the NAPDEF tree.
const QString CONN_GROUP = QStringLiteral("PROXY_Conn");

constexpr std::size_t CONN_KEY_SUFFIX_LENGTH = 4; // a slash and the slot

/// Starts the part of a node name that is not part of the profile's name.
constexpr char LOGICAL_ID_SEPARATOR[] = "&&_";

constexpr std::size_t MAX_PROFILE_NAME_LENGTH = NAPI_NAME_SIZE - 1;

QString MappingFilePath(const MappingFile &file)
{
    return getSettingDirectory() + file.fileName;
}

/// Opens a mapping file as the disk has it now; null when memory is short.
std::unique_ptr<SETUP_SET_Manager> OpenMappingFile(const QString &path)
{
    return std::unique_ptr<SETUP_SET_Manager>(new (std::nothrow) SETUP_SET_Manager(path, false));
}

/// Reads one entry; an absent one is null, one without a value is empty.
QString ReadEntry(const SETUP_SET_Manager &manager, const QString &group, const QString &key)
{
    QString value;
    manager.getSettingInfo(group, key, value, QString(), false);
    return value;
}

// ID keys go to the files as Latin-1, node names as UTF-8.

QString FromIdKey(const DMString &key)
{
    return QString::fromLatin1(key.text());
}

QString FromNodeName(const DMString &name)
{
    return QString::fromUtf8(name.text());
}

DMString ToNodeName(const QString &text)
{
    return DMString(text.toUtf8().constData());
}

/// Key of a slot's connection reference: the bytes of the node name, one character each.
QString ConnKey(const DMString &profileNodeName, const char *phName)
{
    NodePath path(profileNodeName.text());
    path.Enter(phName);
    return QString::fromLatin1(path.text());
}

/// The ID key of a profile, in the NAPDEF kind with the suffix of its bearer.
DMString IdKey(unsigned int id, const char *keySuffix = "")
{
    return DMString(std::to_string(id).append(keySuffix).c_str());
}

/// The mapping of an ID key, without a bearer; null when memory is short.
std::unique_ptr<ProfileInfo> NewProfileInfo(const DMString &idKey)
{
    std::unique_ptr<ProfileInfo> info(new (std::nothrow) ProfileInfo);
    if (info)
        info->sProfileID = idKey;
    return info;
}

/// The bearer whose suffix ends the ID key; null for a key without one.
const BearerPart *BearerOfKey(const DMString &key)
{
    const std::string_view text(key.text());
    for (const BearerPart &part : BEARER_PARTS)
        if (text.ends_with(part.keySuffix))
            return &part;
    return nullptr;
}

/// The ID key without its bearer suffix; a view into the key.
std::string_view WithoutSuffix(const DMString &key)
{
    std::string_view bare(key.text());
    if (BearerOfKey(key))
        bare.remove_suffix(KEY_SUFFIX_LENGTH);
    return bare;
}

/// The last characters of a key, as many as a suffix has; a shorter key is its own suffix.
DMString KeySuffix(const DMString &key)
{
    const std::size_t length = key.length();
    return DMString(key.text() + (length > KEY_SUFFIX_LENGTH ? length - KEY_SUFFIX_LENGTH : 0));
}

} // namespace

// ---- Life cycle ---------------------------------------------------------------------------------

DM_NAPI_PluginTree::DM_NAPI_PluginTree(const char *rootPath)
{
    DmtPluginTree::Init(rootPath);
    LOG_TRACE(" Constructor of DM_NAPI_PluginTree! rootpath = %s\n", rootPath);
    const bool isProxy = std::strstr(rootPath, INTPROFS_ROOT_PATH) != nullptr;
    m_isNAPDEF = isProxy ? 0 : 1;
    m_groupName = (isProxy ? PROXY_FILE : NAPDEF_FILE).profileGroup;
}

DM_NAPI_PluginTree::~DM_NAPI_PluginTree()
{
    LOG_TRACE("Destructor of DM_NAPI_PluginTree! rootpath = %s\n", GetRootPath().text());
    // The engine's memory goes back in this order: the values, the file, then the members.
    m_ProfileMaps.freeValues();
    m_psetupManager.reset();
}

// ---- Node paths ---------------------------------------------------------------------------------

void DM_NAPI_PluginTree::ParseNodePath(const DMString &path, DMString &parentPath,
                                       DMString &nodeName) const
{
    const char *const text = path.text();
    const char *const slash = std::strrchr(text, '/');
    const DMString parent =
        slash ? DMString(text, static_cast<std::size_t>(slash - text)) : DMString("");
    const DMString name(slash ? slash + 1 : text);
    LOG_TRACE("ParseNodePath(),NodePath = %s, ParentNodePath = %s, NodeName = %s\n", text,
              parent.text(), name.text());
    parentPath = parent;
    nodeName = name;
}

void DM_NAPI_PluginTree::ParseLogicalId(const DMString &nodeName, DMString &logicalId) const
{
    const char *const text = nodeName.text();
    const char *const separator = std::strstr(text, LOGICAL_ID_SEPARATOR);
    const DMString id =
        separator ? DMString(text, static_cast<std::size_t>(separator - text)) : DMString(text);
    LOG_TRACE("ParseLogicalId(),sNodeName = %s, sLogicalId = %s\n", text, id.text());
    logicalId = id;
}

bool DM_NAPI_PluginTree::HasEmptyNodeName(const DMString &path) const
{
    DMString parentPath;
    DMString nodeName;
    ParseNodePath(path, parentPath, nodeName);
    return nodeName.empty();
}

// ---- Map between node names and profiles --------------------------------------------------------

int ProfileMap::find(std::string_view nodeName) const
{
    const auto place = m_places.find(nodeName);
    return place == m_places.end() ? -1 : place->second;
}

void ProfileMap::reserve(int profiles)
{
    m_keys.reserve(profiles);
    m_values.reserve(profiles);
    m_places.reserve(static_cast<std::size_t>(profiles));
}

int ProfileMap::put(const DMString &nodeName, std::unique_ptr<ProfileInfo> info)
{
    const int existing = find(nodeName.text());
    if (existing >= 0) {
        delete std::exchange(m_values[existing], info.release());
        return existing;
    }
    const int index = m_keys.push_back(nodeName);
    if (index < 0)
        return -1;
    if (m_values.push_back(info.get()) != index) {
        m_keys.remove(index); // no name without a value
        return -1;
    }
    info.release();
    m_places.emplace(nodeName.text(), index);
    return index;
}

std::unique_ptr<ProfileInfo> ProfileMap::remove(int index)
{
    std::unique_ptr<ProfileInfo> info(m_values[index]);
    m_places.erase(m_places.find(std::string_view(m_keys[index].text())));
    for (auto &[name, place] : m_places)
        if (place > index)
            --place;
    m_keys.remove(index);
    m_values.remove(index);
    return info;
}

void ProfileMap::freeValues()
{
    for (ProfileInfo *&info : m_values)
        delete std::exchange(info, nullptr);
}

int DM_NAPI_PluginTree::GetProfileName(const DMString &nodeName, DMString &profileName) const
{
    NameBuffer name;
    if (const int status = GetProfileName(nodeName.text(), name))
        return status;
    profileName = DMString(name.data());
    return DMT_OK;
}

int DM_NAPI_PluginTree::GetProfileName(std::string_view nodeName, NameBuffer &profileName) const
{
    LOG_TRACE("Enter: GetProfileName()!\n");
    const int index = m_ProfileMaps.find(nodeName);
    if (index < 0) {
        LOG_FAILURE("Leave:GetProfileName! Can not find %s in m_ProfileMaps!\n",
                    std::string(nodeName).c_str());
        return DMT_FAILED;
    }
    const DMString &profileID = m_ProfileMaps.values()[index]->sProfileID;
    LOG_TRACE("ProfileNodeName=%s, ProfileID=%s \n", std::string(nodeName).c_str(),
              profileID.text());
    unsigned int id = 0;
    if (!ExtractProfileID(profileID, id)) {
        LOG_FAILURE("Leave:GetProfileName! ExtractProfileID failed!\n");
        return DMT_FAILED;
    }
    profileName.fill('\0'); // terminated even if the service fills its whole slot
    if (const int result = NAPI_GetProfileNameByID(id, profileName.data())) {
        LOG_FAILURE("Leave:GetProfileName! NAPI_GetProfileNameByID failed, return %d!\n", result);
        return DMT_FAILED;
    }
    LOG_TRACE("Leave: GetProfileName! NodeName = %s, ProfileName = %s\n",
              std::string(nodeName).c_str(), profileName.data());
    return DMT_OK;
}

bool DM_NAPI_PluginTree::ExtractProfileID(const DMString &key, unsigned int &id) const
{
    const std::string_view digits = WithoutSuffix(key);
    const char *const end = digits.data() + digits.size();
    unsigned int parsed = 0;
    const auto [stop, error] = std::from_chars(digits.data(), end, parsed);
    const bool ok = error == std::errc() && stop == end;
    id = ok ? parsed : 0;
    if (ok)
        LOG_TRACE("ExtractProfileID() OK: key = %s, ID = %d\n", std::string(digits).c_str(),
                  static_cast<int>(id));
    else
        LOG_FAILURE("ExtractProfileID() Failed: key = %s, ID = %d\n", std::string(digits).c_str(),
                    static_cast<int>(id));
    return ok;
}

int DM_NAPI_PluginTree::LoadProfileMapCfgFile()
{
    LOG_TRACE("Enter: LoadProfileMapCfgFile()!\n");
    if (!m_psetupManager && !ReplaceMappingFile()) {
        LOG_FAILURE("Leave: LoadProfileMapCfgFile! new SETUP_SET_Manager failed!\n");
        return DMT_FAILED;
    }
    const QMap<QString, QString> entries = m_psetupManager->getEntryKeyList(m_groupName);
    for (auto entry = entries.begin(); entry != entries.end(); ++entry)
        if (const int status = LoadMappedEntry(entry.key(), entry.value()))
            return status;
    if (!IsNAPDEF())
        if (const int status = RemoveStaleReferences())
            return status;
    LOG_TRACE("Leave: LoadProfileMapCfgFile()!\n");
    return DMT_OK;
}

bool DM_NAPI_PluginTree::ReplaceMappingFile()
{
    const QString path = MappingFilePath(IsNAPDEF() ? NAPDEF_FILE : PROXY_FILE);
    const QByteArray fileName = QFile::encodeName(path);
    ::unlink(fileName.constData()); // a missing file is as good
    m_psetupManager = OpenMappingFile(path);
    LOG_TRACE("SETUP_SET_Manager FileName = %s, m_psetupManager=0x%x\n", fileName.constData(),
              static_cast<unsigned int>(reinterpret_cast<std::uintptr_t>(m_psetupManager.get())));
    return m_psetupManager != nullptr;
}

int DM_NAPI_PluginTree::LoadMappedEntry(const QString &entryKey, const QString &entryValue)
{
    const DMString key(entryKey.toLatin1().constData());
    const DMString nodeName = ToNodeName(entryValue);
    unsigned int id = 0;
    char profileName[NAPI_NAME_SIZE + 1] = {};
    const bool stale = !ExtractProfileID(key, id) ||
                       NAPI_GetProfileNameByID(id, profileName) != NAPI_OK ||
                       m_ProfileMaps.find(nodeName.text()) >= 0;
    if (stale) {
        if (!m_psetupManager->removeEntry(m_groupName, entryKey))
            LOG_FAILURE("Warning: RenameProfileMapDB! removeEntry failed!\n");
        if (!m_psetupManager->flush()) {
            LOG_FAILURE("Leave: LoadProfileMapCfgFile! flush  failed\n");
            return DMT_FAILED;
        }
        LOG_TRACE("Remove item: Key = %s\n", key.text());
        return DMT_OK;
    }
    std::unique_ptr<ProfileInfo> info = NewProfileInfo(key);
    if (!info) {
        LOG_FAILURE("Leave: LoadProfilesinDB :  Allocate memory  failed\n");
        return DMT_FAILED;
    }
    if (IsNAPDEF()) {
        LOG_TRACE("Put item to m_ProfileMaps: <NodeName, ProfileID> = <%s, %s>\n", nodeName.text(),
                  key.text());
        if (const BearerPart *const part = BearerOfKey(key))
            info.get()->*part->isMapped = true;
        if (info->bIsGPRS)
            LOG_TRACE("Bearer is CPRS\n");
        else if (info->bIsCSD)
            LOG_TRACE("Bearer is CSD\n");
        else if (info->bIsCSD2)
            LOG_TRACE("Bearer is CSD2\n");
        else
            LOG_FAILURE("error format\n"); // a bare number; it stays mapped without a bearer
    } else {
        GetBearFromNapCfg(info.get());
        LOG_TRACE("pProfileInfo->sProfileID is %s\n", info->sProfileID.text());
    }
    m_ProfileMaps.put(nodeName, std::move(info));
    return DMT_OK;
}

int DM_NAPI_PluginTree::RemoveStaleReferences()
{
    const QMap<QString, QString> references = m_psetupManager->getEntryKeyList(CONN_GROUP);
    for (auto entry = references.begin(); entry != references.end(); ++entry) {
        // Keys of this group are the bytes of the node name, one character each.
        const DMString key(entry.key().toLatin1().constData());
        const std::size_t nameLength =
            key.length() - std::min(key.length(), CONN_KEY_SUFFIX_LENGTH);
        if (m_ProfileMaps.find(std::string_view(key.text(), nameLength)) >= 0)
            continue;
        m_psetupManager->removeEntry(CONN_GROUP, entry.key());
        if (!m_psetupManager->flush()) {
            LOG_FAILURE("Leave: LoadProfileMapCfgFile! flush  failed\n");
            return DMT_FAILED;
        }
        LOG_TRACE("Remove item: Key = %s\n", key.text());
    }
    return DMT_OK;
}

int DM_NAPI_PluginTree::PutProfileMap(const DMString &nodeName, std::unique_ptr<ProfileInfo> info)
{
    LOG_TRACE("Enter: PutProfileMap! <NodeName, ProfileID> = <%s, %s>\n", nodeName.text(),
              info->sProfileID.text());
    const int existing = m_ProfileMaps.find(nodeName.text());
    if (existing >= 0) {
        LOG_TRACE("Leave: PutProfileMap! <NodeName, ProfileID> = <%s, %s> has exist in "
                  "m_ProfileMaps and cfg!\n",
                  nodeName.text(), m_ProfileMaps.values()[existing]->sProfileID.text());
        return DMT_OK;
    }
    if (m_psetupManager) {
        const QString key = FromIdKey(info->sProfileID);
        if (ReadEntry(*m_psetupManager, m_groupName, key).isEmpty()) {
            if (!m_psetupManager->setSettingInfo(m_groupName, key, FromNodeName(nodeName), false)) {
                LOG_FAILURE("Leave: PutProfileMap! setSettingInfo failed\n");
                return DMT_FAILED;
            }
            if (!m_psetupManager->flush()) {
                LOG_FAILURE("Leave: PutProfileMap! flush  failed\n");
                return DMT_FAILED;
            }
        }
    }
    LOG_TRACE("PutProfileMap: <Key = ProfileID, Value = ProfileNodeName > = <%s, %s>\n",
              info->sProfileID.text(), nodeName.text());
    m_ProfileMaps.put(nodeName, std::move(info));
    return DMT_OK;
}

int DM_NAPI_PluginTree::AddProfileMap(const DMString &nodeName, std::unique_ptr<ProfileInfo> info)
{
    LOG_TRACE("AddProfileMap: <NodeName, ProfileID> = <%s, %s>\n", nodeName.text(),
              info->sProfileID.text());
    if (m_ProfileMaps.find(nodeName.text()) >= 0) {
        LOG_FAILURE("Leave: AddProfileMap fail! Node named %s has exist in m_ProfileMaps!\n",
                    nodeName.text());
        return DMT_FAILED;
    }
    if (m_psetupManager) {
        const QString key = FromIdKey(info->sProfileID);
        const QString stored = ReadEntry(*m_psetupManager, m_groupName, key);
        LOG_TRACE("qsKey = %s,qsValue = %s,qsTemp = %s\n", info->sProfileID.text(), nodeName.text(),
                  stored.toUtf8().constData());
        if (!stored.isEmpty()) {
            LOG_FAILURE("??? Leave: AddProfileMap:setSettingInfo  Failed, the entry of "
                        "profileid+suffix has exist\n");
            return DMT_FAILED;
        }
        if (!m_psetupManager->setSettingInfo(m_groupName, key, FromNodeName(nodeName), false)) {
            LOG_FAILURE("Leave: AddProfileMap:setSettingInfo  Failed\n");
            return DMT_FAILED;
        }
        if (!m_psetupManager->flush()) {
            LOG_FAILURE("Leave: AddProfileMap:flush  Failed\n");
            return DMT_FAILED;
        }
    }
    m_ProfileMaps.put(nodeName, std::move(info));
    return DMT_OK;
}

// ---- Questions about a profile ------------------------------------------------------------------

bool DM_NAPI_PluginTree::IsGPRS(const NAP_PROFILE_S *record) const
{
    if (record->gprsAddress[0] == '\0')
        return false;
    LOG_TRACE("IsGPRS: GPRS = %s\n", RecordText(*record, record->gprsAddress).text());
    return true;
}

bool DM_NAPI_PluginTree::IsCSD(const NAP_PROFILE_S *record) const
{
    if (record->csdAddress[0] == '\0')
        return false;
    LOG_TRACE("IsCSD: CSD = %s\n", RecordText(*record, record->csdAddress).text());
    return true;
}

bool DM_NAPI_PluginTree::IsCSD2(const NAP_PROFILE_S *record) const
{
    if (record->csd2Address[0] == '\0')
        return false;
    LOG_TRACE("IsCSD2: CSD = %s\n", RecordText(*record, record->csd2Address).text());
    return true;
}

void DM_NAPI_PluginTree::GetBearFromNapCfg(ProfileInfo *const &info) const
{
    LOG_TRACE("Enter: GetBearFromNapCfg()!\n");
    if (!info)
        return;
    // The NAPDEF tree may have written since the last question: its file is opened for each.
    if (const std::unique_ptr<SETUP_SET_Manager> napdef =
            OpenMappingFile(MappingFilePath(NAPDEF_FILE))) {
        for (const BearerPart &part : BEARER_PARTS) {
            const QString key = FromIdKey(info->sProfileID + part.keySuffix);
            // An entry without a value counts: the bearer is mapped.
            if (!ReadEntry(*napdef, NAPDEF_FILE.profileGroup, key).isNull())
                info->*part.isMapped = true;
        }
    }
    LOG_TRACE("Leave: GetBearFromNapCfg()!\n");
}

void DM_NAPI_PluginTree::GetNapdefName(const DMString *profileID, const DMString &phName,
                                       DMString &napdefName) const
{
    LOG_TRACE("Enter: GetNapdefName()!\n");
    if (!profileID)
        return;
    std::string key(profileID->text());
    for (const BearerPart &part : BEARER_PARTS)
        if (phName == part.phName)
            key += part.keySuffix;
    QString stored;
    if (const std::unique_ptr<SETUP_SET_Manager> napdef =
            OpenMappingFile(MappingFilePath(NAPDEF_FILE)))
        stored = ReadEntry(*napdef, NAPDEF_FILE.profileGroup, QString::fromLatin1(key.c_str()));
    napdefName = ToNodeName(stored);
    LOG_TRACE("the sNapdefName is %s\n", napdefName.text());
    LOG_TRACE("Leave: GetNapdefName()!\n");
}

// ---- Map maintenance ----------------------------------------------------------------------------

int DM_NAPI_PluginTree::DeleteProfileMap(const DMString &nodeName)
{
    const int index = m_ProfileMaps.find(nodeName.text());
    if (index < 0) {
        LOG_FAILURE("Leave: DeleteProfileMap fail! Can not lookup %s in m_ProfileMaps!\n",
                    nodeName.text());
        return DMT_FAILED;
    }
    const ProfileInfo *const info = m_ProfileMaps.values()[index];
    if (m_psetupManager) {
        if (!m_psetupManager->removeEntry(m_groupName, FromIdKey(info->sProfileID)))
            LOG_FAILURE("Warning: RenameProfileMapDB! removeEntry failed!\n");
        if (!IsNAPDEF())
            for (const BearerPart &part : BEARER_PARTS)
                m_psetupManager->removeEntry(CONN_GROUP, ConnKey(nodeName, part.phName));
        if (!m_psetupManager->flush()) {
            LOG_FAILURE("Leave: DeleteProfileMap! flush  Failed\n");
            return DMT_FAILED;
        }
    }
    LOG_TRACE("DeleteProfileMap: Group: %s <NodeName, ProfileID> = <%s, %s>\n",
              m_groupName.toUtf8().constData(), nodeName.text(), info->sProfileID.text());
    const int unmapped = m_ProfileMaps.find(nodeName.text());
    if (unmapped < 0) {
        LOG_FAILURE("Leave: DeleteProfileMap! remove failed!\n");
        return DMT_FAILED;
    }
    m_ProfileMaps.remove(unmapped);
    return DMT_OK;
}

int DM_NAPI_PluginTree::RenameProfileMap(const DMString &oldName, const DMString &newName)
{
    LOG_TRACE("Enter: RenameProfileMap() \n");
    const int oldIndex = m_ProfileMaps.find(oldName.text());
    if (oldIndex < 0) {
        LOG_FAILURE("Leave: RenameProfileMap fail! Can not lookup %s in m_ProfileMaps!\n",
                    oldName.text());
        return DMT_FAILED;
    }
    if (m_psetupManager) {
        const DMString &key = m_ProfileMaps.values()[oldIndex]->sProfileID;
        if (!m_psetupManager->setSettingInfo(m_groupName, FromIdKey(key), FromNodeName(newName),
                                             false)) {
            LOG_FAILURE("Leave: RenameProfileMap! setSettingInfo failed!\n");
            return DMT_FAILED;
        }
        if (!m_psetupManager->flush()) {
            LOG_FAILURE("Leave: RenameProfileMap! flush  failed\n");
            return DMT_FAILED;
        }
        if (!IsNAPDEF()) {
            // References follow as far as they can; a lost one reads as the default again.
            for (const BearerPart &part : BEARER_PARTS) {
                const QString oldKey = ConnKey(oldName, part.phName);
                const QString reference = ReadEntry(*m_psetupManager, CONN_GROUP, oldKey);
                if (reference.isNull())
                    continue;
                m_psetupManager->removeEntry(CONN_GROUP, oldKey);
                m_psetupManager->setSettingInfo(CONN_GROUP, ConnKey(newName, part.phName),
                                                reference, false);
                m_psetupManager->flush();
            }
        }
    }
    m_ProfileMaps.put(newName, m_ProfileMaps.remove(oldIndex));
    LOG_FAILURE("Leave: RenameProfileMap!\n"); // prints although nothing failed
    return DMT_OK;
}

int DM_NAPI_PluginTree::RenameProfileMapDB(const DMString &nodeName, const DMString &bearer)
{
    LOG_TRACE("Enter: RenameProfileMapinDB() \n");
    const int index = m_ProfileMaps.find(nodeName.text());
    if (index < 0) {
        LOG_FAILURE("Leave: RenameProfileMapDB fail! Can not lookup %s in m_ProfileMaps!\n",
                    nodeName.text());
        return DMT_FAILED;
    }
    ProfileInfo *const info = m_ProfileMaps.values()[index];
    for (const BearerPart &any : BEARER_PARTS)
        info->*any.isMapped = false;
    const DMString oldKey = info->sProfileID;
    const std::string_view bareKey = WithoutSuffix(oldKey);
    const BearerPart *const part = FindBearer(bearer);
    if (!part) {
        info->sProfileID = DMString(bareKey.data(), bareKey.size());
        LOG_FAILURE("Leave: RenameProfileMapDB fail! illegal Bearer value: %s!\n", bearer.text());
        return DMT_FAILED;
    }
    info->*part->isMapped = true;
    const bool isSameKey = std::string_view(oldKey.text()).ends_with(part->keySuffix);
    if (!isSameKey)
        info->sProfileID = DMString(std::string(bareKey).append(part->keySuffix).c_str());
    if (!m_psetupManager) {
        LOG_TRACE("Leave: RenameProfileMapDB()\n");
        return DMT_OK;
    }
    LOG_TRACE("RenameProfileMapDB: before removeEntry, group = %s, qskey = %s\n",
              m_groupName.toUtf8().constData(), oldKey.text());
    const QString oldEntryKey = FromIdKey(oldKey);
    if (!m_psetupManager->removeEntry(m_groupName, oldEntryKey))
        LOG_FAILURE("Warning: RenameProfileMapDB! removeEntry failed!\n");
    if (!m_psetupManager->flush()) {
        LOG_FAILURE("Leave: RenameProfileMapDB! flush  Failed\n");
        return DMT_FAILED;
    }
    LOG_TRACE("RenameProfileMapDB: qsGroupName = %s, qsKey = %s,qsValue = %s\n",
              m_groupName.toUtf8().constData(), info->sProfileID.text(), nodeName.text());
    const QString entryKey = isSameKey ? oldEntryKey : FromIdKey(info->sProfileID);
    if (!m_psetupManager->setSettingInfo(m_groupName, entryKey, FromNodeName(nodeName), false)) {
        LOG_FAILURE("Leave: RenameProfileMapDB! setSettingInfo failed!\n");
        return DMT_FAILED;
    }
    if (!m_psetupManager->flush()) {
        LOG_FAILURE("Leave: RenameProfileMapDB! flush  failed\n");
        return DMT_FAILED;
    }
    LOG_TRACE("Leave: RenameProfileMapDB()\n");
    return DMT_OK;
}

// ---- Connection references ----------------------------------------------------------------------

ConnDefault DM_NAPI_PluginTree::GetConnValue(const ProfileInfo *info,
                                             const DMString &profileNodeName,
                                             const DMString &phName, DMString &connValue)
{
    LOG_TRACE("Enter: GetConnValue()! NodePath = %s/%s/Conn\n", profileNodeName.text(),
              phName.text());
    const QString key = ConnKey(profileNodeName, phName.text());
    if (m_psetupManager) {
        connValue = ToNodeName(ReadEntry(*m_psetupManager, CONN_GROUP, key));
        if (!connValue.empty()) {
            LOG_TRACE("Leave: GetConnValue()!entry exist, Value = %s\n", connValue.text());
            return ConnDefault::NotStored;
        }
    }
    connValue = DMString("");
    if (phName == "Ph1" && info->bIsGPRS) {
        LOG_TRACE("pProfileInfo->bIsGPRS is true\n");
    } else if (phName == "Ph2" && info->bIsCSD) {
        LOG_TRACE("pProfileInfo->bIsCSD is true\n");
    } else if (phName == "Ph3" && info->bIsCSD2) {
        LOG_TRACE("pProfileInfo->bIsCSD2 is true\n");
    } else {
        LOG_FAILURE("Leave: GetConnValue(), the Conn of  %s has no related fields\n",
                    phName.text());
        return ConnDefault::NotStored;
    }
    // A bare node name: the slot's marker, "&&_PH1_DC1" and the like, does not belong to it.
    connValue = profileNodeName.c_str() ? profileNodeName : DMString("");
    DMString napdefName;
    GetNapdefName(&info->sProfileID, phName, napdefName);
    if (!napdefName.empty())
        connValue = napdefName;
    if (StoreConnValue(profileNodeName, phName, key, connValue) != DMT_OK) {
        LOG_FAILURE("Leave: GetConnValue! SetConnValue failed\n");
        return ConnDefault::NotStored;
    }
    LOG_TRACE("Leave: GetConnValue()! Value = %s\n", connValue.text());
    return ConnDefault::Stored;
}

int DM_NAPI_PluginTree::SetConnValue(const DMString &profileNodeName, const DMString &phName,
                                     const DMString &connValue)
{
    return StoreConnValue(profileNodeName, phName, ConnKey(profileNodeName, phName.text()),
                          connValue);
}

int DM_NAPI_PluginTree::StoreConnValue(const DMString &profileNodeName, const DMString &phName,
                                       const QString &key, const DMString &connValue)
{
    LOG_TRACE("Enter: SetConnValue()! NodePath = %s/%s/Conn\n", profileNodeName.text(),
              phName.text());
    if (!m_psetupManager)
        return DMT_OK;
    if (!m_psetupManager->setSettingInfo(CONN_GROUP, key, FromNodeName(connValue), false)) {
        LOG_FAILURE("Leave: SetConnValue! setSettingInfo failed!\n");
        return DMT_FAILED;
    }
    if (!m_psetupManager->flush()) {
        LOG_FAILURE("Leave: SetConnValue! flush  failed\n");
        return DMT_FAILED;
    }
    LOG_TRACE("Leave: SetConnValue()! value = %s\n", connValue.text());
    return DMT_OK;
}

// ---- Layout of a profile ------------------------------------------------------------------------

enum class ChildKind : std::uint8_t { Bearer, Auth, ProxySlot, Number, Flag, Text };

namespace {

/// A child of a profile node.
struct ProfileChild {
    const char *name;
    ChildKind kind;
};

constexpr ProfileChild NAPDEF_CHILDREN[] = {
    {"Bearer", ChildKind::Bearer}, {"Addr", ChildKind::Text},     {"DNS1", ChildKind::Text},
    {"DNS2", ChildKind::Text},     {"Linger", ChildKind::Number}, {"Auth", ChildKind::Auth},
    {"LineType", ChildKind::Text}, {"Speed", ChildKind::Number},
};
constexpr ProfileChild PROXY_CHILDREN[] = {
    {"Ph1", ChildKind::ProxySlot},
    {"Ph2", ChildKind::ProxySlot},
    {"Ph3", ChildKind::ProxySlot},
    {"UserEditable", ChildKind::Flag},
};

std::span<const ProfileChild> ProfileChildren(bool isNAPDEF)
{
    if (isNAPDEF)
        return NAPDEF_CHILDREN;
    return PROXY_CHILDREN;
}

DMStringVector ToVector(std::initializer_list<const char *> names)
{
    DMStringVector vector;
    vector.reserve(static_cast<int>(names.size()));
    for (const char *name : names)
        vector.push_back(DMString(name));
    return vector;
}

DMStringVector NamesOf(std::span<const ProfileChild> children)
{
    DMStringVector names;
    names.reserve(static_cast<int>(children.size()));
    for (const ProfileChild &child : children)
        names.push_back(DMString(child.name));
    return names;
}

/// A child of a name that no profile has is a text.
ChildKind KindOf(std::span<const ProfileChild> children, const DMString &name)
{
    for (const ProfileChild &child : children)
        if (name == child.name)
            return child.kind;
    return ChildKind::Text;
}

} // namespace

struct DM_NAPI_PluginTree::CommonParts {
    explicit CommonParts(bool isNAPDEF) : profile(NamesOf(ProfileChildren(isNAPDEF))) {}

    // What the interior nodes list.
    DMStringVector profile;
    DMStringVector auth = ToVector({"PAP"});
    DMStringVector pap = ToVector({"AuthId", "AuthPw"});
    DMStringVector ph = ToVector({"Conn", "Addr", "Port"});
    DMStringVector port = ToVector({"PortNbr"});
    // First values of leaves.
    DmtData text{""};
    DmtData number{0};
    DmtData flag{true};
    DmtData gprs{GPRS_BEARER};
    DmtData csd2{CSD2_BEARER};
    DmtData defaultBearer{DEFAULT_BEARER};
};

JemSmartPtr<DmtNode> DM_NAPI_PluginTree::NewInterior(const char *path,
                                                     const DMStringVector &childNames)
{
    return new DM_NAPI_PluginNode(Self(), path, childNames);
}

JemSmartPtr<DmtNode> DM_NAPI_PluginTree::NewLeaf(const char *path, const DmtData &value)
{
    return new DM_NAPI_PluginNode(Self(), path, value);
}

void DM_NAPI_PluginTree::Register(const char *path, const JemSmartPtr<DmtNode> &node)
{
    SetNode(path, node);
}

int DM_NAPI_PluginTree::LoadSubTreeofProfile(const DMString &profileNodeName,
                                             const ProfileInfo *info)
{
    return LoadSubTree(profileNodeName, info, CommonParts(IsNAPDEF()));
}

int DM_NAPI_PluginTree::LoadChildrenofProfile(const DMString &profileNodeName,
                                              const ProfileInfo *info, const DMString &childName)
{
    NodePath path(profileNodeName.text());
    const ChildKind kind = KindOf(ProfileChildren(IsNAPDEF()), childName);
    return LoadChild(path, profileNodeName, info, childName, kind, CommonParts(IsNAPDEF()));
}

int DM_NAPI_PluginTree::LoadSubTree(const DMString &profileNodeName, const ProfileInfo *info,
                                    const CommonParts &common)
{
    LOG_TRACE("Enter: LoadSubTreeofProfile()! ProfileNode = %s, ProfileID = %s\n",
              profileNodeName.text(), info->sProfileID.text());
    NodePath path(profileNodeName.text());
    Register(path.text(), NewInterior(path.text(), common.profile));
    // A child that is refused does not keep its siblings out.
    int place = 0;
    for (const ProfileChild &child : ProfileChildren(IsNAPDEF()))
        LoadChild(path, profileNodeName, info, common.profile[place++], child.kind, common);
    LOG_TRACE("Leave: LoadSubTreeofProfile()! \n");
    return DMT_OK;
}

int DM_NAPI_PluginTree::LoadChild(NodePath &path, const DMString &profileNodeName,
                                  const ProfileInfo *info, const DMString &childName,
                                  ChildKind kind, const CommonParts &common)
{
    LOG_TRACE("Enter: LoadChildrenofProfile()! NodePath = %s/%s\n", profileNodeName.text(),
              childName.text());
    const std::size_t above = path.Enter(childName.text());
    int status = DMT_OK;
    switch (kind) {
    case ChildKind::Bearer:
        status = LoadBearer(path, profileNodeName, info, common);
        break;
    case ChildKind::Auth:
        LoadAuth(path, common);
        break;
    case ChildKind::ProxySlot:
        LoadProxySlot(path, profileNodeName, info, childName, common);
        break;
    case ChildKind::Number:
        LoadLeaf(path, common.number);
        break;
    case ChildKind::Flag:
        LoadLeaf(path, common.flag);
        break;
    case ChildKind::Text:
        LoadLeaf(path, common.text);
        break;
    }
    path.Leave(above);
    if (status == DMT_OK)
        LOG_TRACE("Leave: LoadChildrenofProfile()! \n");
    return status;
}

int DM_NAPI_PluginTree::LoadBearer(const NodePath &path, const DMString &profileNodeName,
                                   const ProfileInfo *info, const CommonParts &common)
{
    const DmtData &value = info->bIsGPRS   ? common.gprs
                           : info->bIsCSD2 ? common.csd2
                                           : common.defaultBearer;
    const JemSmartPtr<DmtNode> node = NewLeaf(path.text(), value);
    DMString bearer;
    value.GetString(bearer);
    if (RenameProfileMapDB(profileNodeName, bearer) != DMT_OK) {
        LOG_FAILURE("Leave: LoadChildrenofProfile()! RenameProfileMapDB() failed! Not load this "
                    "profile!\n");
        return DMT_FAILED;
    }
    Register(path.text(), node);
    return DMT_OK;
}

// An interior child is registered after all that is beneath it.

void DM_NAPI_PluginTree::LoadAuth(NodePath &path, const CommonParts &common)
{
    const JemSmartPtr<DmtNode> node = NewInterior(path.text(), common.auth);
    const std::size_t above = path.Enter("PAP");
    Register(path.text(), NewInterior(path.text(), common.pap));
    for (const DMString &leaf : common.pap)
        LoadLeafBeneath(path, leaf.text(), common.text);
    path.Leave(above);
    Register(path.text(), node);
}

void DM_NAPI_PluginTree::LoadProxySlot(NodePath &path, const DMString &profileNodeName,
                                       const ProfileInfo *info, const DMString &phName,
                                       const CommonParts &common)
{
    const JemSmartPtr<DmtNode> node = NewInterior(path.text(), common.ph);
    DMString connValue;
    GetConnValue(info, profileNodeName, phName, connValue);
    LoadLeafBeneath(path, "Conn", connValue.empty() ? common.text : DmtData(connValue.text()));
    LoadLeafBeneath(path, "Addr", common.text);
    const std::size_t above = path.Enter("Port");
    Register(path.text(), NewInterior(path.text(), common.port));
    LoadLeafBeneath(path, "PortNbr", common.number);
    path.Leave(above);
    Register(path.text(), node);
}

void DM_NAPI_PluginTree::LoadLeaf(const NodePath &path, const DmtData &value)
{
    Register(path.text(), NewLeaf(path.text(), value));
}

void DM_NAPI_PluginTree::LoadLeafBeneath(NodePath &path, const char *name, const DmtData &value)
{
    const std::size_t above = path.Enter(name);
    LoadLeaf(path, value);
    path.Leave(above);
}

// ---- Mounting -----------------------------------------------------------------------------------

namespace {

/// Whether the name begins with a byte beyond ASCII. Such profiles get a made-up node name.
bool BeginsBeyondAscii(const DMString &profileName)
{
    return static_cast<signed char>(profileName.text()[0]) < 0;
}

/// "PX1", "PX2" and so on. The number has room for four digits; what goes beyond is cut.
DMString MadeUpNodeName(int number)
{
    char digits[5];
    const int wanted = std::snprintf(digits, sizeof digits, "%d", number);
    return wanted > 0 ? DMString("PX") + digits : DMString("PX");
}

} // namespace

int DM_NAPI_PluginTree::LoadProfilesinDB()
{
    LOG_TRACE("Enter: LoadProfilesinDB()!\n");
    if (const int status = LoadProfileMapCfgFile()) {
        LOG_FAILURE("Leave: LoadProfilesinDB! LoadProfileMapCfgFile failed\n");
        return status;
    }
    unsigned int count = 0;
    if (const int status = ListProfiles(count))
        return status;

    m_ProfileMaps.reserve(static_cast<int>(count));
    int namesBeyondAscii = 0;
    for (unsigned int i = 0; i < count; ++i) {
        const char *const slot = &m_profileNameList[std::size_t{i} * NAPI_NAME_SIZE];
        // A slot that the service fills has no terminator.
        const DMString profileName(slot, strnlen(slot, NAPI_NAME_SIZE));
        if (const int status = LoadListedProfile(profileName, namesBeyondAscii))
            return status;
    }

    LOG_TRACE("m_ProfileMaps includes: %d item!\n", m_ProfileMaps.size());
    const CommonParts common(IsNAPDEF());
    DMStringVector nodeNames;
    nodeNames.reserve(m_ProfileMaps.size());
    for (int i = 0; i < m_ProfileMaps.size(); ++i) {
        const ProfileInfo *const info = m_ProfileMaps.values()[i];
        if (!info)
            continue;
        const DMString nodeName = m_ProfileMaps.keys()[i];
        LOG_TRACE("Item %d: <NodeName, ProfileID> = <%s, %s>\n", i, nodeName.text(),
                  info->sProfileID.text());
        if (info->bIsGPRS)
            LOG_TRACE("Bearer = GPRS\n");
        else if (info->bIsCSD)
            LOG_TRACE("Bearer = CSD\n");
        else if (info->bIsCSD2)
            LOG_TRACE("Bearer = CSD2\n");
        LoadSubTree(nodeName, info, common);
        nodeNames.push_back(nodeName);
    }
    Register("", NewInterior("", nodeNames));
    LOG_TRACE("Leave: LoadProfilesinDB()!\n");
    return DMT_OK;
}

int DM_NAPI_PluginTree::ListProfiles(unsigned int &count)
{
    count = 0;
    if (const int result = NAPI_ListAllProfile(m_profileNameList.get(), &count)) {
        LOG_FAILURE("Leave: LoadProfilesinDB : NAPI_ListAllProfile failed! return %d! Not load "
                    "profiles in fs!\n",
                    result);
        return DMT_FAILED;
    }
    LOG_TRACE("NAPI_ListAllProfile: Counter = %d\n", static_cast<int>(count));
    m_ProfileCount = static_cast<std::int8_t>(count);
    m_profileNameList.reset(); // the old list goes before room is asked for the new one
    m_profileNameList.reset(new (std::nothrow) char[std::size_t{count} * NAPI_NAME_SIZE]());
    if (!m_profileNameList) {
        LOG_FAILURE("Leave: LoadProfilesinDB fail: Allocate memory failed! Not load profiles in "
                    "fs!\n");
        return DMT_FAILED;
    }
    const unsigned int capacity = count;
    if (const int result = NAPI_ListAllProfile(m_profileNameList.get(), &count)) {
        LOG_FAILURE("Leave: LoadProfilesinDB : NAPI_ListAllProfile failed! return %d! Not load "
                    "profiles in fs!\n",
                    result);
        return DMT_FAILED;
    }
    count = std::min(count, capacity);
    for (unsigned int i = 0; i < count; ++i) {
        const char *const slot = &m_profileNameList[std::size_t{i} * NAPI_NAME_SIZE];
        LOG_TRACE("NAPI_ListAllProfile: Profile[%d] = %s\n", static_cast<int>(i),
                  DMString(slot, strnlen(slot, NAPI_NAME_SIZE)).text());
    }
    return DMT_OK;
}

int DM_NAPI_PluginTree::LoadListedProfile(const DMString &profileName, int &namesBeyondAscii)
{
    NAP_PROFILE_S record{};
    if (NAPI_ReadProfile(profileName.text(), &record, 0, 0) != NAPI_OK) {
        LOG_TRACE("NAPI_ReadProfile %s failed! Continue!\n", profileName.text());
        return DMT_OK;
    }
    LOG_TRACE("NAPI_ReadProfile: profilename = %s\n", profileName.text());
    LOG_TRACE("GPRS Addr = %s\n", RecordText(record, record.gprsAddress).text());
    LOG_TRACE("CSD  Addr = %s\n", RecordText(record, record.csdAddress).text());
    LOG_TRACE("CSD2 Addr = %s\n", RecordText(record, record.csd2Address).text());
    ProfileInfo found;
    found.bIsGPRS = IsGPRS(&record);
    found.bIsCSD = IsCSD(&record);
    found.bIsCSD2 = IsCSD2(&record);
    if (!found.bIsGPRS && !found.bIsCSD && !found.bIsCSD2)
        return DMT_OK;

    unsigned int id = 0;
    if (const int result = NAPI_GetProfileIDByName(profileName.text(), &id)) {
        LOG_FAILURE("Leave: LoadProfilesinDB : NAPI_GetProfileIDByName failed! return %d\n",
                    result);
        return DMT_FAILED;
    }
    LOG_TRACE("NAPI_GetProfileIDByName ok: ProfileName=%s, ProfileID=%d\n", profileName.text(),
              static_cast<int>(id));

    DMString nodeName = profileName;
    LOG_TRACE("ProfileName  = %s", profileName.text());
    if (BeginsBeyondAscii(profileName)) {
        LOG_TRACE("ProfileName is not in English");
        nodeName = MadeUpNodeName(++namesBeyondAscii);
        LOG_TRACE("ProfileName=%s", nodeName.text());
    }

    if (!IsNAPDEF()) {
        std::unique_ptr<ProfileInfo> info = NewProfileInfo(IdKey(id));
        if (!info) {
            LOG_FAILURE("Leave:LoadProfilesinDB :  Allocate memory  failed\n");
            return DMT_FAILED;
        }
        for (const BearerPart &part : BEARER_PARTS)
            info.get()->*part.isMapped = found.*part.isMapped;
        return MapListedProfile(nodeName, std::move(info));
    }
    // All bearers of a profile share its node name: the first one takes it.
    for (const BearerPart &part : BEARER_PARTS) {
        if (!(found.*part.isMapped))
            continue;
        std::unique_ptr<ProfileInfo> info = NewProfileInfo(IdKey(id, part.keySuffix));
        if (!info) {
            if (part.isMapped == &ProfileInfo::bIsCSD2)
                LOG_FAILURE("Leave:LoadProfilesinDB: Allocate memory failed\n");
            else
                LOG_FAILURE("Leave: LoadProfilesinDB :  Allocate memory  failed\n");
            return DMT_FAILED;
        }
        info.get()->*part.isMapped = true;
        if (const int status = MapListedProfile(nodeName, std::move(info)))
            return status;
    }
    return DMT_OK;
}

int DM_NAPI_PluginTree::MapListedProfile(const DMString &nodeName,
                                         std::unique_ptr<ProfileInfo> info)
{
    if (PutProfileMap(nodeName, std::move(info)) != DMT_OK) {
        LOG_FAILURE("Leave:LoadProfilesinDB : PutProfileMap  failed\n");
        return DMT_FAILED;
    }
    return DMT_OK;
}

// ---- Deleting -----------------------------------------------------------------------------------

int DM_NAPI_PluginTree::DeleteNode(const char *path) noexcept
{
    LOG_TRACE("Enter: DeleteNode()! NodePath = %s\n", path);
    JemSmartPtr<DmtNode> node;
    if (GetNode(path, node) != DMT_OK) {
        LOG_FAILURE("Warning: DeleteNode! Node %s is not exist!\n", path);
        return DMT_OK;
    }
    LOG_TRACE("Call DmtRWPluginTree::DeleteNode! node path = %s\n", path);
    if (const int status = DmtRWPluginTree::DeleteNode(path)) {
        LOG_FAILURE("Leave: DeleteNode! DmtRWPluginTree::DeleteNode failed!\n");
        return status;
    }
    DMString parentPath;
    DMString nodeName;
    ParseNodePath(path, parentPath, nodeName);
    if (!parentPath.empty()) {
        LOG_TRACE("Leave: DeleteNode()! \n");
        return DMT_OK;
    }
    LOG_TRACE("Delete children of the root node!\n");
    DMString suffix("");
    if (IsNAPDEF()) {
        const int index = m_ProfileMaps.find(nodeName.text());
        if (index < 0) {
            LOG_FAILURE("Leave: DeleteNode! Can not lookup %s in m_ProfileMaps!\n",
                        nodeName.text());
            return DMT_FAILED;
        }
        suffix = KeySuffix(m_ProfileMaps.values()[index]->sProfileID);
    }
    DMString profileName;
    if (const int status = GetProfileName(nodeName, profileName)) {
        LOG_FAILURE("Leave: DeleteNode! GetProfileName failed! \n");
        return status;
    }
    // The mapping goes first: the mapping files decide whether the profile is still used.
    if (const int status = DeleteProfileMap(nodeName)) {
        LOG_FAILURE("Leave: DeleteNode! DeleteProfileMap failed! \n");
        return status;
    }
    if (const int status = DeleteProfileInDB(profileName, suffix)) {
        LOG_FAILURE("Leave: DeleteNode! DeleteProfileInDB failed! \n");
        return status;
    }
    LOG_TRACE("Leave: DeleteNode()! \n");
    return DMT_OK;
}

namespace {

/// Zeroes both proxy slots of a record and makes the profile editable.
void ClearProxyPart(NAP_PROFILE_S *record)
{
    std::memset(record->proxy1Address, 0, sizeof record->proxy1Address);
    record->proxy1Port = 0;
    std::memset(record->proxy1Text, 0, sizeof record->proxy1Text);
    record->proxy1Byte = 0;
    std::memset(record->proxy2Address, 0, sizeof record->proxy2Address);
    record->proxy2Port = 0;
    std::memset(record->proxy2Text, 0, sizeof record->proxy2Text);
    record->proxy2Byte = 0;
    record->flags &= ~NAPI_FLAG_NOT_EDITABLE;
}

} // namespace

int DM_NAPI_PluginTree::DeleteProfileInDB(const DMString &profileName, const DMString &suffix)
{
    LOG_TRACE("Enter: DeleteProfileInDB()!\n");
    unsigned int id = 0;
    if (const int result = NAPI_GetProfileIDByName(profileName.text(), &id)) {
        LOG_FAILURE("Leave:DeleteProfileInDB: NAPI_GetProfileIDByName  failed! return %d\n",
                    result);
        return DMT_FAILED;
    }
    LOG_TRACE("NAPI_GetProfileIDByName OK! ProfileID = %d\n", static_cast<int>(id));
    if (!IsMappedAnywhere(IdKey(id))) {
        LOG_TRACE("All the four subtrees are not exist, delete the profile in db.\n");
        if (const int result = NAPI_DeleteProfile(profileName.text())) {
            LOG_FAILURE("Leave: DeleteProfileInDB! NAPI_DeleteProfile failed! return %d\n", result);
            return DMT_FAILED;
        }
        LOG_FAILURE("Leave: DeleteProfileInDB!\n"); // prints although nothing failed
        return DMT_OK;
    }
    LOG_TRACE(
        "Profile in db still includes other subtrees. Only need to modify part of profile.\n");
    NAP_PROFILE_S record{};
    if (const int result = NAPI_ReadProfile(profileName.text(), &record, 0, 0)) {
        LOG_FAILURE("??? Leave: DeleteProfileInDB : NAPI_ReadProfile failed! return %d\n", result);
        return DMT_FAILED;
    }
    const auto *const part =
        std::find_if(std::begin(BEARER_PARTS), std::end(BEARER_PARTS),
                     [&suffix](const BearerPart &bearer) { return suffix == bearer.keySuffix; });
    if (part != std::end(BEARER_PARTS))
        ClearBearerPart(&record, *part);
    else
        ClearProxyPart(&record);
    if (const int result = NAPI_ModifyProfile(profileName.text(), &record, 0, 0)) {
        LOG_FAILURE("Leave: SetValue()! NAPI_ModifyProfile() failed! return %d\n", result);
        return DMT_FAILED;
    }
    LOG_TRACE("Leave: DeleteProfileInDB()! \n");
    return DMT_OK;
}

bool DM_NAPI_PluginTree::IsMappedAnywhere(const DMString &idText) const
{
    // What cannot be looked up counts as mapped: a profile is deleted only when no tree has it.
    if (!m_psetupManager)
        return true;
    const std::unique_ptr<SETUP_SET_Manager> other =
        OpenMappingFile(MappingFilePath(IsNAPDEF() ? PROXY_FILE : NAPDEF_FILE));
    if (!other)
        return true;
    const SETUP_SET_Manager &proxy = IsNAPDEF() ? *other : *m_psetupManager;
    const SETUP_SET_Manager &napdef = IsNAPDEF() ? *m_psetupManager : *other;
    bool mapped = !ReadEntry(proxy, PROXY_FILE.profileGroup, FromIdKey(idText)).isNull();
    for (const BearerPart &part : BEARER_PARTS) {
        const QString key = FromIdKey(idText + part.keySuffix);
        mapped |= !ReadEntry(napdef, NAPDEF_FILE.profileGroup, key).isNull();
    }
    return mapped;
}

// ---- Renaming -----------------------------------------------------------------------------------

int DM_NAPI_PluginTree::RenameNode(const char *path, const char *newName) noexcept
{
    LOG_TRACE("Enter: RenameNode()! Old node path = %s, New node name =%s\n", path, newName);
    JemSmartPtr<DmtNode> node;
    if (const int status = GetNode(path, node)) {
        LOG_FAILURE("Leave: RenameNode fail! The node: %s is not exist!\n", path);
        return status;
    }
    DMString parentPath;
    DMString oldName;
    ParseNodePath(path, parentPath, oldName);
    const DMString newPath = parentPath.empty() ? DMString(newName) : parentPath + "/" + newName;
    LOG_TRACE("RenameNode: Judge whether the node with newname: %s is exist!\n", newPath.text());
    JemSmartPtr<DmtNode> taken;
    if (GetNode(newPath.text(), taken) == DMT_OK) {
        LOG_FAILURE("Leave: RenameNode fail! The node with newname: %s is exist!\n",
                    newPath.text());
        return DMT_ALREADY_EXISTS;
    }
    if (!HasEmptyNodeName(parentPath)) {
        LOG_FAILURE("Leave: RenameNode fail! The node: %s can not be renamed!\n", path);
        return DMT_FAILED;
    }
    if (const int status = static_cast<DmtRWPluginNode *>(node.get())->Rename(newName)) {
        LOG_FAILURE("Leave: RenameNode! Rename failed\n");
        return status;
    }
    if (parentPath.empty()) {
        if (const int status = RenameProfileMap(oldName, newName)) {
            LOG_FAILURE("Leave: RenameNode! RenameProfileMap failed!\n");
            return status;
        }
    }
    LOG_TRACE("Leave: RenameNode()! \n");
    return DMT_OK;
}

// ---- Values of all children ---------------------------------------------------------------------

int DM_NAPI_PluginTree::GetChildValuesMap(const char *path, DmtChildValuesMap &values) noexcept
{
    LOG_TRACE("Enter: GetChildValuesMap!\n");
    values.clear();
    JemSmartPtr<DmtNode> node;
    if (const int status = GetNode(path, node)) {
        LOG_FAILURE("Leave: GetChildValuesMap! The node: %s is not exist!\n", path);
        return status;
    }
    DMVector<JemSmartPtr<DmtNode>> children;
    if (const int status = node->GetChildNodes(children)) {
        LOG_FAILURE("Leave: GetChildValuesMap! GetChildNodes failed!\n");
        return status;
    }
    for (const JemSmartPtr<DmtNode> &child : children) {
        if (!child->IsLeaf())
            continue;
        DmtData value;
        if (const int status = child->GetValue(value)) {
            LOG_FAILURE("Leave: GetChildValuesMap! GetChildNodes failed!\n");
            return status;
        }
        values.put(child->GetName(), value);
    }
    LOG_TRACE("Leave: GetChildValuesMap!\n");
    return DMT_OK;
}

int DM_NAPI_PluginTree::SetChildValuesMap(const char *path,
                                          const DmtChildValuesMap &values) noexcept
{
    LOG_TRACE("Enter: SetChildValuesMap!\n");
    for (int i = 0; i < values.size(); ++i) {
        const DMString childPath = DMString(path) + "/" + values.keys()[i];
        JemSmartPtr<DmtNode> child;
        if (const int status = GetNode(childPath.text(), child)) {
            LOG_FAILURE("Leave: SetChildValuesMap fail! The node: %s is not exist!\n",
                        childPath.text());
            return status;
        }
        if (!child->IsLeaf())
            continue;
        const DmtData value = values.values()[i];
        if (const int status = child->SetValue(value)) {
            LOG_FAILURE("Leave: SetChildValuesMap! SetValue failed!\n");
            return status;
        }
    }
    LOG_TRACE("Leave: SetChildValuesMap!\n");
    return DMT_OK;
}

// ---- Adding -------------------------------------------------------------------------------------

int DM_NAPI_PluginTree::CreateLeafNodeForwarder(const char *path, JemSmartPtr<DmtNode> &node,
                                                const DmtData &value) noexcept
{
    return CreateLeafNodeInternal(path, node, value);
}

int DM_NAPI_PluginTree::CreateInteriorNodeInternal(const char *path, JemSmartPtr<DmtNode> &node,
                                                   const DMStringVector &childNames) noexcept
{
    LOG_TRACE("Enter: CreateInteriorNodeInternal()! NodePath = %s\n", path);
    DMString parentPath;
    DMString nodeName;
    DMString profileName;
    ParseNodePath(path, parentPath, nodeName);
    ParseLogicalId(nodeName, profileName);
    if (profileName.length() > MAX_PROFILE_NAME_LENGTH) // the service judges the name
        LOG_FAILURE("Leave: CreateInteriorNodeInternal() fail!Profile name too long\n");
    JemSmartPtr<DmtNode> existing;
    if (GetNode(path, existing) == DMT_OK) {
        LOG_TRACE("Leave: CreateInteriorNodeInternal()!This node has exist!\n");
        return DMT_ALREADY_EXISTS;
    }
    LOG_TRACE("Get Parent node of %s!\n", path);
    JemSmartPtr<DmtNode> parent;
    if (const int status = GetNode(parentPath.text(), parent)) {
        LOG_FAILURE("Leave:CreateInteriorNodeInternal() fail! Parent node: %s is not exist!\n",
                    parentPath.text());
        return status;
    }
    if (parentPath.empty()) {
        if (const int status = CreateProfile(nodeName, profileName))
            return status;
    } else if (std::string_view(parentPath.text()).ends_with("/Auth") && nodeName != "PAP") {
        LOG_FAILURE("Leave:CreateInteriorNodeInternal() fail, the Auth type is not PAP\n");
        return DMT_FAILED;
    }
    Register(path, NewInterior(path, childNames));
    if (const int status = GetNode(path, node)) {
        LOG_FAILURE("Leave: CreateInteriorNodeInternal(): GetNode %s failed\n", path);
        return status;
    }
    LOG_TRACE("Leave: CreateInteriorNodeInternal()! \n");
    return DMT_OK;
}

int DM_NAPI_PluginTree::CreateProfile(const DMString &nodeName, const DMString &profileName)
{
    NAP_PROFILE_S record{};
    record.creation = 1;
    if (NAPI_IsProfileValid(profileName.text()) == 0) {
        LOG_TRACE("NAPI_CreateProfile, ProfileName = %s has exist!\n", profileName.text());
    } else {
        LOG_TRACE("m_ProfileCount=%d\n", m_ProfileCount);
        if (m_ProfileCount >= NAPI_GetMaxProfiles()) {
            LOG_FAILURE("Leave: CreateInteriorNodeInternal()! Profile number reaches maximum!\n");
            return DMT_FAILED;
        }
        if (const int result = NAPI_CreateProfile(profileName.text(), &record, 0, 0)) {
            LOG_FAILURE("Leave:CreateInteriorNodeInternal: NAPI_CreateProfile failed! return %d\n",
                        result);
            return DMT_FAILED;
        }
        m_ProfileCount = static_cast<std::int8_t>(m_ProfileCount + 1);
        LOG_TRACE("NAPI_CreateProfile OK! ProfileName = %s, m_ProfileCount=%d\n",
                  profileName.text(), m_ProfileCount);
    }
    std::unique_ptr<ProfileInfo> info = NewProfileInfo(DMString());
    if (!info) {
        LOG_FAILURE("Leave:CreateInteriorNodeInternal() fail: Allocate memory  failed\n");
        return DMT_FAILED;
    }
    unsigned int id = 0;
    if (const int result = NAPI_GetProfileIDByName(profileName.text(), &id)) {
        LOG_FAILURE("Leave:CreateInteriorNodeInternal():NAPI_GetProfileIDByName  failed! return "
                    "%d\n",
                    result);
        return DMT_FAILED;
    }
    LOG_TRACE("NAPI_GetProfileIDByName OK! ProfileID = %d\n", static_cast<int>(id));
    // A new profile starts on the default bearer; a write to its "Bearer" leaf moves it.
    info->sProfileID = IdKey(id, IsNAPDEF() ? FindBearer(DEFAULT_BEARER)->keySuffix : "");
    info->bIsCSD = true;
    LOG_TRACE("pProfileInfo->sProfileID is %s\n", info->sProfileID.text());
    if (const int status = AddProfileMap(nodeName, std::move(info))) {
        LOG_FAILURE("Leave:CreateInteriorNodeInternal: AddProfileMap failed\n");
        return status;
    }
    return DMT_OK;
}

namespace {

/// The value of a new leaf before the server's is applied; its format follows from the leaf's name.
DmtData InitialValue(const DMString &leafName)
{
    if (leafName == "Linger" || leafName == "Speed" || leafName == "PortNbr")
        return DmtData(0);
    if (leafName == "UserEditable")
        return DmtData(true);
    return DmtData("");
}

// Whether a server may add a leaf of that name with the value.

bool HasLegalBearer(const DmtData &value)
{
    DMString bearer;
    return value.GetString(bearer) == DMT_OK && FindBearer(bearer);
}

bool HasLegalLineType(const DmtData &value)
{
    DMString lineType;
    return value.GetString(lineType) == DMT_OK && IsLineType(lineType);
}

bool HasLegalSpeed(const DmtData &value)
{
    int bitRate = 0;
    return value.GetInt(bitRate) == DMT_OK && IsBitRate(bitRate);
}

} // namespace

int DM_NAPI_PluginTree::CreateLeafNodeInternal(const char *path, JemSmartPtr<DmtNode> &node,
                                               const DmtData &value) noexcept
{
    LOG_TRACE("Enter: CreateLeafNodeInternal()! NodePath = %s\n", path);
    JemSmartPtr<DmtNode> existing;
    if (GetNode(path, existing) == DMT_OK) {
        LOG_TRACE("This node has exist!\n");
        return DMT_ALREADY_EXISTS;
    }
    DMString parentPath;
    DMString nodeName;
    ParseNodePath(path, parentPath, nodeName);
    LOG_TRACE("Get Parent node of %s!\n", path);
    JemSmartPtr<DmtNode> parent;
    if (const int status = GetNode(parentPath.text(), parent)) {
        LOG_FAILURE("Leave:CreateLeafNodeInternal() fail! Parent node: %s is not exist!\n",
                    parentPath.text());
        return status;
    }
    // These three messages end in "/n", not in a line break.
    if (nodeName == "Bearer" && !HasLegalBearer(value)) {
        LOG_FAILURE("Leave:CreateLeafNodeInternal() fail!illegal Bearer/n");
        return DMT_FAILED;
    }
    if (nodeName == "LineType" && !HasLegalLineType(value)) {
        LOG_FAILURE("Leave:CreateLeafNodeInternal() fail!illegal LineType/n");
        return DMT_FAILED;
    }
    if (nodeName == "Speed" && !HasLegalSpeed(value)) {
        LOG_FAILURE("Leave:CreateLeafNodeInternal() fail!illegal Speed/n");
        return DMT_FAILED;
    }
    LOG_TRACE("Create new node! Node path = %s\n", path);
    Register(path, NewLeaf(path, InitialValue(nodeName)));
    if (const int status = GetNode(path, node)) {
        LOG_FAILURE("Leave:CreateLeafNodeInternal()! GetNode %s failed\n", path);
        return status;
    }
    // A leaf whose value is refused stays, with its initial value.
    if (const int status =
            static_cast<DM_NAPI_PluginNode *>(node.get())->SetValueInternal(&value)) {
        LOG_FAILURE("Leave: CreateLeafNode()! SetValueInternal failed! %d\n", status);
        return status;
    }
    LOG_TRACE("Leave: CreateLeafNodeInternal()! \n");
    return DMT_OK;
}

// ---- The overrides are complete -----------------------------------------------------------------

#define ASSERT_OVERRIDDEN(member, ...)                                                             \
    static_assert(std::is_same_v<decltype(&DM_NAPI_PluginTree::member),                            \
                                 int (DM_NAPI_PluginTree::*)(__VA_ARGS__) noexcept>)
ASSERT_OVERRIDDEN(DeleteNode, const char *);
ASSERT_OVERRIDDEN(RenameNode, const char *, const char *);
ASSERT_OVERRIDDEN(GetChildValuesMap, const char *, DmtChildValuesMap &);
ASSERT_OVERRIDDEN(SetChildValuesMap, const char *, const DmtChildValuesMap &);
ASSERT_OVERRIDDEN(CreateLeafNodeForwarder, const char *, JemSmartPtr<DmtNode> &, const DmtData &);
ASSERT_OVERRIDDEN(CreateInteriorNodeInternal, const char *, JemSmartPtr<DmtNode> &,
                  const DMStringVector &);
ASSERT_OVERRIDDEN(CreateLeafNodeInternal, const char *, JemSmartPtr<DmtNode> &, const DmtData &);
