// What a tree and its nodes share so that neither keeps the other alive.
#pragma once

#include "dmnative/dmt_tree.h"

/// A tree's nodes hold the link, not the tree: when the tree is destroyed it cuts the link, and a
/// node that somebody still holds finds no tree any more.
class DmtTreeLink final : public JemRefCounted {
public:
    explicit DmtTreeLink(DmtPluginTree *tree) : m_tree(tree) {}
    DmtPluginTree *Tree() const { return m_tree; }
    void Cut() { m_tree = nullptr; }

private:
    DmtPluginTree *m_tree;
};
