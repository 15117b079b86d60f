// Every question a tree answers about one node, asked for its answer's sake by the
// damaged-file test and the tree fuzz target: each must give a result, never a fault.
#pragma once

#include "dorvik/Hierarchy.h"

inline void AskAboutNode(const CHierarchy& tree, int node) {
    const int level = tree.GetNodeLevel(node);
    tree.GetLevelNodeCount(level);
    tree.GetNodeParent(node);
    tree.GetNodeRoot(node);
    tree.GetNodeBrother(node);
    tree.GetNodeLastChild(node);
    tree.GetIndexNode(tree.GetNodeIndex(node), level);
    tree.IsLeaf(node);
    tree.GetChildrenCount(node);
    CBitArray scope;
    tree.GetNodeScope(node, scope);
    CDWordArray list;
    for (int mode : {-1, 0, 1}) {
        tree.GetChildrenNodes(node, scope, mode);
        tree.GetChildrenNodes(node, list, mode);
    }
    int* walk = nullptr;
    const int length = tree.GetNodePath(node, walk);
    tree.GetPathNode(length, walk);
    tree.GetChildrenCount(length, walk);
    delete[] walk;
    walk = nullptr;
    tree.GetNodeAbsPath(node, walk);
    delete[] walk;
}
