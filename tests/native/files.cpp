// Temporary files.
#include <cstdio>

#include "kernel_objects.h"

namespace stand_in {
namespace {

// Each call ends at once; the handle's mode decides how the caller hears of it.
class temporary_file final : public file_object {
 public:
  temporary_file() : file_(std::tmpfile()) {}
  ~temporary_file() override { std::fclose(file_); }

  void read(request_ptr request) override {
    const std::lock_guard guard(lock_);
    seek(*request->overlapped);
    const auto moved = std::fread(request->data, 1, request->size, file_);
    request->complete(moved != 0 ? ERROR_SUCCESS : ERROR_HANDLE_EOF, static_cast<DWORD>(moved));
  }

  void write(request_ptr request) override {
    const std::lock_guard guard(lock_);
    seek(*request->overlapped);
    const auto moved = std::fwrite(request->data, 1, request->size, file_);
    request->complete(ERROR_SUCCESS, static_cast<DWORD>(moved));
  }

  void connect(request_ptr request) override { request->complete(ERROR_INVALID_HANDLE, 0); }
  bool cancel(const OVERLAPPED*) override { return false; }

 private:
  void seek(const OVERLAPPED& overlapped) {
    const auto position = std::uint64_t{overlapped.OffsetHigh} << 32 | overlapped.Offset;
    std::fseek(file_, static_cast<long>(position), SEEK_SET);
  }

  std::mutex lock_;
  std::FILE* const file_;
};

}  // namespace

std::shared_ptr<file_object> make_temporary_file() {
  return std::make_shared<temporary_file>();
}

}  // namespace stand_in

DWORD GetTempPathW(DWORD, wchar_t* path) {
  path[0] = L'\0';
  return 0;
}

DWORD GetTempFileNameW(const wchar_t*, const wchar_t*, DWORD, wchar_t* path) {
  path[0] = L'\0';
  return 1;
}
