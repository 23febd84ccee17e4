#include "rpc/pipe_state.h"

// After win32.h.
#include <winternl.h>

namespace tether {
namespace {

constexpr ULONG kClosing = 4;  // FILE_PIPE_CLOSING_STATE, which only driver headers define

}  // namespace

bool pipe_peer_has_gone(HANDLE pipe) noexcept {
  IO_STATUS_BLOCK status = {};
  FILE_PIPE_LOCAL_INFORMATION state = {};
  const NTSTATUS result =
      ::NtQueryInformationFile(pipe, &status, &state, sizeof state, FilePipeLocalInformation);
  return result >= 0 && state.NamedPipeState == kClosing;
}

}  // namespace tether
