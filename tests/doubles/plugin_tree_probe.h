// Lets a test set up and look at a tree's own members.
#pragma once

#include "DM_Napi_PluginTree.h"

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace doubles {

/// One mapped profile with that ID key; "G", "C", "2" set its bearer flags.
inline std::unique_ptr<ProfileInfo> NewInfo(const char *key, const std::string &flags = "")
{
    auto info = std::make_unique<ProfileInfo>();
    info->sProfileID = key;
    info->bIsGPRS = flags.find('G') != std::string::npos;
    info->bIsCSD = flags.find('C') != std::string::npos;
    info->bIsCSD2 = flags.find('2') != std::string::npos;
    return info;
}

} // namespace doubles

struct PluginTreeProbe {
    explicit PluginTreeProbe(DM_NAPI_PluginTree &tree)
        : groupName(tree.m_groupName), profileCount(tree.m_ProfileCount),
          profileNameList(tree.m_profileNameList), isNAPDEF(tree.m_isNAPDEF),
          settings(tree.m_psetupManager), map(tree.m_ProfileMaps)
    {
    }

    QString &groupName;
    std::int8_t &profileCount;
    std::unique_ptr<char[]> &profileNameList;
    std::uint8_t &isNAPDEF;
    std::unique_ptr<SETUP_SET_Manager> &settings;
    decltype(DM_NAPI_PluginTree::m_ProfileMaps) &map;

    /// Node name and ID key of every mapped profile, with a letter for each bearer flag that is
    /// set: G GPRS, C CSD, 2 CSD2. {"Office", "5Ph1DC1 G"}
    std::vector<std::pair<std::string, std::string>> Mapped() const
    {
        std::vector<std::pair<std::string, std::string>> pairs;
        for (int i = 0; i < map.size(); ++i) {
            const ProfileInfo *const info = map.values()[i];
            const std::string flags = std::string(info->bIsGPRS ? "G" : "") +
                                      (info->bIsCSD ? "C" : "") + (info->bIsCSD2 ? "2" : "");
            pairs.emplace_back(map.keys()[i].text(),
                               info->sProfileID.text() + (flags.empty() ? "" : " " + flags));
        }
        return pairs;
    }

    /// What the map has for a node name; null when it is not mapped.
    ProfileInfo *Find(const char *nodeName) const
    {
        const int index = map.find(nodeName);
        return index < 0 ? nullptr : map.values()[index];
    }

    /// Maps a node as a test wants it, with the flags as NewInfo takes them. The map owns the
    /// result.
    ProfileInfo *Put(const char *nodeName, const char *key, const std::string &flags = "")
    {
        return map.values()[map.put(DMString(nodeName), doubles::NewInfo(key, flags))];
    }
};
