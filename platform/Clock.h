// The machine's clock.
#pragma once

namespace nvadmin {

// Seconds since midnight by the local clock, with their fraction.
float SecondsSinceMidnight();

}  // namespace nvadmin
