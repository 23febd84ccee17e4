// A COM port used directly, as a program on the machine itself does.
#pragma once

#include "bench/blocking_client.h"
#include "platform/unique_resource.h"

namespace bench {

// Throws hresult_error.
class LocalPort {
 public:
  explicit LocalPort(std::uint32_t number);

  // Writes so many bytes and waits until as many have come back.
  void Echo(std::size_t size);

  // The arguments of the control that makes a read wait until all that it asks for is there.
  [[nodiscard]] static Bytes WaitForAllOfARead();

 private:
  Tamrin::unique_file port_;
  Tamrin::unique_handle read_done_;
  Tamrin::unique_handle write_done_;
};

}  // namespace bench
