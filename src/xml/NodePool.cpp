#include "xml/NodePool.h"

#include <cstdlib>
#include <mutex>
#include <vector>

#include "dorvik/Exceptions.h"
#include "dorvik/XMLNode.h"

namespace xmlpool {
namespace {
constexpr std::size_t kCell =
    (sizeof(CXMLNode) + alignof(CXMLNode) - 1) / alignof(CXMLNode) * alignof(CXMLNode);
constexpr std::size_t kSlab = 64 * 1024;

struct FreeCell {
    FreeCell* next;
};

// Free cells of threads that have ended, and every slab ever made (so that they stay
// reachable for leak checkers).
std::mutex g_lock;
FreeCell* g_orphans = nullptr;
std::vector<void*> g_slabs;

struct Pool {
    FreeCell* free = nullptr;
    char* fresh = nullptr;  // the untouched rest of the newest slab
    char* freshEnd = nullptr;

    ~Pool() {
        while (Room()) {
            Give(fresh);
            fresh += kCell;
        }
        if (!free) return;
        FreeCell* last = free;
        while (last->next) last = last->next;
        std::lock_guard<std::mutex> guard(g_lock);
        last->next = g_orphans;
        g_orphans = free;
        free = nullptr;
    }

    bool Room() const { return static_cast<std::size_t>(freshEnd - fresh) >= kCell; }

    void Give(void* cell) {
        auto* c = static_cast<FreeCell*>(cell);
        c->next = free;
        free = c;
    }

    void* Refill() {
        {
            std::lock_guard<std::mutex> guard(g_lock);
            if (g_orphans) {
                free = g_orphans;
                g_orphans = nullptr;
            } else {
                g_slabs.reserve(g_slabs.size() + 1);
                void* slab = std::malloc(kSlab);
                if (!slab) throw CMemoryException();
                g_slabs.push_back(slab);
                fresh = static_cast<char*>(slab);
                freshEnd = fresh + kSlab / kCell * kCell;
            }
        }
        return Take();
    }

    void* Take() {
        if (FreeCell* c = free) {
            free = c->next;
            return c;
        }
        if (Room()) {
            void* c = fresh;
            fresh += kCell;
            return c;
        }
        return Refill();
    }
};

thread_local Pool t_pool;
}  // namespace

std::size_t CellSize() { return kCell; }
void* Take() { return t_pool.Take(); }
void Give(void* cell) noexcept { t_pool.Give(cell); }
}  // namespace xmlpool
