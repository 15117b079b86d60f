// The records of an integer index file as bytes: the one owner of their coding, and the
// bulk reader and writer that other classes use on a CIXFile (all through its virtual
// Seek, Read, Write and SetLength, so a memory twin serves as well).
#pragma once

#include <vector>

#include "dorvik/IXFile.h"

namespace dorvik {

// The value of one record of `size` bytes (1 to 4) as CIXFile::GetRecord reads it: a
// 1- to 3-byte record with its top bit set reads -1, a 4-byte one is signed.
int DecodeIXRecord(const unsigned char* record, int size);
// The low `size` bytes of `value`, little-endian.
void EncodeIXRecord(unsigned char* out, int value, int size);

// Physical record `position` of `file`, which lies in the file: one seek and one read,
// no length query.
int ReadIXRecord(CIXFile& file, int position);
// Every record of `file`, decoded, in physical order; one read.
std::vector<int> ReadIXRecords(CIXFile& file);
// Replaces the whole content of `file` by `values`, in its record size; one write.
void WriteIXRecords(CIXFile& file, const std::vector<int>& values);

}  // namespace dorvik
