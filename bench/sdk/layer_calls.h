#pragma once

namespace zobench {

// Calls through the C++ layer, each beside the same C call.
void CompareLayer();

}  // namespace zobench
