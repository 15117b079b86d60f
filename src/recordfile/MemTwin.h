// The body shared by every memory twin; instantiated once per twin class.
#pragma once

#include "dorvik/MemBinFile.h"

template <class F>
CMemTwin<F>::CMemTwin(UINT growBytes) : CBaseMemFile(growBytes), F() {
    this->LoadAddresses();
}

template <class F>
CMemTwin<F>::CMemTwin(const char* path, UINT growBytes) : CBaseMemFile(path, growBytes), F() {
    this->LoadAddresses();
}

template <class F>
CMemTwin<F>::CMemTwin(BYTE* buffer, UINT size, UINT growBytes)
    : CBaseMemFile(buffer, size, growBytes), F() {
    this->LoadAddresses();
}

template <class F>
CMemTwin<F>::~CMemTwin() {
    Close();
}

template <class F>
LONG CMemTwin<F>::Seek(LONG offset, UINT from) {
    return CMemFile::Seek(offset, from);
}

template <class F>
void CMemTwin<F>::SetLength(DWORD length) {
    CMemFile::SetLength(length);
}

template <class F>
DWORD CMemTwin<F>::GetLength() const {
    return F::GetLength();
}

template <class F>
UINT CMemTwin<F>::Read(void* buffer, UINT count) {
    return CMemFile::Read(buffer, count);
}

template <class F>
void CMemTwin<F>::Write(const void* buffer, UINT count) {
    CMemFile::Write(buffer, count);
}

template <class F>
void CMemTwin<F>::Close() {
    this->FreeAddresses();
    CMemFile::Close();
}

template <class F>
DWORD CMemTwin<F>::GetPosition() const {
    return CMemFile::GetPosition();
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

template <class F>
DWORD CMemTwin<F>::ReadHuge(void* buffer, DWORD count) {
    return CMemFile::Read(buffer, count);
}

template <class F>
void CMemTwin<F>::WriteHuge(const void* buffer, DWORD count) {
    CMemFile::Write(buffer, count);
}
