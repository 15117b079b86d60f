// Blocks of the C heap with zero fill on allocation and on every growth.
//
// Invariant for blocks made here: every byte from the requested size up to the
// allocator's usable size is 0. A growth that stays inside the usable size then finds
// zeros already, and a shrink clears what it gives up, so that a later growth in place
// never shows old bytes.
#include <malloc.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "dorvik/Exceptions.h"
#include "dorvik/Platform.h"
#include "frame/Block.h"

namespace dorvik::classic {
namespace {
std::atomic<std::size_t> g_blockLimit{SIZE_MAX};

bool OverLimit(std::size_t size) { return size > g_blockLimit.load(std::memory_order_relaxed); }

// Zeros what the allocator gave beyond `size` (the invariant above); null stays null.
void* ClearTail(void* block, std::size_t size) {
    if (!block) return nullptr;
    std::size_t usable = malloc_usable_size(block);
    if (usable > size) std::memset(static_cast<char*>(block) + size, 0, usable - size);
    return block;
}
}  // namespace

void* GrabBlock(std::size_t size) {
    if (OverLimit(size)) return nullptr;
    // calloc knows when the memory is fresh from the system and zero already: a large
    // block then costs no writing, and its pages are touched only where it is used.
    return ClearTail(std::calloc(size ? size : 1, 1), size);
}

void* RegrowBlock(void* block, std::size_t size) {
    if (!block) {
        void* fresh = GrabBlock(size);
        if (!fresh) throw CMemoryException();
        return fresh;
    }
    if (OverLimit(size)) throw CMemoryException();
    std::size_t oldUsable = malloc_usable_size(block);
    void* grown = std::realloc(block, size ? size : 1);
    if (!grown) throw CMemoryException();
    std::size_t keep = oldUsable < size ? oldUsable : size;
    std::size_t newUsable = malloc_usable_size(grown);
    if (newUsable > keep) std::memset(static_cast<char*>(grown) + keep, 0, newUsable - keep);
    return grown;
}

void DropBlock(void* block) { std::free(block); }

std::size_t DorvikSetBlockLimit(std::size_t limit) { return g_blockLimit.exchange(limit); }

}  // namespace dorvik::classic

void* dorvik::GrabUnfilledBlock(std::size_t size) {
    if (classic::OverLimit(size)) return nullptr;
    return classic::ClearTail(std::malloc(size ? size : 1), size);
}
