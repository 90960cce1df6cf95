// A plug-in in the process that examines it, with its trees mounted.
#pragma once

#include "dmnative/dmt_plugin_api.h"
#include "examination.h"

#include <map>
#include <string>
#include <vector>

using Tree = JemSmartPtr<DmtPluginTree>;
using Node = JemSmartPtr<DmtNode>;

/// The library of a plug-in, loaded as an engine loads it.
class Library {
public:
    explicit Library(const std::string &file);

    /// Why it cannot be loaded; empty when it could.
    const std::string &fault() const { return m_fault; }
    void unload();

    DmtPluginGetApiVersion *getVersion() const { return m_getVersion; }
    DmtPluginGetTree *getTree() const { return m_getTree; }

private:
    void *m_library;
    std::string m_fault;
    DmtPluginGetApiVersion *m_getVersion = nullptr;
    DmtPluginGetTree *m_getTree = nullptr;
};

/// All roots of a plug-in, mounted in their order, one of which is looked at.
class Device {
public:
    /// Mounts the roots once, gives them back, and mounts them again: what the plug-in keeps from
    /// then on, it keeps once.
    Device(Witness &witness, const Library &library, const std::vector<std::string> &roots,
           std::size_t root);
    ~Device();
    Device(const Device &) = delete;
    Device &operator=(const Device &) = delete;

    bool isMounted() const { return !m_trees.empty(); }
    DmtPluginTree &tree() const { return *m_trees[m_root]; }
    Witness &witness() const { return m_witness; }

    /// Announces a call. The path is relative to the root.
    void calls(const std::string &path, const std::string &slot) const;
    /// A finding unless it holds. @return whether it does
    bool expect(bool holds, const std::string &expected, const std::string &came) const;
    /// A finding unless the status is one that the protocol knows.
    void expectKnown(int status) const;

    /// The node at a path; null when there is none.
    Node nodeAt(const std::string &path) const;
    /// The paths of all nodes in the order of their lists, each once, that of the root first.
    std::vector<std::string> paths() const;
    std::vector<std::string> childNames(const std::string &path) const;
    /// The values of all leaves that can be read, beneath a path and at it.
    std::map<std::string, std::string> valuesBeneath(const std::string &path) const;

    /// Mounts everything afresh.
    void mountAgain();
    /// Drops the trees. A finding unless the engine's memory is as it was before they were mounted.
    void giveBack();

private:
    bool mount();
    void drop();

    Witness &m_witness;
    const Library &m_library;
    const std::vector<std::string> &m_roots;
    std::size_t m_root;
    std::vector<Tree> m_trees;
    std::size_t m_blocksBefore = 0;
    std::size_t m_allocationsBefore = 0;
};

/// "a/b" and "c" make "a/b/c"; the root has the empty path.
std::string childPath(const std::string &path, const std::string &name);
std::string parentOf(const std::string &path);
std::string lastSegment(const std::string &path);

/// A value for people, and to compare: its type and what it holds.
std::string textOf(const DmtData &value);

bool isKnownStatus(int status);
