#include "settings/stream_impl.h"

#include <algorithm>
#include <exception>
#include <utility>

namespace Tamrin::setman {

// Opening for writing alone empties the value even when nothing is written.
StreamImpl::StreamImpl(std::shared_ptr<file> target, std::vector<std::byte> bytes,
                       DWORD mode) noexcept
    : file_(std::move(target)),
      mode_(mode),
      bytes_(std::move(bytes)),
      changed_(mode == STGM_WRITE) {}

HRESULT StreamImpl::QueryInterface(REFIID id, void** object) noexcept {
  if (object == nullptr)
    return E_POINTER;
  *object = nullptr;
  if (id != IID_IUnknown && id != IID_ISequentialStream && id != IID_IStream)
    return E_NOINTERFACE;
  AddRef();
  *object = static_cast<IStream*>(this);
  return S_OK;
}

ULONG StreamImpl::AddRef() noexcept {
  return ++references_;
}

ULONG StreamImpl::Release() noexcept {
  const ULONG left = --references_;
  if (left == 0) {
    if (changed_)
      file_->store({REG_BINARY, std::move(bytes_)});
    delete this;
  }
  return left;
}

HRESULT StreamImpl::Read(void* data, ULONG size, ULONG* read) noexcept {
  if (read != nullptr)
    *read = 0;
  if (mode_ == STGM_WRITE)
    return STG_E_ACCESSDENIED;
  if (data == nullptr && size != 0)
    return STG_E_INVALIDPOINTER;
  const auto start = static_cast<std::size_t>(std::min<std::uint64_t>(position_, bytes_.size()));
  const std::size_t copied = std::min<std::size_t>(size, bytes_.size() - start);
  std::copy_n(bytes_.data() + start, copied, static_cast<std::byte*>(data));
  position_ += copied;
  if (read != nullptr)
    *read = static_cast<ULONG>(copied);
  return copied == size ? S_OK : S_FALSE;
}

HRESULT StreamImpl::Write(const void* data, ULONG size, ULONG* written) noexcept {
  if (written != nullptr)
    *written = 0;
  if (mode_ == STGM_READ)
    return STG_E_ACCESSDENIED;
  if (data == nullptr && size != 0)
    return STG_E_INVALIDPOINTER;
  if (size == 0)
    return S_OK;
  if (position_ + size > bytes_.size()) {
    const HRESULT resized = resize(position_ + size);
    if (FAILED(resized))
      return resized;
  }
  // Now that the bytes are there, the position fits their index.
  std::copy_n(static_cast<const std::byte*>(data), size,
              bytes_.data() + static_cast<std::size_t>(position_));
  position_ += size;
  changed_ = true;
  if (written != nullptr)
    *written = size;
  return S_OK;
}

HRESULT StreamImpl::Seek(LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER* position) noexcept {
  std::uint64_t base = 0;
  switch (origin) {
    case STREAM_SEEK_SET:
      break;
    case STREAM_SEEK_CUR:
      base = position_;
      break;
    case STREAM_SEEK_END:
      base = bytes_.size();
      break;
    default:
      return STG_E_INVALIDFUNCTION;
  }
  // Positions stay within the positive signed range, so that the sums here cannot wrap round.
  const std::uint64_t target = base + static_cast<std::uint64_t>(move.QuadPart);
  if (target > static_cast<std::uint64_t>(INT64_MAX))
    return STG_E_INVALIDFUNCTION;
  position_ = target;
  if (position != nullptr)
    position->QuadPart = position_;
  return S_OK;
}

HRESULT StreamImpl::SetSize(ULARGE_INTEGER size) noexcept {
  if (mode_ == STGM_READ)
    return STG_E_ACCESSDENIED;
  const HRESULT resized = resize(size.QuadPart);
  if (SUCCEEDED(resized))
    changed_ = true;
  return resized;
}

HRESULT StreamImpl::Stat(STATSTG* status, DWORD) noexcept {
  if (status == nullptr)
    return STG_E_INVALIDPOINTER;
  *status = {};
  status->type = STGTY_STREAM;
  status->cbSize.QuadPart = bytes_.size();
  status->grfMode = mode_;
  return S_OK;
}

HRESULT StreamImpl::Commit(DWORD) noexcept {
  if (!changed_)
    return S_OK;
  // A caller of COM takes results only.
  try {
    file_->store({REG_BINARY, bytes_});
  } catch (const std::exception&) {
    return STG_E_MEDIUMFULL;
  }
  changed_ = false;
  return S_OK;
}

HRESULT StreamImpl::CopyTo(IStream*, ULARGE_INTEGER, ULARGE_INTEGER*, ULARGE_INTEGER*) noexcept {
  return E_NOTIMPL;
}
HRESULT StreamImpl::Revert() noexcept {
  return E_NOTIMPL;
}
HRESULT StreamImpl::LockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) noexcept {
  return E_NOTIMPL;
}
HRESULT StreamImpl::UnlockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) noexcept {
  return E_NOTIMPL;
}
HRESULT StreamImpl::Clone(IStream**) noexcept {
  return E_NOTIMPL;
}

HRESULT StreamImpl::resize(std::uint64_t size) noexcept {
  // A caller of COM takes results only.
  try {
    bytes_.resize(size);
  } catch (const std::exception&) {
    return STG_E_MEDIUMFULL;
  }
  return S_OK;
}

}  // namespace Tamrin::setman
