// The COM stream over a value of the in-memory settings tree.
#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <vector>

#include "settings/file.h"
#include "settings/unique_stream.h"

namespace Tamrin::setman {

// Works on bytes of its own, so streams that are open on the same file do not see each other until
// one of them is released for the last time; the last one wins. Counts its references itself and may
// be released by any thread, but is otherwise used by one thread at a time. Nothing is thrown.
class StreamImpl final : public IStream {
 public:
  // Comes with one reference. `mode` is STGM_READ, STGM_WRITE or STGM_READWRITE.
  StreamImpl(std::shared_ptr<file> target, std::vector<std::byte> bytes, DWORD mode) noexcept;
  StreamImpl(const StreamImpl&) = delete;
  StreamImpl& operator=(const StreamImpl&) = delete;

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID id, void** object) noexcept override;
  ULONG STDMETHODCALLTYPE AddRef() noexcept override { return ++references_; }
  // The last release makes the bytes the value.
  ULONG STDMETHODCALLTYPE Release() noexcept override;

  // S_FALSE when fewer bytes than asked for are left; STG_E_ACCESSDENIED in mode STGM_WRITE.
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

  // Used by the one thread that works with the stream.
  std::vector<std::byte> bytes_;
  std::size_t position_ = 0;  // at most the end
  bool changed_;
};

}  // namespace Tamrin::setman
