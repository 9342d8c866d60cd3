// The codec's allocations in a test program: counted, and refused on demand.
#pragma once

namespace vlm::vpca::memory_probe {

// Allocations and reallocations since Reset().
int Allocations();
// Blocks that are not freed yet.
int Live();
// Lets `allowed` more allocations succeed and refuses the ones behind them.
void RefuseAfter(int allowed);
void Reset();

}  // namespace vlm::vpca::memory_probe
