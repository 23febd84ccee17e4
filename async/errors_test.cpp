#include "async/errors.h"

#include <new>
#include <string>

#include "platform/unique_resource.h"
#include "tests/support/unit/testing.h"

namespace ostra {
namespace {

template <class Action>
DWORD caught(Action action) {
  try {
    action();
  } catch (...) {
    return static_cast<DWORD>(details::current_hresult());
  }
  return 0;
}

TEST(Errors, EveryFailureHasItsHresult) {
  EXPECT_EQ(caught([] { details::throw_win32(0x12345); }), 0x80072345);
  EXPECT_EQ(caught([] { details::throw_win32(0x80004005); }), 0x80004005);
  ::SetLastError(ERROR_SHARING_VIOLATION);
  EXPECT_EQ(caught([] { details::check_file(INVALID_HANDLE_VALUE); }), 0x80070020);
  EXPECT_EQ(caught([] { throw std::bad_alloc(); }), 0x8007000E);
  EXPECT_EQ(caught([] { throw 1; }), 0x8000FFFF);
  EXPECT_THROW(details::throw_win32(ERROR_CANCELLED), operation_cancelled);
}

struct test_traits {
  using pointer = int;
  static pointer invalid() noexcept { return -1; }
  static void close(pointer value) { closed += std::to_string(value); }
  static inline std::string closed;
};

TEST(UniqueResource, EveryValueIsClosedExactlyOnce) {
  using resource = Tamrin::unique_resource<test_traits>;
  {
    resource a(1), b(2);
    b = std::move(a);
    resource c(std::move(b));
    c.reset(3);
    resource& alias = c;
    c = std::move(alias);
    c.reset(c.get());
    EXPECT_EQ(resource(4).release(), 4);
    EXPECT_EQ(test_traits::closed, "21");
  }
  EXPECT_EQ(test_traits::closed, "213");
}

}  // namespace
}  // namespace ostra
