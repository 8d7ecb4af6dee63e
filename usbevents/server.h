// Starting the USB event server.
#pragma once

namespace kvo_hws {

/// Starts the server's thread and waits until it listens or has failed. Returns true if it listens.
bool startUsbServer() noexcept;

}  // namespace kvo_hws
