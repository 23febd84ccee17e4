// The default access to a server.
#pragma once

namespace Tamrin::setman {

// In SDDL: services may create instances of the pipe; everyone may connect, read and write.
inline constexpr wchar_t kDefaultSecurityDescriptor[] =
    L"D:(A;;0xc0100004;;;SU)(A;;0xc0100000;;;WD)";

}  // namespace Tamrin::setman
