// The one holder of blocks of the C heap inside the library: a GrabBlock (or malloc)
// block that is released with DropBlock when the holder goes, unless it was handed on
// with release().
#pragma once

#include <cstddef>
#include <memory>

#include "dorvik/Exceptions.h"
#include "dorvik/Platform.h"

namespace dorvik {

struct BlockDropper {
    void operator()(void* block) const { DropBlock(block); }
};

template <class T = unsigned char>
using Block = std::unique_ptr<T, BlockDropper>;

// Takes `block` (null allowed) into a holder.
template <class T>
Block<T> Hold(T* block) {
    return Block<T>(block);
}

// A new zero-filled block of `bytes` bytes; throws CMemoryException when there is none.
template <class T = unsigned char>
Block<T> GrabOrThrow(std::size_t bytes) {
    void* block = GrabBlock(bytes);
    if (!block) throw CMemoryException();
    return Block<T>(static_cast<T*>(block));
}

// A block of `bytes` bytes whose content is left as the allocator gives it, for a
// caller that writes every one of them before anything reads them; the bytes behind
// them up to the allocator's size read 0, as in every block. Null when there is none.
// Saves the zero fill of large blocks that are overwritten at once.
void* GrabUnfilledBlock(std::size_t bytes);

// GrabUnfilledBlock as a holder; throws CMemoryException when there is none.
inline Block<> GrabUnfilledOrThrow(std::size_t bytes) {
    void* block = GrabUnfilledBlock(bytes);
    if (!block) throw CMemoryException();
    return Block<>(static_cast<unsigned char*>(block));
}

}  // namespace dorvik
