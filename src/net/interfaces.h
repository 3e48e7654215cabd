// The interface enumerator's part of the library teardown.
#pragma once

namespace tov {

// Unloads the IP helper library if an IPv6 list loaded it and forgets its
// entry point, so that the next IPv6 list loads it again. Run by the last
// TOV_Cleanup, which no other call overlaps.
void interfacesRelease() noexcept;

} // namespace tov
