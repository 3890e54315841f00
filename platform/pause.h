#pragma once

namespace pelmar {

// Puts the calling thread to sleep for `seconds`. Zero, less than zero and not-a-number do not
// pause; infinity never returns.
void pauseFor(double seconds);

}  // namespace pelmar
