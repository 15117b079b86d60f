#include "index/IXRecords.h"

#include "frame/Coding.h"

namespace dorvik {

int DecodeIXRecord(const unsigned char* record, int size) {
    DWORD v = DecodeFixed(record, size);
    if (size < 4 && (v >> (8 * size - 1)) != 0) return -1;
    return static_cast<int>(v);
}

void EncodeIXRecord(unsigned char* out, int value, int size) {
    EncodeFixed(out, static_cast<DWORD>(value), size);
}

int ReadIXRecord(CIXFile& file, int position) {
    const int size = file.GetRecordSize();
    unsigned char bytes[4] = {0, 0, 0, 0};
    file.Seek(static_cast<LONG>(position * size), CFile::begin);
    file.Read(bytes, static_cast<UINT>(size));
    return DecodeIXRecord(bytes, size);
}

std::vector<int> ReadIXRecords(CIXFile& file) {
    const int size = file.GetRecordSize();
    const std::size_t step = static_cast<std::size_t>(size);
    std::vector<int> values(static_cast<std::size_t>(file.GetRecordCount()));
    if (values.empty()) return values;
    std::vector<unsigned char> raw(values.size() * step);
    file.Seek(0, CFile::begin);
    file.Read(raw.data(), static_cast<UINT>(raw.size()));
    for (std::size_t i = 0; i < values.size(); ++i)
        values[i] = DecodeIXRecord(raw.data() + i * step, size);
    return values;
}

void WriteIXRecords(CIXFile& file, const std::vector<int>& values) {
    const int size = file.GetRecordSize();
    const std::size_t step = static_cast<std::size_t>(size);
    std::vector<unsigned char> raw(values.size() * step);
    for (std::size_t i = 0; i < values.size(); ++i)
        EncodeIXRecord(raw.data() + i * step, values[i], size);
    file.Seek(0, CFile::begin);
    file.Write(raw.data(), static_cast<UINT>(raw.size()));
    file.SetLength(static_cast<DWORD>(raw.size()));
}

}  // namespace dorvik
