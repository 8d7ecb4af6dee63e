#include "kvosim/net/received_request.h"

namespace kvosim {

ReceivedRequest receive(const tools::recording::Exchange &exchange, std::size_t longest)
{
    ReceivedRequest received{.completed = exchange.at};
    std::string bytes;
    for (const tools::recording::Piece &piece : exchange.request) {
        received.completed += piece.pause;
        bytes += piece.bytes;
        const RequestLine line = firstLine(bytes, longest);
        if (line.state != RequestLine::State::incomplete) {
            received.state = line.state;
            received.text = line.state == RequestLine::State::complete ? line.text : bytes;
            break;
        }
    }
    return received;
}

}  // namespace kvosim
