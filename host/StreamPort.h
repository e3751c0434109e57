// A port on plain streams: lines from a pipe or file, or typed where there is no screen to edit them on.
#pragma once

#include <string>

#include "host/ScreenPort.h"

namespace nvadmin::host {

inline constexpr int kNoInput = -1;

class StreamPort final : public ScreenPort {
 public:
  // File descriptors, lent. With kNoInput the input is over from the start.
  StreamPort(int input, int output)
      : ScreenPort(output, /*hasCursor=*/false, /*inputEchoes=*/false), input_(input) {}

 protected:
  // LF or CR LF ends a line; what stands behind the last one is a line too, unless it is empty.
  engine::InputResult WaitForLine(std::string& utf8, Asked asked) override;

 private:
  bool ReadMore();

  int input_;
  std::string read_;      // bytes read
  std::size_t next_ = 0;  // where the next line begins in them
};

}  // namespace nvadmin::host
