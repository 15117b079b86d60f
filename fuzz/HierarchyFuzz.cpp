// Any bytes as the bit record file of a tree: the levels load within their limits, and
// every walk over nodes, paths and children gives a result, whatever the levels hold.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>

#include "../tests/TreeWalk.h"
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
        for (int node : {nodes[0], nodes[1], nodes[2], nodes[3], count - 1, count})
            AskAboutNode(tree, node);
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
