#include "async/errors.h"

#include <new>
#include <vector>

#include "platform/unique_resource.h"
#include "tests/support/unit/testing.h"

namespace ostra {
namespace {

TEST(Errors, Win32CodesBecomeHresults) {
  const std::pair<DWORD, DWORD> rows[] = {
      {0, 0}, {5, 0x80070005}, {0x12345, 0x80072345}, {0x80004005, 0x80004005}};
  for (const auto& [error, expected] : rows)
    EXPECT_EQ(details::to_hresult(error), static_cast<HRESULT>(expected));
  EXPECT_THROW(details::throw_win32(ERROR_CANCELLED), operation_cancelled);
  EXPECT_THROW(details::throw_hresult(operation_cancelled().code()), operation_cancelled);
}

template <class Error>
HRESULT caught(Error error) {
  try {
    throw error;
  } catch (...) {
    return details::current_hresult();
  }
}

TEST(Errors, EveryExceptionHasACode) {
  ::SetLastError(ERROR_SHARING_VIOLATION);
  EXPECT_EQ(testing_support::code_of([] { return details::check_file(INVALID_HANDLE_VALUE); }),
            static_cast<HRESULT>(0x80070020));
  EXPECT_EQ(caught(hresult_error(E_FAIL)), E_FAIL);
  EXPECT_EQ(caught(std::bad_alloc()), E_OUTOFMEMORY);
  EXPECT_EQ(caught(1), E_UNEXPECTED);
}

std::vector<int> closed;

struct test_traits {
  using pointer = int;
  static pointer invalid() noexcept { return -1; }
  static void close(pointer value) { closed.push_back(value); }
};

TEST(UniqueResource, EveryValueIsClosedExactlyOnce) {
  using resource = Tamrin::unique_resource<test_traits>;
  {
    resource a(1);
    resource b(2);
    b = std::move(a);
    EXPECT_EQ(closed, std::vector{2});
    resource c(std::move(b));
    c.reset(3);
    resource& alias = c;
    c = std::move(alias);
    c.reset(c.get());
    EXPECT_EQ(resource(4).release(), 4);
  }
  EXPECT_EQ(closed, (std::vector{2, 1, 3}));
}

}  // namespace
}  // namespace ostra
