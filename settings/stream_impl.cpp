#include "settings/stream_impl.h"

#include <algorithm>
#include <exception>
#include <utility>

namespace Tamrin::setman {

// Opening with STGM_WRITE empties the value even if nothing is written.
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
  const auto copied = static_cast<ULONG>(std::min<std::size_t>(size, bytes_.size() - position_));
  const bool allowed = mode_ != STGM_WRITE;
  if (read != nullptr)
    *read = allowed ? copied : 0;
  if (!allowed)
    return STG_E_ACCESSDENIED;
  std::copy_n(bytes_.data() + position_, copied, static_cast<std::byte*>(data));
  position_ += copied;
  return copied == size ? S_OK : S_FALSE;
}

HRESULT StreamImpl::Write(const void* data, ULONG size, ULONG* written) noexcept {
  if (written != nullptr)
    *written = 0;
  if (mode_ == STGM_READ)
    return STG_E_ACCESSDENIED;
  // No exception may reach a COM caller.
  try {
    bytes_.resize(std::max(bytes_.size(), position_ + size));
  } catch (const std::exception&) {
    return STG_E_MEDIUMFULL;
  }
  std::copy_n(static_cast<const std::byte*>(data), size, bytes_.data() + position_);
  position_ += size;
  changed_ = true;
  if (written != nullptr)
    *written = size;
  return S_OK;
}

}  // namespace Tamrin::setman
