// Starting the USB event server.
#pragma once

namespace kvo_hws {

/// Starts the server's thread and waits until it listens, or has found that it cannot. False where it does not listen.
bool startUsbServer() noexcept;

}  // namespace kvo_hws
