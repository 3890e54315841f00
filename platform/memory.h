#pragma once

namespace pelmar {

// From now on a large piece of memory goes back to the system as soon as it is freed, as it does
// by itself with most allocators. Called once, before anything large is allocated.
void returnLargeMemory();

}  // namespace pelmar
