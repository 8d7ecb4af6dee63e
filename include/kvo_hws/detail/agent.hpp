/** @file
 *  Internal: the state of kvo::Agent. Include agent.hpp instead.
 */
#ifndef KVO_HWS_DETAIL_AGENT_HPP
#define KVO_HWS_DETAIL_AGENT_HPP

#include <kvo_hws/detail/handling.hpp>

/** @cond internal */
namespace kvo::detail {

/* Shared by the object and the agent's thread. */
class AgentState : public Receiver {
public:
    virtual std::int32_t receive_command(std::string_view command) = 0;

    Registry *registry = nullptr;      /* of the shared object that started the agent */
    EmbCmdCallback callback = nullptr; /* of the same */
    void *instance = nullptr;
};

/* Hidden: each shared object has its own, which fits its callback. Never destroyed: the agent may outlive it. */
__attribute__((visibility("hidden"))) inline Registry &agent_registry()
{
    static Registry &registry = *new Registry;
    return registry;
}

__attribute__((visibility("hidden"))) inline int agent_callback(void * /*instance*/, const char *command)
{
    const std::shared_ptr<Receiver> current = agent_registry().current();
    return current != nullptr ? static_cast<AgentState &>(*current).receive_command(command) : handler_failed;
}

/* ---- The parameters ---- */

[[nodiscard]] inline bool is_one_line(std::string_view text) noexcept
{
    return text.find_first_of(std::string_view("\0\r\n", 3)) == std::string_view::npos;
}

inline Error agent_error(std::int32_t code, Errc meaning, const char *reason) noexcept
{
    return {"KVO_HWS_startupEmbHwsClient", code, meaning, reason};
}

inline Result<void> check_agent_text(std::string_view text)
{
    constexpr std::size_t longest = 127;
    if (text.size() > longest) {
        return agent_error(KVO_HWS_FAILED, Errc::invalid_text, "focus_name and screen_on_focus have at most 127 bytes");
    }
    if (!is_one_line(text)) {
        return agent_error(KVO_HWS_FAILED, Errc::invalid_text,
                           "focus_name and screen_on_focus must not contain a NUL, a line feed or a carriage return");
    }
    return {};
}

inline Result<void> check_agent_numbers(const AgentOptions &options)
{
    constexpr std::uint32_t highest = 0x7FFFFFFF; /* the remote side reads signed numbers */
    const struct {
        std::uint32_t value, lowest, highest;
        const char *reason;
    } numbers[] = {
        {options.session, 0, 9, "session must be 0 to 9"},
        {options.kvo_index, 0, 255, "kvo_index must be 0 to 255"},
        {options.channel_on_focus, 1, 8, "channel_on_focus must be 1 to 8"},
        {options.suspend_lock, 0, highest, "suspend_lock must be 0 to 2147483647"},
        {options.suspend_prio, 0, highest, "suspend_prio must be 0 to 2147483647"},
        {options.startup_active, 0, 2, "startup_active must be 0 to 2"},
        {options.startup_prio, 0, highest, "startup_prio must be 0 to 2147483647"},
    };
    for (const auto &number : numbers) {
        if (number.value < number.lowest || number.value > number.highest) {
            return agent_error(KVO_HWS_FAILED, Errc::out_of_range, number.reason);
        }
    }
    return {};
}

/* Returns the first error. */
inline Result<void> check_agent_options(const AgentOptions &options)
{
    if ((options.focus.number() == 0) == options.focus_name.empty()) {
        return agent_error(KVO_HWS_MISSING_PARAMETER, Errc::missing_parameter,
                           "the station in focus is given by focus or by focus_name: set one of them");
    }
    if (options.remote.number() == 0) {
        return agent_error(KVO_HWS_MISSING_PARAMETER, Errc::invalid_address,
                           "remote must not be 0.0.0.0: set the address of a remote service");
    }
    if (Result<void> checked = check_agent_text(options.focus_name); !checked) {
        return checked;
    }
    if (Result<void> checked = check_agent_text(options.screen_on_focus); !checked) {
        return checked;
    }
    return check_agent_numbers(options);
}

inline void add_agent_number(std::string &lines, const char *key, std::uint32_t value)
{
    lines += key;
    lines += std::to_string(value);
    lines += '\n';
}

inline void add_agent_text(std::string &lines, const char *key, const std::string &value)
{
    lines += key;
    lines += value;
    lines += '\n';
}

inline std::string agent_parameters(const AgentOptions &options)
{
    std::string lines;
    if (options.focus.number() != 0) {
        add_agent_text(lines, "focusKvoIp=", options.focus.to_string());
    } else {
        add_agent_text(lines, "focusKvoName=", options.focus_name);
    }
    add_agent_text(lines, "remoteKvoHwsIp=", options.remote.to_string());
    add_agent_number(lines, "remoteSession=", options.session);
    add_agent_number(lines, "mcpFlag=", options.mcp_flag ? 1 : 0);
    add_agent_number(lines, "kvoIndex=", options.kvo_index);
    add_agent_number(lines, "channelOnFocus=", options.channel_on_focus);
    add_agent_text(lines, "screenOnFocus=", options.screen_on_focus);
    add_agent_number(lines, "suspendLock=", options.suspend_lock);
    add_agent_number(lines, "suspendPrio=", options.suspend_prio);
    add_agent_number(lines, "startupActive=", options.startup_active);
    add_agent_number(lines, "startupPrio=", options.startup_prio);
    return lines;
}

/* ---- Starting, sending and closing ---- */

/* True if the library has an agent, from this interface or from a call of the C function. */
[[nodiscard]] inline bool agent_is_in_use() noexcept
{
    return __atomic_load_n(&gEmbKvoInst->running, __ATOMIC_SEQ_CST) != 0 ||
           __atomic_load_n(&gCmdCallback, __ATOMIC_SEQ_CST) != nullptr;
}

/* Starts the library's agent. Called with the claim of this shared object. */
inline int start_library_agent(const AgentOptions &options, const std::string &parameters, AgentState &state)
{
    if (agent_is_in_use()) {
        return KVO_HWS_ALREADY_RUNNING; /* its thread may read gFocusName */
    }
    if (options.focus.number() == 0) {
        /* The library finds a station by its name only in this variable, which has 260 bytes. */
        gFocusName[options.focus_name.copy(gFocusName, sizeof gFocusName - 1)] = '\0';
    }
    const int result = KVO_HWS_startupEmbHwsClient(parameters.c_str(), &state.instance, state.callback);
    if (result == KVO_HWS_FAILED) {
        KVO_HWS_cleanupEmbHwsClient(gEmbKvoInst); /* without a thread; otherwise no other agent can start */
    }
    return result;
}

inline Result<void> start_agent(const AgentOptions &options, const std::shared_ptr<AgentState> &state)
{
    const Error running = agent_error(KVO_HWS_ALREADY_RUNNING, Errc::already_running,
                                      "the process has an agent already, and can have only one: close the other one first");
    if (Result<void> checked = check_agent_options(options); !checked) {
        return checked;
    }
    const std::string parameters = agent_parameters(options); /* before the claim: it may throw */
    Registry &registry = agent_registry();
    state->registry = &registry;
    state->callback = agent_callback;
    if (!registry.claim(state)) {
        return running;
    }
    const int result = start_library_agent(options, parameters, *state);
    if (result == KVO_HWS_OK) {
        return {};
    }
    state->close();
    registry.release(state);
    return result == KVO_HWS_ALREADY_RUNNING ? running : Error("KVO_HWS_startupEmbHwsClient", result);
}

/* False after a call of the C function has ended the agent: then another one may run, which belongs to that caller. */
[[nodiscard]] inline bool is_current_agent(const AgentState &state) noexcept
{
    return __atomic_load_n(&gCmdCallback, __ATOMIC_SEQ_CST) == state.callback;
}

inline Result<void> send_agent_event(const AgentState *state, std::string_view text)
{
    constexpr const char *function = "KVO_HWS_sendEmbHwsEvent";
    if (state == nullptr) {
        return Error(function, KVO_HWS_INVALID_INSTANCE, Errc::not_running, "the agent was closed or moved from: start one");
    }
    if (!is_one_line(text)) {
        return Error(function, KVO_HWS_FAILED, Errc::invalid_text,
                     "an event is one line: it must not contain a NUL, a line feed or a carriage return");
    }
    const int result = KVO_HWS_sendEmbHwsEvent(state->instance, std::string(text).c_str());
    return result == KVO_HWS_OK ? Result<void>() : Error(function, result);
}

/* After a clean-up that had to leave the agent to the handler: the handler has returned, so the agent ends now. */
inline bool await_agent_end() noexcept
{
    const NoCancellation whole_wait;
    constexpr time_t longest = 5;
    const time_t deadline = seconds_now() + longest;
    while (__atomic_load_n(&gEmbKvoInst->running, __ATOMIC_SEQ_CST) != 0 && seconds_now() < deadline) {
        pause_a_millisecond();
    }
    return __atomic_load_n(&gEmbKvoInst->running, __ATOMIC_SEQ_CST) == 0;
}

inline Result<void> close_agent(const std::shared_ptr<AgentState> &state)
{
    const bool in_handler = state->is_called_here();
    /* Only once: after a close in the handler, the next agent of this shared object may run. */
    const bool is_ours = state->close() && is_current_agent(*state);
    const int result = is_ours ? KVO_HWS_cleanupEmbHwsClient(state->instance) : KVO_HWS_OK;
    state->registry->release(state);
    state->await_calls();
    /* In the handler the agent ends after the call. */
    if (result == KVO_HWS_OK || in_handler || (result == KVO_HWS_FAILED && await_agent_end())) {
        return {};
    }
    return Error("KVO_HWS_cleanupEmbHwsClient", result);
}

/* ---- The commands, and the handler: only where a program starts an agent ---- */

/* Returns false for a command that this header does not know. */
template <class Command>
bool read_agent_command(std::string_view text, Command &command)
{
    const std::size_t equals = text.find('=');
    const std::string_view name = text.substr(0, equals);
    if (equals != std::string_view::npos) {
        std::string argument(text.substr(equals + 1));
        if (name == "set-darken") {
            command = SetDarken{std::move(argument)};
        } else if (name == "set-statusline") {
            command = SetStatusline{std::move(argument)};
        } else {
            return false;
        }
    } else if (name == "stop-viewer") {
        command = StopViewer{};
    } else if (name == "stop-viewer-preempt") {
        command = StopViewerPreempt{};
    } else if (name == "stop-viewer-noclean") {
        command = StopViewerNoClean{};
    } else if (name == "activate-me") {
        command = ActivateMe{};
    } else if (name == "show-viewer-active") {
        command = ShowViewerActive{};
    } else {
        return false;
    }
    return true;
}

template <class Command, bool kExceptions>
class AgentStateOf final : public AgentState {
public:
    using Handler = std::function<AgentAnswer(const Command &)>;

    explicit AgentStateOf(Handler handler) : handler_(std::move(handler)) {}

    std::int32_t receive_command(std::string_view text) override
    {
#if KVO_HWS_EXCEPTIONS
        try {
#endif
            Command command;
            if (!read_agent_command(text, command)) {
                return handler_failed;
            }
            const Receiver::Call call(*this);
            return call ? static_cast<std::int32_t>(handler_(command)) : handler_failed;
#if KVO_HWS_EXCEPTIONS
        } catch (...) {
            return handler_failed;
        }
#endif
    }

private:
    void destroy_handler() override { Handler().swap(handler_); }

    Handler handler_;
};

}  // namespace kvo::detail
/** @endcond */

#endif
