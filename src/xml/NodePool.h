// Cells for CXMLNode objects, cut from 64 KiB slabs. A tree of many small nodes then
// costs no allocator header or neighbour merging per node, and freeing one is a push on
// a list. Each thread keeps its own list of free cells; a cell may be freed on another
// thread than the one that made it. Slabs are kept for later nodes, never given back:
// the memory of freed nodes serves new nodes only. The cells of a thread that ends go
// to the next thread that runs short.
#pragma once

#include <cstddef>

namespace xmlpool {
// The size of every cell.
std::size_t CellSize();
// A cell of CellSize() bytes. Throws CMemoryException when no slab can be had.
void* Take();
// Gives a cell from Take back.
void Give(void* cell) noexcept;
}  // namespace xmlpool
