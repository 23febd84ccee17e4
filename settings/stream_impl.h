// A COM stream over a value of the in-memory settings tree.
#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <vector>

#include "settings/file.h"
#include "settings/unique_stream.h"

namespace Tamrin::setman {

// Works on its own copy of the bytes, which its last release stores: streams open on the same file
// do not see each other's writes, and the last one released wins. Any thread may add or release
// references; otherwise one thread at a time uses the stream. Never throws.
class StreamImpl final : public IStream {
 public:
  // Starts with one reference. `mode` is STGM_READ, STGM_WRITE or STGM_READWRITE.
  StreamImpl(std::shared_ptr<file> target, std::vector<std::byte> bytes, DWORD mode) noexcept;
  StreamImpl(const StreamImpl&) = delete;
  StreamImpl& operator=(const StreamImpl&) = delete;

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID id, void** object) noexcept override;
  ULONG STDMETHODCALLTYPE AddRef() noexcept override { return ++references_; }
  // The last release stores changed bytes as the file's value.
  ULONG STDMETHODCALLTYPE Release() noexcept override;

  // S_FALSE when fewer bytes remain than requested; STG_E_ACCESSDENIED in mode STGM_WRITE.
  HRESULT STDMETHODCALLTYPE Read(void* data, ULONG size, ULONG* read) noexcept override;
  // All or nothing. STG_E_ACCESSDENIED in mode STGM_READ.
  HRESULT STDMETHODCALLTYPE Write(const void* data, ULONG size, ULONG* written) noexcept override;

  // Not supported.
  HRESULT STDMETHODCALLTYPE Seek(LARGE_INTEGER, DWORD, ULARGE_INTEGER*) noexcept override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE SetSize(ULARGE_INTEGER) noexcept override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE CopyTo(IStream*, ULARGE_INTEGER, ULARGE_INTEGER*,
                                   ULARGE_INTEGER*) noexcept override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE Commit(DWORD) noexcept override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE Revert() noexcept override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE LockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) noexcept override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE UnlockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) noexcept override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE Stat(STATSTG*, DWORD) noexcept override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE Clone(IStream**) noexcept override { return E_NOTIMPL; }

 private:
  ~StreamImpl() = default;

  // Constant after construction.
  const std::shared_ptr<file> file_;
  const DWORD mode_;

  std::atomic<ULONG> references_ = 1;

  // Used by one thread at a time.
  std::vector<std::byte> bytes_;
  std::size_t position_ = 0;  // at most bytes_.size()
  bool changed_;
};

}  // namespace Tamrin::setman
