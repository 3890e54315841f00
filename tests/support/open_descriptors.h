#pragma once

namespace pelmar::test {

// How many descriptors this process holds open.
int openDescriptors();

}  // namespace pelmar::test
