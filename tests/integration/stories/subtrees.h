// Lines of a whole profile subtree, as a mount builds it.
#pragma once

#include "story_fixture.h"

/// Concatenates.
inline Lines All(const std::vector<Lines> &parts)
{
    Lines all;
    for (const Lines &part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

struct ProxyValues {
    std::string reference1 = {};
    std::string reference2 = {};
    std::string reference3 = {};
    std::string address1 = {};
};

/// Subtree of a profile under IntProfs; each line begins with the sign.
inline Lines ProxySubtree(const std::string &sign, const std::string &name,
                          const ProxyValues &values)
{
    const std::string profile = sign + "IntProfs/" + name + "/";
    const auto slot = [&](const std::string &ph, const std::string &reference,
                          const std::string &address, const std::string &port) {
        return Lines{profile + ph + "/", profile + ph + "/Conn = " + Quoted(reference),
                     profile + ph + "/Addr = " + Quoted(address), profile + ph + "/Port/",
                     profile + ph + "/Port/PortNbr = " + port};
    };
    return All({{profile},
                slot("Ph1", values.reference1, values.address1, "0"),
                slot("Ph2", values.reference2, "", "0"),
                slot("Ph3", values.reference3, "", "null"),
                {profile + "UserEditable = true"}});
}

struct ConnValues {
    std::string bearer = {};
    std::string address = {};
    std::string lineType = {};
};

/// Subtree of a profile under Conn that has nothing but an address; each line begins with the sign.
inline Lines ConnSubtree(const std::string &sign, const std::string &name, const ConnValues &values)
{
    const std::string profile = sign + "Conn/" + name + "/";
    return {profile,
            profile + "Bearer = " + Quoted(values.bearer),
            profile + "Addr = " + Quoted(values.address),
            profile + "DNS1 = \"0.0.0.0\"",
            profile + "DNS2 = \"0.0.0.0\"",
            profile + "Linger = 0",
            profile + "Auth/",
            profile + "Auth/PAP/",
            profile + "Auth/PAP/AuthId = \"\"",
            profile + "Auth/PAP/AuthPw = \"\"",
            profile + "LineType = " + Quoted(values.lineType),
            profile + "Speed = 0"};
}
