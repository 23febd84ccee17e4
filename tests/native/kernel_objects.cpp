#include "kernel_objects.h"

#include <chrono>
#include <cstdlib>
#include <thread>
#include <utility>

namespace stand_in {

HANDLE make_handle(std::shared_ptr<kernel_object> object) {
  return new handle_block{std::move(object)};
}

void event::set() {
  std::vector<std::function<void()>> subscribers;
  {
    const std::lock_guard guard(lock_);
    set_ = true;
    changed_.notify_all();
    subscribers.swap(subscribers_);
  }
  for (const auto& signalled : subscribers)
    signalled();
}

bool event::wait(DWORD milliseconds) {
  std::unique_lock guard(lock_);
  const auto is_set = [this] { return set_; };
  if (milliseconds == INFINITE) {
    changed_.wait(guard, is_set);
  } else if (!changed_.wait_for(guard, std::chrono::milliseconds(milliseconds), is_set)) {
    return false;
  }
  set_ = manual_reset_;
  return true;
}

void event::subscribe(std::function<void()> signalled) {
  {
    const std::lock_guard guard(lock_);
    if (!set_) {
      subscribers_.push_back(std::move(signalled));
      return;
    }
  }
  signalled();
}

}  // namespace stand_in

using stand_in::event;
using stand_in::file_object;
using stand_in::hand_out;
using stand_in::make_handle;
using stand_in::object_of;
using stand_in::request;
using stand_in::request_ptr;
using stand_in::thread_pool;

struct TP_WAIT : stand_in::pool_target<wait_callback> {
  using pool_target::pool_target;
};

struct TP_IO : stand_in::pool_target<io_callback> {
  using pool_target::pool_target;

  std::atomic<int> started = 0;  // calls whose completion is still to come

  void ended() {
    if (started.fetch_sub(1) <= 0)
      std::abort();  // completed or cancelled without a StartThreadpoolIo
  }
};

BOOL CloseHandle(HANDLE handle) noexcept {
  auto* const block = static_cast<stand_in::handle_block*>(handle);
  block->object->on_close();
  delete block;
  return TRUE;
}

HANDLE CreateEventW(SECURITY_ATTRIBUTES*, BOOL manual_reset, BOOL initially_set, const wchar_t*) {
  return make_handle(std::make_shared<event>(manual_reset != FALSE, initially_set != FALSE));
}

BOOL SetEvent(HANDLE handle) noexcept {
  const auto object = object_of<event>(handle);
  if (object)
    object->set();
  return object != nullptr;
}

DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds) {
  const auto object = object_of<event>(handle);
  return object && object->wait(milliseconds) ? WAIT_OBJECT_0 : WAIT_TIMEOUT;
}

PTP_WAIT CreateThreadpoolWait(wait_callback* callback, void* context, void*) {
  return hand_out(std::make_shared<TP_WAIT>(callback, context));
}

void SetThreadpoolWait(PTP_WAIT wait, HANDLE handle, const FILETIME* timeout) {
  const auto over = std::make_shared<std::atomic<bool>>(false);
  const auto report = [wait, over](TP_WAIT_RESULT result, PTP_CALLBACK_INSTANCE instance) {
    if (!over->exchange(true))
      wait->callback(instance, wait->context, wait, result);
  };
  auto& pool = thread_pool::instance();
  // Once the time runs, the callback may close the wait.
  const std::weak_ptr<stand_in::pool_object> alive = wait->weak_from_this();
  const auto signals = object_of<event>(handle);
  if (timeout != nullptr) {
    pool.submit_at(stand_in::time_of(*timeout), *wait,
                   [=](PTP_CALLBACK_INSTANCE instance) { report(WAIT_TIMEOUT, instance); });
  }
  signals->subscribe([=, &pool] {
    const auto object = alive.lock();
    if (!object)
      return;
    pool.withdraw(*object);
    pool.submit(object.get(),
                [=](PTP_CALLBACK_INSTANCE instance) { report(WAIT_OBJECT_0, instance); });
  });
}

void CloseThreadpoolWait(PTP_WAIT wait) {
  thread_pool::instance().withdraw(*wait);
  wait->self.reset();
}

BOOL SetFileCompletionNotificationModes(HANDLE handle, BYTE modes) {
  const auto file = object_of<file_object>(handle);
  if (file)
    file->skips_on_success = (modes & FILE_SKIP_COMPLETION_PORT_ON_SUCCESS) != 0;
  return file != nullptr;
}

PTP_IO CreateThreadpoolIo(HANDLE handle, io_callback* callback, void* context, void*) {
  const auto file = object_of<file_object>(handle);
  if (!file)
    return nullptr;
  file->binding = std::make_shared<TP_IO>(callback, context);
  return hand_out(file->binding);
}

void StartThreadpoolIo(PTP_IO io) {
  ++io->started;
}

void CancelThreadpoolIo(PTP_IO io) {
  io->ended();
}

void CloseThreadpoolIo(PTP_IO io) {
  io->self.reset();
}

BOOL ReadFile(HANDLE handle, void* buffer, DWORD size, DWORD* moved, OVERLAPPED* overlapped) {
  const auto file = object_of<file_object>(handle);
  return file && file->start(&file_object::read, buffer, size, moved, overlapped);
}

BOOL WriteFile(HANDLE handle, const void* data, DWORD size, DWORD* moved, OVERLAPPED* overlapped) {
  const auto file = object_of<file_object>(handle);
  return file && file->start(&file_object::write, const_cast<void*>(data), size, moved, overlapped);
}

BOOL ConnectNamedPipe(HANDLE handle, OVERLAPPED* overlapped) {
  const auto pipe = object_of<file_object>(handle);
  return pipe && pipe->start(&file_object::connect, nullptr, 0, nullptr, overlapped);
}

BOOL CancelIoEx(HANDLE handle, OVERLAPPED* overlapped) {
  const auto file = object_of<file_object>(handle);
  if (!file)
    return FALSE;
  SetLastError(ERROR_NOT_FOUND);
  return file->cancel(overlapped);
}

BOOL FlushFileBuffers(HANDLE handle) {
  const auto file = object_of<file_object>(handle);
  if (file)
    file->flush();
  return file != nullptr;
}

namespace stand_in {

BOOL file_object::start(void (file_object::*operation)(request_ptr), void* data, DWORD size,
                        DWORD* moved, OVERLAPPED* overlapped_call) {
  auto started = std::make_shared<request>(
      request{overlapped_call, static_cast<std::byte*>(data), size, 0, nullptr});
  return overlapped ? start_overlapped(operation, std::move(started))
                    : run_blocking(operation, std::move(started), moved);
}

// A completion on this thread, before the operation returns, is the call's own result, and goes to
// the pool only if the handle wants that. One on another thread may come at any time and leave the
// OVERLAPPED gone: nothing looks at it after the operation has been started.
BOOL file_object::start_overlapped(void (file_object::*operation)(request_ptr),
                                   request_ptr started) {
  struct progress {
    std::thread::id starter = std::this_thread::get_id();
    bool returned = false;  // starting thread only
    DWORD error = ERROR_IO_PENDING;
  };
  const auto call = std::make_shared<progress>();
  started->overlapped->Internal = 0x103;  // STATUS_PENDING
  const auto io = binding;
  started->complete = [call, io, skips = skips_on_success, overlapped_call = started->overlapped](
                          DWORD error, DWORD moved) {
    overlapped_call->Internal = error == ERROR_SUCCESS ? 0 : 0xC0000001;
    overlapped_call->InternalHigh = moved;
    if (std::this_thread::get_id() == call->starter && !call->returned) {
      call->error = error;
      if (error != ERROR_SUCCESS || skips)
        return;
    }
    thread_pool::instance().submit(io.get(), [=](PTP_CALLBACK_INSTANCE instance) {
      io->ended();
      io->callback(instance, io->context, overlapped_call, error, moved, io.get());
    });
  };
  (this->*operation)(started);
  call->returned = true;
  SetLastError(call->error);
  return call->error == ERROR_SUCCESS;
}

BOOL file_object::run_blocking(void (file_object::*operation)(request_ptr), request_ptr started,
                               DWORD* moved) {
  event ended(true, false);
  DWORD result = ERROR_SUCCESS;
  started->complete = [&](DWORD error, DWORD size) {
    result = error;
    if (moved != nullptr)
      *moved = size;
    ended.set();
  };
  (this->*operation)(started);
  ended.wait(INFINITE);
  SetLastError(result);
  return result == ERROR_SUCCESS;
}

}  // namespace stand_in
