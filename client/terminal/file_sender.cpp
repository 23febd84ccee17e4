#include "client/terminal/file_sender.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "async/background.h"
#include "async/errors.h"
#include "client/line/client_error.h"
#include "format/format.h"
#include "platform/unique_resource.h"

namespace tarnwheel::client {
namespace {

constexpr DWORD kPiece = 4096;  // bytes
constexpr std::size_t kMaxName = 1024;
constexpr std::wstring_view kBackspaceKey = L"\x7F";
constexpr std::wstring_view kEscapeKey = L"\x1B";

}  // namespace

void file_sender::toggle() {
  if (is_sending_) {
    is_stopped_ = true;
    return;
  }
  is_asking_ = true;
  name_.clear();
  screen_.print(L"\r\n[file to send: ");
}

void file_sender::handle_key(std::wstring_view key) {
  if (key == L"\r" || key == kEscapeKey) {
    is_asking_ = false;
    screen_.print(L"]\r\n");
    if (key == kEscapeKey)
      name_.clear();
  } else if (key == kBackspaceKey && !name_.empty()) {
    name_.pop_back();
    screen_.print(L"\b \b");
  } else if (key.front() >= L' ' && key != kBackspaceKey && name_.size() < kMaxName) {
    name_ += key;
    screen_.print(key);
  }
}

void file_sender::start() {
  is_sending_ = true;
  is_stopped_ = false;
  if (sending_.valid())
    sending_.wait();  // it has called done_, so it is about to complete
  sending_ = send(std::exchange(name_, {}));
}

void file_sender::finish() {
  is_stopped_ = true;
  if (sending_.valid())
    sending_.wait();
}

ostra::future<void> file_sender::send(std::wstring path) {
  HRESULT failed = S_OK;
  try {
    ostra::resume_background move;
    co_await move;
    const Tamrin::unique_file file(::CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ,
                                                 nullptr, OPEN_EXISTING, FILE_FLAG_SEQUENTIAL_SCAN,
                                                 nullptr));
    LARGE_INTEGER size = {};
    ostra::details::check_file(file.get());
    if (::GetFileType(file.get()) != FILE_TYPE_DISK)  // anything else may never end
      ostra::details::throw_win32(ERROR_NOT_SUPPORTED);
    ostra::details::check_bool(::GetFileSizeEx(file.get(), &size));
    auto sent = send_bytes(file.get(), static_cast<std::uint64_t>(size.QuadPart));
    co_await sent;
  } catch (...) {
    failed = ostra::details::current_hresult();
  }
  if (FAILED(failed))
    screen_.note(explain(failed, path).message());
  is_sending_ = false;
  done_();
}

ostra::future<void> file_sender::send_bytes(HANDLE file, std::uint64_t size) {
  std::uint64_t sent = 0;
  for (std::uint64_t told = 0; !is_stopped_ && !line_.has_ended();) {
    std::vector<std::byte> piece(kPiece);
    DWORD read = 0;
    ostra::details::check_bool(::ReadFile(file, piece.data(), kPiece, &read, nullptr));
    if (read == 0)
      break;
    piece.resize(read);
    auto room = line_.write(std::move(piece));
    co_await room;
    sent += read;
    const std::uint64_t tenths = sent * 10 / std::max(size, sent);
    if (std::exchange(told, tenths) != tenths && tenths < 10)
      screen_.note(tfmt::format(L"{0} % of {1} bytes", static_cast<std::uint32_t>(tenths * 10),
                                std::to_wstring(size)));
  }
  auto taken = line_.drained();
  co_await taken;
  if (line_.has_ended())
    screen_.note(L"only part of the file was sent");
  else
    screen_.note(tfmt::format(L"{0} bytes sent{1?<}; cancelled{1?>}", std::to_wstring(sent),
                              is_stopped_.load()));
}

}  // namespace tarnwheel::client
