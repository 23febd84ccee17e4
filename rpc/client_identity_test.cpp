#include "rpc/client_identity.h"

#include <gtest/gtest.h>

namespace tether {
namespace {

TEST(Sid, LongDisplayNameIsNotTruncated) {
  BYTE known[SECURITY_MAX_SID_SIZE];
  DWORD size = sizeof(known);
  ::CreateWellKnownSid(WinBuiltinPreWindows2000CompatibleAccessSid, nullptr, known, &size);
  CSid sid(known);
  sid.look_up();
  EXPECT_EQ(sid.display_name(), L"BUILTIN\\Pre-Windows 2000 Compatible Access");
}

}  // namespace
}  // namespace tether
