// The bodies of the twin templates; each twin's source instantiates them once, as
// `template class CMemTwinBase<Memory, File>;` and, for record files,
// `template class CMemTwin<File>;`.
#pragma once

#include "dorvik/MemTwin.h"

namespace dorvik::classic {
template <class M, class F>
CMemTwinBase<M, F>::~CMemTwinBase() = default;

template <class M, class F>
LONG CMemTwinBase<M, F>::Seek(LONG offset, UINT from) {
    return M::Seek(offset, from);
}

template <class M, class F>
void CMemTwinBase<M, F>::SetLength(DWORD length) {
    M::SetLength(length);
}

template <class M, class F>
DWORD CMemTwinBase<M, F>::GetLength() const {
    return M::GetLength();
}

template <class M, class F>
UINT CMemTwinBase<M, F>::Read(void* buffer, UINT count) {
    return M::Read(buffer, count);
}

template <class M, class F>
void CMemTwinBase<M, F>::Write(const void* buffer, UINT count) {
    M::Write(buffer, count);
}

template <class M, class F>
void CMemTwinBase<M, F>::Close() {
    M::Close();
}

template <class M, class F>
DWORD CMemTwinBase<M, F>::GetPosition() const {
    return M::GetPosition();
}

template <class M, class F>
DWORD CMemTwinBase<M, F>::ReadHuge(void* buffer, DWORD count) {
    return M::Read(buffer, count);
}

template <class M, class F>
void CMemTwinBase<M, F>::WriteHuge(const void* buffer, DWORD count) {
    M::Write(buffer, count);
}

template <class F>
CMemTwin<F>::CMemTwin(UINT growBytes)
    : CMemTwinBase<CBaseMemFile, F>(std::piecewise_construct, std::make_tuple(growBytes),
                                    std::make_tuple()) {
    this->LoadAddresses();
}

template <class F>
CMemTwin<F>::CMemTwin(const char* path, UINT growBytes)
    : CMemTwinBase<CBaseMemFile, F>(std::piecewise_construct, std::make_tuple(path, growBytes),
                                    std::make_tuple()) {
    this->LoadAddresses();
}

template <class F>
CMemTwin<F>::CMemTwin(BYTE* buffer, UINT size, UINT growBytes)
    : CMemTwinBase<CBaseMemFile, F>(std::piecewise_construct,
                                    std::make_tuple(buffer, size, growBytes), std::make_tuple()) {
    this->LoadAddresses();
}

template <class F>
CMemTwin<F>::~CMemTwin() {
    Close();
}

template <class F>
DWORD CMemTwin<F>::GetLength() const {
    return F::GetLength();
}

template <class F>
void CMemTwin<F>::Close() {
    this->FreeAddresses();
    CMemFile::Close();
}

template <class F>
void CMemTwin<F>::Attach(BYTE* buffer, DWORD size, UINT growBytes) {
    CBaseMemFile::Attach(buffer, size, growBytes);
    this->LoadAddresses();
}

template <class F>
BYTE* CMemTwin<F>::Detach() {
    F::SetSafeMode(true);
    this->FreeAddresses();
    return CBaseMemFile::Detach();
}

}  // namespace dorvik::classic
