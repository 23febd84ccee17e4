#include "client/streams/pipe_listener.h"

#include <gtest/gtest.h>

#include "rpc/client_identity.h"
#include "tests/support/unit/named_objects.h"

namespace tarnwheel::client {
namespace {

TEST(PipeListener, EveryInstanceIsForThisAccountAndTheSystemAlone) {
  HANDLE token = nullptr;
  ASSERT_TRUE(::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, &token));
  const Tamrin::unique_handle token_owner(token);
  wchar_t* account = nullptr;
  ASSERT_TRUE(::ConvertSidToStringSidW(tether::CSid::user_of(token).get(), &account));
  const Tamrin::unique_local_memory account_owner(account);
  const auto listener = listen_pipe(testing_support::unique_name());
  for (int instance = 0; instance < 2; ++instance) {
    const auto accepted = listener->accept();
    const Tamrin::unique_file pipe(::CreateFileW(listener->address().c_str(), GENERIC_READ, 0,
                                                 nullptr, OPEN_EXISTING, 0, nullptr));
    const auto stream = accepted.get();
    EXPECT_EQ(testing_support::access_to(pipe.get()),
              L"D:P(A;;GA;;;SY)(A;;GA;;;" + std::wstring(account) + L")");  // FA on Windows
  }
}

}  // namespace
}  // namespace tarnwheel::client
