// Collections and the hierarchy: an indexer's 10 million values over 100,000 lists
// collected on disk and saved as bit records, and navigation in a tree of a million
// nodes. Peers: the same lists collected in memory (std::vector per list) and saved
// through CBitArrayArray; the same navigation on a parent array with child lists.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include <Dorvik01.h>

#include "BenchUtil.h"

namespace {
constexpr int kLists = 100000;
constexpr int kDocuments = 100000;
constexpr int kPerDocument = 100;  // 10 million values in all

double Seconds(std::chrono::steady_clock::time_point since) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - since).count();
}

// Node files go to a folder of their own, so that their size can be read.
std::string NodeFolder() {
    std::string folder = BenchPath("nodes");
    std::filesystem::create_directories(folder);
    setenv("TMPDIR", folder.c_str(), 1);
    return folder;
}

double FolderMegabytes(const std::string& folder) {
    double bytes = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder))
        bytes += static_cast<double>(entry.file_size());
    return bytes / (1024.0 * 1024.0);
}

// Each document adds its number to 100 random lists, as an indexer of words does.
template <class Add>
void Index(Add add) {
    std::mt19937 rng(7);
    for (int doc = 0; doc < kDocuments; ++doc)
        for (int k = 0; k < kPerDocument; ++k) add(static_cast<int>(rng() % kLists), doc);
}

void BM_LinkedListCollectAndSave(benchmark::State& state) {
    std::string folder = NodeFolder();
    std::string path = BenchPath("lists.bin");
    for (auto _ : state) {
        std::remove(path.c_str());
        CLinkedListArray lists;
        auto start = std::chrono::steady_clock::now();
        Index([&](int list, int value) { lists.AddValue(list, value); });
        state.counters["add_s"] = Seconds(start);
        state.counters["node_file_MB"] = FolderMegabytes(folder);
        start = std::chrono::steady_clock::now();
        lists.Save(path.c_str(), opOr, true, false, nullptr);
        state.counters["save_s"] = Seconds(start);
    }
    state.counters["output_MB"] = static_cast<double>(std::filesystem::file_size(path)) / 1048576;
    state.counters["peak_MB"] = PeakMegabytes();
    std::remove(path.c_str());
}
BENCHMARK(BM_LinkedListCollectAndSave)->Iterations(1)->Unit(benchmark::kMillisecond);

// The peer: the lists held in memory, then turned into bit arrays and saved.
void BM_MemoryListsCollectAndSave(benchmark::State& state) {
    std::string path = BenchPath("lists-peer.bin");
    for (auto _ : state) {
        std::remove(path.c_str());
        std::vector<std::vector<int>> lists(kLists);
        auto start = std::chrono::steady_clock::now();
        Index([&](int list, int value) { lists[static_cast<std::size_t>(list)].push_back(value); });
        state.counters["add_s"] = Seconds(start);
        start = std::chrono::steady_clock::now();
        CBitArrayArray bits;
        for (int i = 0; i < kLists; ++i) {
            CBitArray* row = bits.GetAt(i);
            for (int v : lists[static_cast<std::size_t>(i)]) row->SetAt(v);
        }
        bits.Save(path.c_str(), opOr, true, false, nullptr);
        state.counters["save_s"] = Seconds(start);
    }
    state.counters["peak_MB"] = PeakMegabytes();
    std::remove(path.c_str());
}
BENCHMARK(BM_MemoryListsCollectAndSave)->Iterations(1)->Unit(benchmark::kMillisecond);

// A random forest of a million nodes in depth-first order, at most 12 levels deep.
struct Tree {
    CHierarchy levels;
    std::vector<int> parent;
    std::vector<std::vector<int>> children;
    std::vector<int> sample;  // nodes visited by the benchmarks
};

const Tree& MillionNodes() {
    static Tree* tree = [] {
        auto* t = new Tree;
        constexpr int kNodes = 1000000;
        std::mt19937 rng(3);
        std::vector<int> stack;  // the path to the last node
        t->parent.resize(kNodes);
        t->children.resize(kNodes);
        for (int n = 0; n < kNodes; ++n) {
            // Half the time one level deeper, otherwise any level up to there.
            int top = static_cast<int>(std::min<std::size_t>(stack.size(), 11));
            int depth = rng() % 2 ? top : static_cast<int>(rng() % static_cast<unsigned>(top + 1));
            stack.resize(static_cast<std::size_t>(depth));
            int up = depth == 0 ? -1 : stack.back();
            t->parent[static_cast<std::size_t>(n)] = up;
            if (up != -1) t->children[static_cast<std::size_t>(up)].push_back(n);
            t->levels.SetNodeLevel(n, depth, false);
            stack.push_back(n);
        }
        for (int k = 0; k < 4096; ++k) t->sample.push_back(static_cast<int>(rng() % kNodes));
        t->levels.GetNodeCount();
        return t;
    }();
    return *tree;
}

enum Op { kParent, kChildren, kChildrenList, kPath, kScope };

void BM_HierarchyNavigate(benchmark::State& state) {
    const Tree& t = MillionNodes();
    const CHierarchy& h = t.levels;
    auto op = static_cast<Op>(state.range(0));
    std::size_t k = 0;
    CBitArray bits;
    CDWordArray list;
    for (auto _ : state) {
        int node = t.sample[k++ % t.sample.size()];
        switch (op) {
            case kParent:
                benchmark::DoNotOptimize(h.GetNodeParent(node));
                break;
            case kChildren:
                benchmark::DoNotOptimize(h.GetChildrenCount(node));
                break;
            case kChildrenList:
                benchmark::DoNotOptimize(h.GetChildrenNodes(node, list, 0));
                break;
            case kPath: {
                int* path = nullptr;
                benchmark::DoNotOptimize(h.GetNodePath(node, path));
                delete[] path;
                break;
            }
            case kScope:
                h.GetNodeScope(node, bits);
                break;
        }
    }
    double bytes = 0;
    for (int level = 0; level < h.GetLevelCount(); ++level)
        bytes += h.CBitArrayArray::GetAt(level)->GetLength();
    state.counters["levels_MB"] = bytes / 1048576;
}
BENCHMARK(BM_HierarchyNavigate)
    ->ArgName("parent_children_list_path_scope")
    ->DenseRange(kParent, kScope);

// The peer: a parent array and child lists; the relative path walks up and looks
// each node up among its parent's children, and the scope marks the subtree.
void BM_ParentArrayNavigate(benchmark::State& state) {
    const Tree& t = MillionNodes();
    auto op = static_cast<Op>(state.range(0));
    std::size_t k = 0;
    std::vector<int> out;
    std::vector<bool> scope;
    for (auto _ : state) {
        int node = t.sample[k++ % t.sample.size()];
        auto n = static_cast<std::size_t>(node);
        switch (op) {
            case kParent:
                benchmark::DoNotOptimize(t.parent[n]);
                break;
            case kChildren:
                benchmark::DoNotOptimize(t.children[n].size());
                break;
            case kChildrenList:
                out = t.children[n];
                break;
            case kPath: {
                out.clear();
                for (int at = node; at != -1; at = t.parent[static_cast<std::size_t>(at)]) {
                    int up = t.parent[static_cast<std::size_t>(at)];
                    if (up == -1) break;
                    const auto& siblings = t.children[static_cast<std::size_t>(up)];
                    out.push_back(static_cast<int>(
                        std::lower_bound(siblings.begin(), siblings.end(), at) - siblings.begin()));
                }
                benchmark::DoNotOptimize(out.data());
                break;
            }
            case kScope: {
                scope.assign(t.parent.size(), false);
                std::vector<int> todo{node};
                while (!todo.empty()) {
                    int at = todo.back();
                    todo.pop_back();
                    scope[static_cast<std::size_t>(at)] = true;
                    for (int c : t.children[static_cast<std::size_t>(at)]) todo.push_back(c);
                }
                break;
            }
        }
    }
}
BENCHMARK(BM_ParentArrayNavigate)
    ->ArgName("parent_children_list_path_scope")
    ->DenseRange(kParent, kScope);
}  // namespace
