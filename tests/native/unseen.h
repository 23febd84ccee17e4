// What the thread sanitizer sees of the stand-in. Every lock orders the threads that take it one
// after another, and the sanitizer believes in that order: a lock that all threads of the pool
// share would hide most races of the code above it. So the pool works unseen, and says which order
// Windows promises: what was done before a call was submitted happens before the call, and the call
// before the end of a wait for it.
#pragma once

#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define STAND_IN_THREAD_SANITIZER
#endif
#endif

#ifdef STAND_IN_THREAD_SANITIZER
#include <sanitizer/tsan_interface.h>

extern "C" {
void AnnotateIgnoreReadsBegin(const char* file, int line);
void AnnotateIgnoreReadsEnd(const char* file, int line);
void AnnotateIgnoreWritesBegin(const char* file, int line);
void AnnotateIgnoreWritesEnd(const char* file, int line);
void AnnotateIgnoreSyncBegin(const char* file, int line);
void AnnotateIgnoreSyncEnd(const char* file, int line);
}
#endif

namespace stand_in {

class unseen {
 public:
  unseen() noexcept {
#ifdef STAND_IN_THREAD_SANITIZER
    AnnotateIgnoreReadsBegin(__FILE__, __LINE__);
    AnnotateIgnoreWritesBegin(__FILE__, __LINE__);
    AnnotateIgnoreSyncBegin(__FILE__, __LINE__);
#endif
  }
  unseen(const unseen&) = delete;
  unseen& operator=(const unseen&) = delete;
  ~unseen() {
#ifdef STAND_IN_THREAD_SANITIZER
    AnnotateIgnoreSyncEnd(__FILE__, __LINE__);
    AnnotateIgnoreWritesEnd(__FILE__, __LINE__);
    AnnotateIgnoreReadsEnd(__FILE__, __LINE__);
#endif
  }
};

inline void happens_before([[maybe_unused]] void* subject) noexcept {
#ifdef STAND_IN_THREAD_SANITIZER
  __tsan_release(subject);
#endif
}

inline void happens_after([[maybe_unused]] void* subject) noexcept {
#ifdef STAND_IN_THREAD_SANITIZER
  __tsan_acquire(subject);
#endif
}

}  // namespace stand_in
