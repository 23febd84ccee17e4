// What handles stand for: events, files and the ends of pipes.
#pragma once

#include <atomic>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "thread_pool.h"

namespace stand_in {

struct kernel_object {
  virtual ~kernel_object() = default;
  virtual void on_close() {}  // the handle goes, its operations may still be under way
};

// A handle is a block of its own, so that the address sanitizer sees the use of a closed one.
HANDLE make_handle(std::shared_ptr<kernel_object> object);

// Null, with the last error set, when the handle is none of that kind.
template <class Object>
std::shared_ptr<Object> object_of(HANDLE handle);

class event final : public kernel_object {
 public:
  event(bool manual_reset, bool set) : manual_reset_(manual_reset), set_(set) {}

  void set();
  bool wait(DWORD milliseconds);
  // Calls `signalled` once, when the event is set.
  void subscribe(std::function<void()> signalled);

 private:
  const bool manual_reset_;

  std::mutex lock_;
  std::condition_variable changed_;
  bool set_;
  std::vector<std::function<void()>> subscribers_;
};

// One call on a file or a pipe, from its start to its completion.
struct request {
  OVERLAPPED* overlapped;
  std::byte* data;
  DWORD size;
  DWORD moved = 0;
  std::function<void(DWORD error, DWORD moved)> complete;
};
using request_ptr = std::shared_ptr<request>;

// What ReadFile and its like work on. Each operation completes its request, at once or later.
class file_object : public kernel_object {
 public:
  virtual void read(request_ptr request) = 0;
  virtual void write(request_ptr request) = 0;
  virtual void connect(request_ptr request) = 0;
  virtual bool cancel(const OVERLAPPED* overlapped) = 0;
  virtual void flush() {}

  // Starts `operation` for a call on a handle and gives the call's result.
  BOOL start(void (file_object::*operation)(request_ptr), void* data, DWORD size, DWORD* moved,
             OVERLAPPED* overlapped);

  bool overlapped = false;         // constant once it has a handle
  bool skips_on_success = false;   // constant once calls are made
  std::shared_ptr<TP_IO> binding;  // likewise

 private:
  BOOL start_overlapped(void (file_object::*operation)(request_ptr), request_ptr request);
  BOOL run_blocking(void (file_object::*operation)(request_ptr), request_ptr request, DWORD* moved);
};

struct handle_block {
  std::shared_ptr<kernel_object> object;
};

// A file without a name, which goes with its last handle.
std::shared_ptr<file_object> make_temporary_file();

template <class Object>
std::shared_ptr<Object> object_of(HANDLE handle) {
  std::shared_ptr<Object> object;
  if (handle != nullptr && handle != INVALID_HANDLE_VALUE)
    object = std::dynamic_pointer_cast<Object>(static_cast<handle_block*>(handle)->object);
  if (!object)
    SetLastError(ERROR_INVALID_HANDLE);
  return object;
}

}  // namespace stand_in
