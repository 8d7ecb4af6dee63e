// A private /tmp for a test, which no other process can see.
#pragma once

#include <string>

namespace kvosim_test {

/// Moves this process into a mount namespace with an empty /tmp. The folder @p kept stays visible if it is below /tmp. Returns
/// the reason for a failure, or an empty string on success.
std::string enterPrivateTmp(const std::string &kept);

}  // namespace kvosim_test
