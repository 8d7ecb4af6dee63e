/** @file
 *  The remote agent: lets the hardware service of another station query and control the station in focus.
 *
 *      kvo::AgentOptions options;
 *      options.focus = kvo::Address("10.0.0.5");
 *      options.remote = kvo::Address("10.0.0.9");
 *      auto agent = kvo::Agent::start(options, [](const kvo::AgentCommand &command) {
 *          return std::holds_alternative<kvo::ShowViewerActive>(command) ? kvo::AgentAnswer::no : kvo::AgentAnswer::failed;
 *      });
 */
#ifndef KVO_HWS_AGENT_HPP
#define KVO_HWS_AGENT_HPP

#include <kvo_hws/address.hpp>
#include <kvo_hws/agent.h>
#include <kvo_hws/detail/late.hpp>
#include <kvo_hws/result.hpp>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

namespace kvo {

/** @defgroup kvo_cpp_agent The agent in C++
 *  @{
 */

/** Which station the agent serves, where it connects to, and the values that it reports. A text must not contain a NUL, a line
 *  feed or a carriage return, and has at most 127 bytes.
 */
struct AgentOptions {
    Address focus;                      /**< the station in focus; 0.0.0.0: the station is given by focus_name */
    std::string focus_name;             /**< name of the station in focus, if focus is 0.0.0.0 */
    Address remote{0x7F000001};         /**< the remote hardware service */
    std::uint32_t session = 0;          /**< session number, 0 to 9; the TCP port is 5850 plus this number */
    bool mcp_flag = false;              /**< true if the station in focus has a machine control panel */
    std::uint32_t kvo_index = 1;        /**< 0 to 255 */
    std::uint32_t channel_on_focus = 1; /**< 1 to 8 */
    std::string screen_on_focus;        /**< the screen on focus */
    std::uint32_t suspend_lock = 0;     /**< 0 to 2147483647 */
    std::uint32_t suspend_prio = 1;     /**< 0 to 2147483647 */
    std::uint32_t startup_active = 1;   /**< 0 to 2 */
    std::uint32_t startup_prio = 2;     /**< 0 to 2147483647 */
};

/** "stop-viewer": stop the viewer. */
struct StopViewer {};
/** "stop-viewer-preempt": stop the viewer ahead of other waiting requests. */
struct StopViewerPreempt {};
/** "stop-viewer-noclean": stop the viewer without cleaning up after it. */
struct StopViewerNoClean {};
/** "activate-me": the station requests the focus. AgentAnswer::no: busy. */
struct ActivateMe {};
/** "show-viewer-active": whether a viewer is active. Also sent when the remote side asks for the current server. */
struct ShowViewerActive {};
/** "set-darken=<argument>". */
struct SetDarken {
    std::string argument; /**< as the remote side sent it */
};
/** "set-statusline=<argument>". */
struct SetStatusline {
    std::string argument; /**< two integers and a text, with a comma after each integer */
};

/** A command that only the program can execute. */
using AgentCommand =
    std::variant<StopViewer, StopViewerPreempt, StopViewerNoClean, ActivateMe, ShowViewerActive, SetDarken, SetStatusline>;

/** The answer to a command. */
enum class AgentAnswer : std::int32_t {
    yes = 1,    /**< done, or yes */
    no = 0,     /**< nothing to do, or no */
    failed = -1 /**< the command failed */
};

/** @} */

}  // namespace kvo

#include <kvo_hws/detail/agent.hpp>

namespace kvo {

/** @addtogroup kvo_cpp_agent
 *  @{
 */

/** The agent of this process, from its start until the destruction. Can be moved.
 *
 *  It connects again one second after a failed connect, and five seconds after a lost connection. If the local service does not
 *  know the station in focus, the agent ends, and running() becomes false.
 *
 *  An object may be used in one thread at a time, except that any thread may call send_event(), running() and negotiated()
 *  while none closes, moves or destroys it. The handler's calls end as follows:
 *  - Destruction and close() wait for the call that runs. In the handler itself, on the same thread, they do not.
 *  - A call that begins after that finds the object closed: the handler is not called, and the command fails.
 *  - The handler lives until its last call has returned.
 */
template <class Use>
class BasicAgent {
    template <class T>
    using Result = detail::Late<Use, kvo::Result<T>>;

public:
    /** The handler. The agent calls it on its own thread, for one command at a time, while the remote side waits. An exception
     *  counts as AgentAnswer::failed. It may send requests to the service, push events and destroy the object; it must not end
     *  its thread, and must not wait for the remote side.
     */
    using Handler = std::function<AgentAnswer(const AgentCommand &)>;

    /** Starts the agent, and does not wait for a connection.
     *  @param options  checked before anything is done
     *  @param handler  answers the commands
     *  @return the agent; Errc::already_running an agent is running in this process, or has ended but was not cleaned up,
     *  Errc::null_pointer the handler is empty, Errc::missing_parameter no station in focus, or two,
     *  Errc::invalid_address the remote service is 0.0.0.0, Errc::invalid_text, Errc::out_of_range, Errc::no_thread
     *
     *  Sets gFocusName if the station is given by its name. Calls KVO_HWS_startupEmbHwsClient. Safe from any thread.
     */
    template <class Command = AgentCommand>
    [[nodiscard]] static Result<BasicAgent> start(const AgentOptions &options, Handler handler)
    {
        // A look-up of "!" for the handler would compile the variant in every unit that includes this header.
        if (!static_cast<bool>(handler)) {
            return Error("KVO_HWS_startupEmbHwsClient", KVO_HWS_NULL_POINTER, Errc::null_pointer,
                         "the handler is empty: pass a function");
        }
        std::shared_ptr<detail::AgentState> state =
            std::make_shared<detail::AgentStateOf<Command, KVO_HWS_EXCEPTIONS != 0>>(std::move(handler));
        const Result<void> started = detail::start_agent(options, state);
        if (!started) {
            return started.error();
        }
        return BasicAgent(std::move(state));
    }

    /** Takes the agent over from @p other, which is closed then. */
    BasicAgent(BasicAgent &&other) noexcept = default;
    /** Closes the object, then takes the agent over from @p other. */
    BasicAgent &operator=(BasicAgent &&other) noexcept
    {
        if (this != &other) {
            static_cast<void>(close());
            state_ = std::move(other.state_);
        }
        return *this;
    }
    /** An object cannot be copied. */
    BasicAgent(const BasicAgent &) = delete;
    /** An object cannot be copied. */
    BasicAgent &operator=(const BasicAgent &) = delete;
    /** Closes the object. */
    ~BasicAgent() { static_cast<void>(close()); }

    /** Sends an event to the remote service as an indication, which is one line.
     *  @param text  the event, without a NUL, a line feed or a carriage return
     *  @return done, also if the event was lost because the connection is closed; Errc::invalid_text nothing was sent,
     *  Errc::not_negotiated the remote side has not sent a valid request since the start, Errc::not_running the object was
     *  closed or moved from, or a call of KVO_HWS_cleanupEmbHwsClient has ended the agent
     *
     *  Blocks while the remote side does not read, at most 4 s without progress. Calls KVO_HWS_sendEmbHwsEvent.
     */
    Result<void> send_event(std::string_view text) const
    {
        return detail::send_agent_event(is_current() ? state_.get() : nullptr, text);
    }

    /** True while the agent's thread runs. */
    [[nodiscard]] bool running() const { return is_current() && __atomic_load_n(&gEmbKvoInst->running, __ATOMIC_SEQ_CST) == 1; }
    /** True if the remote side has sent a valid request since the start: then events can be sent. */
    [[nodiscard]] bool negotiated() const
    {
        return is_current() && __atomic_load_n(&protocolNegotiated, __ATOMIC_SEQ_CST) == 1;
    }

    /** Stops the agent, and waits until it has ended. Does nothing if the object was closed or moved from.
     *  @return Errc::timeout some call of the library still blocks the agent after 6 s, which ends when that call returns: the
     *  object is closed anyway, but the next start fails until then
     *
     *  Takes a second or two; waits for the handler without a limit. Calls KVO_HWS_cleanupEmbHwsClient.
     */
    Result<void> close()
    {
        // A handler that is destroyed may own this object: nothing of it is used after this.
        const std::shared_ptr<detail::AgentState> state = state_;
        if (state == nullptr) {
            return {};
        }
        if (!state->is_called_here()) {
            state_.reset();  // otherwise the destruction waits for the handler
        }
        return detail::close_agent(state);
    }

private:
    explicit BasicAgent(std::shared_ptr<detail::AgentState> state) noexcept : state_(std::move(state)) {}

    [[nodiscard]] bool is_current() const
    {
        return state_ != nullptr && !state_->is_closed() && detail::is_current_agent(*state_);
    }

    std::shared_ptr<detail::AgentState> state_;
};

/** The class to use, as `kvo::Station`. */
using Agent = BasicAgent<void>;

/** @} */

}  // namespace kvo

#endif
