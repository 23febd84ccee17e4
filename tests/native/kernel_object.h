// What a handle stands for: an event, or a device for overlapped reads whose other end is the test.
#pragma once

#include <deque>
#include <mutex>
#include <vector>

#include "thread_pool.h"

namespace stand_in {

// How a read ends: an NTSTATUS and the Win32 error that it maps to. One of success moves one 'x'.
struct answer {
  ULONG status = 0;
  DWORD error = ERROR_SUCCESS;
};

// The handle is its address, so the address sanitizer sees the use of a closed one.
struct kernel_object {
  void signal();

  // A read takes the oldest answer, or waits for the next; one read waits at a time.
  void send(answer sent = {});
  DWORD read(char* buffer, OVERLAPPED* call);
  bool cancel(const OVERLAPPED* call);

  void finish(const answer& sent, OVERLAPPED* call, char* buffer);
  void complete(const answer& sent, OVERLAPPED* call, char* buffer);

  bool skips_on_success = false;       // constant once calls are made
  std::shared_ptr<TP_OBJECT> binding;  // likewise

  // Guarded by lock.
  std::mutex lock;
  bool is_set = false;
  std::vector<std::shared_ptr<TP_OBJECT>> waits;
  std::deque<answer> answers;
  OVERLAPPED* waiting = nullptr;
  char* waiting_buffer = nullptr;
};

}  // namespace stand_in
