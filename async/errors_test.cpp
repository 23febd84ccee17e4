#include "async/errors.h"

#include <gtest/gtest.h>

#include "async/test_support.h"

namespace ostra {
namespace {

TEST(Errors, Win32CodesBecomeHresults) {
  const struct {
    DWORD error;
    HRESULT expected;
  } rows[] = {{0, 0},
              {5, static_cast<HRESULT>(0x80070005)},
              {0x12345, static_cast<HRESULT>(0x80072345)},
              {0x80004005, static_cast<HRESULT>(0x80004005)}};
  for (const auto& row : rows)
    EXPECT_EQ(details::to_hresult(row.error), row.expected);
}

TEST(Errors, OnlyTheCancelledCodeThrowsOperationCancelled) {
  EXPECT_THROW(details::throw_win32(ERROR_CANCELLED), operation_cancelled);
  EXPECT_THROW(details::throw_hresult(static_cast<HRESULT>(0x800704C7)), operation_cancelled);
  EXPECT_EQ(operation_cancelled().code(), static_cast<HRESULT>(0x800704C7));
  bool plain = false;
  try {
    details::throw_win32(ERROR_OPERATION_ABORTED);
  } catch (const operation_cancelled&) {
  } catch (const hresult_error& error) {
    plain = error.code() == static_cast<HRESULT>(0x800703E3);
  }
  EXPECT_TRUE(plain);
}

TEST(Errors, ChecksPassGoodHandlesAndThrowTheLastErrorForBadOnes) {
  int object = 0;
  EXPECT_EQ(details::check_pointer(&object), &object);
  EXPECT_EQ(test::code_of([] {
              ::SetLastError(ERROR_SHARING_VIOLATION);
              details::check_file(INVALID_HANDLE_VALUE);
            }),
            static_cast<HRESULT>(0x80070020));
  EXPECT_EQ(test::code_of([] { details::check_hresult(E_INVALIDARG); }), E_INVALIDARG);
  EXPECT_EQ(test::code_of([] { details::check_hresult(S_FALSE); }), S_OK);
}

}  // namespace
}  // namespace ostra
