#include "dorvik/MemTextBinFile.h"

#include "recordfile/MemTwin.h"

namespace dorvik::classic {
template class CMemTwinBase<CBaseMemFile, CTextBinFile>;
template class CMemTwin<CTextBinFile>;

CMemTextBinFile::~CMemTextBinFile() = default;

DWORD CMemTextBinFile::GetLength() const {
    // Only while the table is loaded: loading it measures the stored bytes.
    if (m_bSortTree && m_pAddresses)
        return static_cast<DWORD>(m_nFileDataSize) + static_cast<DWORD>(m_nFileAddressesSize);
    return CMemTwin::GetLength();
}

// The file side's Close writes the words of sort-tree mode through the twin's storage
// and releases the table; its own handle was never open, so it closes nothing.
void CMemTextBinFile::Close() {
    CTextBinFile::Close();
    CMemTwin::Close();
}

BYTE* CMemTextBinFile::Detach() {
    CTextBinFile::Close();
    return CMemTwin::Detach();
}

}  // namespace dorvik::classic
