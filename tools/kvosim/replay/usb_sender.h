// Sends one recorded USB event to the program that listens, and reads its answer.
#pragma once

#include "common/event_loop.h"
#include "kvosim/replay/contents.h"
#include "kvosim/replay/speed.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace kvosim {

/// The first line of a program's answer to an event without its line end. Nothing if no complete line came.
std::optional<std::string> answerOf(const Exchange &event);

class UsbSender {
public:
    struct Result {
        bool isSent = false;                  ///< a program listened and has taken all bytes
        std::optional<std::string> answer{};  ///< as answerOf()
    };
    /// Called once, as the last step; may destroy the sender.
    using Done = std::function<void(Result result)>;

    /// Begins at once. Gives up as the service did when the event was recorded, or after 10 s. @p loop must outlive this object.
    UsbSender(tools::EventLoop &loop, const std::filesystem::path &socket, Exchange event, Speed speed, Done done);
    UsbSender(const UsbSender &) = delete;
    UsbSender &operator=(const UsbSender &) = delete;
    ~UsbSender();

private:
    void connect();
    void sendPieces();
    void receive();
    void finish();
    void after(Microseconds time, void (UsbSender::*step)());

    tools::EventLoop &loop_;
    std::filesystem::path socket_;
    Exchange event_;
    Speed speed_;
    Done done_;
    tools::Descriptor connection_;
    std::size_t nextPiece_ = 0;
    std::size_t attempts_ = 0;
    bool isSent_ = false;
    std::string received_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace kvosim
