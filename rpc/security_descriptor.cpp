#include "rpc/security_descriptor.h"

#include <utility>

#include "async/errors.h"
#include "platform/unique_resource.h"

// After win32.h.
#include <sddl.h>

namespace tether {
namespace {

using ostra::details::check_bool;

// The DACL built by everyone(): a single ACE, whose SID begins in its last member.
struct one_ace_dacl {
  ACL header;
  ACCESS_ALLOWED_ACE ace;
  DWORD rest_of_sid[(sizeof(SID) - sizeof(DWORD)) / sizeof(DWORD)];
};

}  // namespace

security_descriptor security_descriptor::from_sddl(const std::wstring& sddl) {
  PSECURITY_DESCRIPTOR converted = nullptr;
  check_bool(::ConvertStringSecurityDescriptorToSecurityDescriptorW(sddl.c_str(), SDDL_REVISION_1,
                                                                    &converted, nullptr));
  const Tamrin::unique_local_memory owner(converted);
  const auto* begin = static_cast<const std::byte*>(converted);
  return security_descriptor({begin, begin + ::GetSecurityDescriptorLength(converted)});
}

security_descriptor security_descriptor::everyone(DWORD access) {
  SID world = {SID_REVISION, 1, {SECURITY_WORLD_SID_AUTHORITY}, {SECURITY_WORLD_RID}};
  one_ace_dacl dacl = {};
  check_bool(::InitializeAcl(&dacl.header, sizeof(dacl), ACL_REVISION));
  check_bool(::AddAccessAllowedAce(&dacl.header, ACL_REVISION, access, &world));
  SECURITY_DESCRIPTOR absolute = {};
  check_bool(::InitializeSecurityDescriptor(&absolute, SECURITY_DESCRIPTOR_REVISION));
  check_bool(::SetSecurityDescriptorDacl(&absolute, TRUE, &dacl.header, FALSE));

  DWORD size = 0;
  ::MakeSelfRelativeSD(&absolute, nullptr, &size);
  std::vector<std::byte> self_relative(size);
  check_bool(::MakeSelfRelativeSD(&absolute, self_relative.data(), &size));
  return security_descriptor(std::move(self_relative));
}

SECURITY_ATTRIBUTES security_descriptor::attributes() const noexcept {
  // The system only reads it.
  return {sizeof(SECURITY_ATTRIBUTES), const_cast<std::byte*>(self_relative_.data()), FALSE};
}

security_descriptor::security_descriptor(std::vector<std::byte> self_relative) noexcept
    : self_relative_(std::move(self_relative)) {}

}  // namespace tether
