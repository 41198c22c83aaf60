// The walk down the command tree.
#pragma once

#include "qx/text.h"
#include "zema/cmd_tree.h"

#include <span>

namespace zema {

struct TreeWalk {
    const CmdTreeNode *node; // whose children were searched last, or the last one reached that has children
    const CmdTreeNode *reached; // the node that the last word names, or null
    size_t depth;               // levels gone down; a leaf is not one
};

inline const CmdTreeNode *childNamed(const CmdTreeNode &node, const char *name)
{
    const CmdTreeNode *child = node.pstChild;
    while (child != nullptr && QX_OS_StrCaseCmp(child->acName, name) != 0) {
        child = child->pstNext;
    }
    return child;
}

// Goes down one level a word until the words end, a leaf is reached or a word names no child.
inline TreeWalk walkTree(const CmdTreeNode &root, std::span<const char *const> words)
{
    TreeWalk walk = {.node = &root, .reached = nullptr, .depth = 0};
    while (walk.depth < words.size()) {
        walk.reached = childNamed(*walk.node, words[walk.depth]);
        if (walk.reached == nullptr || walk.reached->pstChild == nullptr) {
            break;
        }
        walk.node = walk.reached;
        ++walk.depth;
    }
    return walk;
}

} // namespace zema
