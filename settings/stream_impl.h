// The COM stream over a value of the in-memory settings tree.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "settings/file.h"
#include "settings/unique_stream.h"

namespace Tamrin::setman {

// Works on bytes of its own, so streams that are open on the same file do not see each other until
// one of them is committed; the last commit wins. Counts its references itself and may be released
// by any thread, but is otherwise used by one thread at a time. Nothing is thrown.
class StreamImpl final : public IStream {
 public:
  // Comes with one reference. `mode` is STGM_READ, STGM_WRITE or STGM_READWRITE.
  StreamImpl(std::shared_ptr<file> target, std::vector<std::byte> bytes, DWORD mode) noexcept;
  StreamImpl(const StreamImpl&) = delete;
  StreamImpl& operator=(const StreamImpl&) = delete;

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID id, void** object) noexcept override;
  ULONG STDMETHODCALLTYPE AddRef() noexcept override;
  // The last release commits.
  ULONG STDMETHODCALLTYPE Release() noexcept override;

  // S_FALSE when fewer bytes than asked for are left; STG_E_ACCESSDENIED in mode STGM_WRITE.
  HRESULT STDMETHODCALLTYPE Read(void* data, ULONG size, ULONG* read) noexcept override;
  // All or nothing. A gap between the end and the position is filled with zeros.
  HRESULT STDMETHODCALLTYPE Write(const void* data, ULONG size, ULONG* written) noexcept override;
  HRESULT STDMETHODCALLTYPE Seek(LARGE_INTEGER move, DWORD origin,
                                 ULARGE_INTEGER* position) noexcept override;
  HRESULT STDMETHODCALLTYPE SetSize(ULARGE_INTEGER size) noexcept override;
  // The size and the mode; there is no name.
  HRESULT STDMETHODCALLTYPE Stat(STATSTG* status, DWORD flags) noexcept override;
  // Makes the bytes so far the value.
  HRESULT STDMETHODCALLTYPE Commit(DWORD flags) noexcept override;

  // Not supported: E_NOTIMPL.
  HRESULT STDMETHODCALLTYPE CopyTo(IStream* target, ULARGE_INTEGER size, ULARGE_INTEGER* read,
                                   ULARGE_INTEGER* written) noexcept override;
  HRESULT STDMETHODCALLTYPE Revert() noexcept override;
  HRESULT STDMETHODCALLTYPE LockRegion(ULARGE_INTEGER offset, ULARGE_INTEGER size,
                                       DWORD type) noexcept override;
  HRESULT STDMETHODCALLTYPE UnlockRegion(ULARGE_INTEGER offset, ULARGE_INTEGER size,
                                         DWORD type) noexcept override;
  HRESULT STDMETHODCALLTYPE Clone(IStream** clone) noexcept override;

 private:
  ~StreamImpl() = default;

  [[nodiscard]] HRESULT resize(std::uint64_t size) noexcept;

  // Constant after construction.
  const std::shared_ptr<file> file_;
  const DWORD mode_;

  std::atomic<ULONG> references_ = 1;

  // Used by the one thread that works with the stream.
  std::vector<std::byte> bytes_;
  std::uint64_t position_ = 0;
  bool changed_;
};

}  // namespace Tamrin::setman
