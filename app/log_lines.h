// The log lines about the server's start and stop, in a console and as a service.
#pragma once

namespace tarnwheel {

inline constexpr wchar_t kLogInitialized[] = L"Logging system is initialized";
inline constexpr wchar_t kServerStarted[] =
    L"Server has been started successfully and is waiting for connections";
inline constexpr wchar_t kServerStopping[] = L"Stop event received, stopping server...";
inline constexpr wchar_t kServerStopped[] = L"Server has been stopped";

}  // namespace tarnwheel
