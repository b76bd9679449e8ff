#pragma once
// The framework's own release markers.

namespace Zet {

struct Version {
  // True (1) for a framework that answers to release 2.1.0.
  static int v_2_1_0() { return 1; }
};

}  // namespace Zet
