#pragma once

namespace bench {

// The name of the bare server's pipe.
inline constexpr wchar_t kBarePipe[] = L"tarnwheel_bench_bare";

}  // namespace bench
