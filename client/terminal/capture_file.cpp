#include "client/terminal/capture_file.h"

#include "async/errors.h"

namespace tarnwheel::client {

capture_file::capture_file(std::wstring_view path) : path_(path) {
  if (path_.empty())
    return;
  file_.reset(::CreateFileW(path_.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ, nullptr, OPEN_ALWAYS,
                            FILE_ATTRIBUTE_NORMAL, nullptr));
  if (!file_)
    throw failed(::GetLastError());
}

std::optional<client_error> capture_file::add(std::span<const std::byte> bytes) {
  DWORD written = 0;
  if (!file_ ||
      ::WriteFile(file_.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr))
    return std::nullopt;
  const DWORD error = ::GetLastError();
  file_.reset();
  return failed(error);
}

client_error capture_file::failed(DWORD error) const {
  return explain(ostra::details::to_hresult(error), path_, {}, failure::local);
}

}  // namespace tarnwheel::client
