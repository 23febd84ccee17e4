// What the thread sanitizer sees of the stand-in. Every lock orders the threads that take it one
// after another, and the sanitizer believes in that order: a lock that all threads of the pool
// share would hide most races of the code above it. So the pool works unseen, and says which order
// Windows promises: what was done before a call was submitted happens before the call, and the call
// before the end of a wait for it.
#pragma once

#if __has_feature(thread_sanitizer)
#include <sanitizer/tsan_interface.h>
#define STAND_IN_SANITIZER(call) call
extern "C" {
void AnnotateIgnoreReadsBegin(const char* file, int line);
void AnnotateIgnoreReadsEnd(const char* file, int line);
void AnnotateIgnoreWritesBegin(const char* file, int line);
void AnnotateIgnoreWritesEnd(const char* file, int line);
void AnnotateIgnoreSyncBegin(const char* file, int line);
void AnnotateIgnoreSyncEnd(const char* file, int line);
}
#else
#define STAND_IN_SANITIZER(call) static_cast<void>(0)
#endif

namespace stand_in {

struct unseen {
  unseen() noexcept {
    STAND_IN_SANITIZER(AnnotateIgnoreReadsBegin(__FILE__, __LINE__));
    STAND_IN_SANITIZER(AnnotateIgnoreWritesBegin(__FILE__, __LINE__));
    STAND_IN_SANITIZER(AnnotateIgnoreSyncBegin(__FILE__, __LINE__));
  }
  ~unseen() {
    STAND_IN_SANITIZER(AnnotateIgnoreSyncEnd(__FILE__, __LINE__));
    STAND_IN_SANITIZER(AnnotateIgnoreWritesEnd(__FILE__, __LINE__));
    STAND_IN_SANITIZER(AnnotateIgnoreReadsEnd(__FILE__, __LINE__));
  }
};

inline void happens_before([[maybe_unused]] void* subject) noexcept {
  STAND_IN_SANITIZER(__tsan_release(subject));
}
inline void happens_after([[maybe_unused]] void* subject) noexcept {
  STAND_IN_SANITIZER(__tsan_acquire(subject));
}

}  // namespace stand_in
