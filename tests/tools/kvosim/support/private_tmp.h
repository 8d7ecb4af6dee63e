// A /tmp of the test's own, in which no other process meets it.
#pragma once

#include <string>

namespace kvosim_test {

/// Moves this process into a mount namespace with an empty /tmp, in which only the folder @p kept, where it lies in /tmp, is
/// still to be seen. Returns why that cannot be done; empty when it is done.
std::string enterPrivateTmp(const std::string &kept);

}  // namespace kvosim_test
