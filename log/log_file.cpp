#include "log/log_file.h"

#include <string>
#include <utility>

#include "async/errors.h"

namespace logging {
namespace {

constexpr std::wstring_view kByteOrderMark = L"\xFEFF";
static_assert(sizeof(wchar_t) == 2, "lines go to the file as UTF-16");

}  // namespace

std::unique_ptr<log_file> log_file::open(std::wstring_view path) {
  const std::wstring name(path);
  Tamrin::unique_file handle(::CreateFileW(name.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                                           OPEN_ALWAYS, FILE_FLAG_OVERLAPPED, nullptr));
  const bool existed = ::GetLastError() == ERROR_ALREADY_EXISTS;
  if (!handle)
    return nullptr;
  std::unique_ptr<log_file> file(new log_file);
  file->file_.set(std::move(handle), ostra::immediate_success::queues_completion);
  if (existed) {
    LARGE_INTEGER end = {};
    ostra::details::check_bool(::SetFilePointerEx(file->file_.get(), {}, &end, FILE_END));
    file->offset_ = static_cast<std::uint64_t>(end.QuadPart);
  } else {
    file->append(kByteOrderMark).get();
  }
  return file;
}

ostra::future<void> log_file::append(std::wstring_view text) {
  const auto size = static_cast<DWORD>(text.size() * sizeof(wchar_t));
  auto write = file_.call(ostra::write_file{text.data(), size}, offset_);
  const DWORD written = co_await write;
  offset_ += written;
  if (written != size)
    ostra::details::throw_win32(ERROR_WRITE_FAULT);
}

}  // namespace logging
