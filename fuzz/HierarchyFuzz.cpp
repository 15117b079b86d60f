// Any bytes as the bit record file of a tree: the levels load within their limits, and
// every walk over nodes, paths and children gives a result, whatever the levels hold.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>

#include "FuzzUtil.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size > 8192) return 0;  // a 3-byte run stands for 65535 bytes: keeps levels small
    FuzzedDataProvider in(data, size);
    int nodes[4];
    for (int& node : nodes) node = in.ConsumeIntegralInRange<int>(-2, 4096);
    int path[4];
    for (int& step : path) step = in.ConsumeIntegralInRange<int>(-1, 16);
    const std::vector<unsigned char> image = in.ConsumeRemainingBytes<unsigned char>();
    try {
        CMemBitsBinFile file(MallocCopy(image), static_cast<UINT>(image.size()), 0);
        CHierarchy tree;
        tree.Init(&file, nullptr);
        const int count = tree.GetNodeCount();
        for (int node : {nodes[0], nodes[1], nodes[2], nodes[3], count - 1, count}) {
            const int level = tree.GetNodeLevel(node);
            tree.GetLevelNodeCount(level);
            tree.GetNodeParent(node);
            tree.GetNodeRoot(node);
            tree.GetNodeBrother(node);
            tree.GetNodeLastChild(node);
            tree.GetIndexNode(tree.GetNodeIndex(node), level);
            tree.IsLeaf(node);
            tree.GetChildrenCount(node);
            CBitArray scope, children;
            tree.GetNodeScope(node, scope);
            CDWordArray list;
            for (int mode : {-1, 0, 1}) {
                tree.GetChildrenNodes(node, children, mode);
                tree.GetChildrenNodes(node, list, mode);
            }
            int* walk = nullptr;
            const int length = tree.GetNodePath(node, walk);
            if (walk) tree.GetPathNode(length, walk);
            delete[] walk;
            walk = nullptr;
            tree.GetNodeAbsPath(node, walk);
            delete[] walk;
        }
        for (int length = 0; length <= 4; ++length) {
            tree.GetPathNode(length, path);
            tree.GetChildrenCount(length, path);
        }
        tree.SetNodeLevel(nodes[0], path[0], true);
        tree.GetNodeCount();
    } catch (const CException&) {
        // A clear result for a file that holds no tree.
    }
    return 0;
}
