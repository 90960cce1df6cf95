// A second opinion on the plug-in: what its two trees, the mapping files and the stored records
// must hold after a series of operations. It is written for clearness, in plain maps and literal
// offsets, and shares no code with the plug-in. Nothing in it fails but for the reasons that a tree
// has itself: the services around it always answer.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace model {

using Bytes = std::array<std::uint8_t, 1168>; ///< one profile record

struct Value {
    enum Type { Null, Text, Number, Flag };
    Type type = Null;
    std::string text;
    int number = 0;
    bool flag = false;

    static Value OfText(std::string text) { return {Text, std::move(text), 0, false}; }
    static Value OfNumber(int number) { return {Number, {}, number, false}; }
    static Value OfFlag(bool flag) { return {Flag, {}, 0, flag}; }
    bool operator==(const Value &) const = default;
};

/// The profile service: profiles in the order of their IDs.
struct Service {
    struct Profile {
        unsigned int id;
        std::string name;
        Bytes record;
    };
    std::vector<Profile> profiles;
    unsigned int nextId = 1;
    int maximum = 127;

    Profile *Named(const std::string &name);
    Profile *WithId(unsigned int id);
};

/// Both mapping files, group by group.
struct Files {
    std::map<std::string, std::string> napdef;
    std::map<std::string, std::string> proxy;
    std::map<std::string, std::string> conn;
};

struct Node {
    bool isLeaf = false;
    Value value;
};

class Tree {
public:
    enum Kind { Napdef, Proxy };

    Tree(Kind kind, Service &service, Files &files);

    int GetValue(const std::string &path, Value &value);
    int SetValue(const std::string &path, const Value &value);
    int AddInterior(const std::string &path);
    int AddLeaf(const std::string &path, const Value &value);
    int Delete(const std::string &path);
    int Rename(const std::string &path, const std::string &newName);
    int GetChildValues(const std::string &path, std::map<std::string, Value> &values);

    const std::map<std::string, Node> &Nodes() const { return m_nodes; }

private:
    struct Mapped {
        std::string name;
        std::string key;
        int bearer; ///< for the layout at mount: the first flag that is set
        bool bearers[3];
    };

    void Mount();
    void Layout(const Mapped &mapped);
    void Put(const std::string &path, bool isLeaf, const Value &value,
             const std::vector<std::string> &children = {});
    Mapped *Find(const std::string &name);
    std::map<std::string, std::string> &OwnFile();
    Service::Profile *ProfileOf(const std::string &path);
    std::string BearerOf(const std::string &path);
    int MoveKey(const std::string &name, const std::string &bearer);
    int Write(const std::string &path, const Value &value);
    int WriteBearer(Service::Profile &profile, const std::string &path, const Value &value);
    int WriteNapdef(Bytes &record, const std::string &path, const Value &value);
    void WriteProxy(Bytes &record, const std::string &path, const Value &value);
    int CreateProfile(const std::string &nodeName);
    bool IsMapped(unsigned int id) const;

    Kind m_kind;
    Service &m_service;
    Files &m_files;
    std::map<std::string, Node> m_nodes;
    std::set<std::string>
        m_entries; ///< paths that were ever registered or listed, and what is above
    std::vector<Mapped> m_mapped;
    std::int8_t m_count = 0;
};

} // namespace model
