/** @file
 *  Internal: the state of kvo::Agent. Include agent.hpp instead.
 */
#ifndef KVO_HWS_DETAIL_AGENT_HPP
#define KVO_HWS_DETAIL_AGENT_HPP

#include <kvo_hws/detail/handling.hpp>

#include <ctime>

/** @cond internal */
namespace kvo::detail {

struct AgentKind {
    using Event = AgentCommand;
    using Handler = std::function<AgentAnswer(const AgentCommand &)>;

    static std::int32_t call(const Handler &handler, const Event &command)
    {
        return static_cast<std::int32_t>(handler(command));
    }
};

/* No value for a command that this header does not know. */
inline std::optional<AgentCommand> agent_command(std::string_view text)
{
    const std::size_t equals = text.find('=');
    const std::string_view name = text.substr(0, equals);
    if (equals != std::string_view::npos) {
        std::string argument(text.substr(equals + 1));
        if (name == "set-darken") {
            return SetDarken{std::move(argument)};
        }
        if (name == "set-statusline") {
            return SetStatusline{std::move(argument)};
        }
        return std::nullopt;
    }
    if (name == "stop-viewer") {
        return StopViewer{};
    }
    if (name == "stop-viewer-preempt") {
        return StopViewerPreempt{};
    }
    if (name == "stop-viewer-noclean") {
        return StopViewerNoClean{};
    }
    if (name == "activate-me") {
        return ActivateMe{};
    }
    if (name == "show-viewer-active") {
        return ShowViewerActive{};
    }
    return std::nullopt;
}

struct AgentState;

/* Compiled where the agent is started, because it differs between units with exceptions and units without. */
using ReceiveAgentCommand = std::int32_t (*)(const std::shared_ptr<AgentState> &state, const char *command);

/* Shared by the object and the agent's thread. */
struct AgentState {
    AgentState(AgentKind::Handler handler, ReceiveAgentCommand receiver)
        : empty(!handler), handling(std::move(handler)), receive(receiver)
    {
    }

    [[nodiscard]] bool is_live() { return !handling.is_closed(); }

    const bool empty;
    Handling<AgentKind> handling;
    const ReceiveAgentCommand receive;
    Registry<AgentState> *registry = nullptr; /* of the shared object that started the agent */
    EmbCmdCallback callback = nullptr;        /* of the same */
    void *instance = nullptr;
};

/* Hidden: each shared object has its own, which fits its callback. Never destroyed: the agent may outlive it. */
__attribute__((visibility("hidden"))) inline Registry<AgentState> &agent_registry()
{
    static Registry<AgentState> &registry = *new Registry<AgentState>;
    return registry;
}

__attribute__((visibility("hidden"))) inline int agent_callback(void * /*instance*/, const char *command)
{
    const std::shared_ptr<AgentState> state = agent_registry().current();
    return state != nullptr ? state->receive(state, command) : handler_failed;
}

KVO_HWS_EXCEPTIONS_TAG inline std::int32_t receive_agent_command(const std::shared_ptr<AgentState> &state, const char *command)
{
    return without_exceptions([&] {
        const std::optional<AgentCommand> kind = agent_command(command);
        return kind ? call_now(state->handling, *kind) : handler_failed;
    });
}

/* ---- The parameters ---- */

[[nodiscard]] inline bool is_one_line(std::string_view text) noexcept
{
    return text.find_first_of(std::string_view("\0\r\n", 3)) == std::string_view::npos;
}

/* Returns the first error. */
inline std::optional<Error> error_in(const AgentOptions &options)
{
    constexpr const char *function = "KVO_HWS_startupEmbHwsClient";
    constexpr std::size_t longest_text = 127;
    constexpr std::uint32_t highest = 0x7FFFFFFF; /* the remote side reads signed numbers */
    for (const std::string *const text : {&options.focus_name, &options.screen_on_focus}) {
        if (text->size() > longest_text) {
            return Error(function, KVO_HWS_FAILED, Errc::invalid_text, "focus_name and screen_on_focus have at most 127 bytes");
        }
        if (!is_one_line(*text)) {
            return Error(function, KVO_HWS_FAILED, Errc::invalid_text,
                         "focus_name and screen_on_focus must not contain a NUL, a line feed or a carriage return");
        }
    }
    if (options.focus.has_value() != options.focus_name.empty()) {
        return Error(function, KVO_HWS_MISSING_PARAMETER, Errc::missing_parameter,
                     "the station in focus is given by focus or by focus_name: set one of them");
    }
    if ((options.focus && options.focus->number() == 0) || options.remote.number() == 0) {
        return Error(function, KVO_HWS_MISSING_PARAMETER, Errc::invalid_address,
                     "focus and remote must not be 0.0.0.0: set the addresses of a station and of a remote service");
    }
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
            return Error(function, KVO_HWS_FAILED, Errc::out_of_range, number.reason);
        }
    }
    return std::nullopt;
}

inline std::string agent_parameters(const AgentOptions &options)
{
    std::string lines = options.focus ? "focusKvoIp=" + options.focus->to_string() : "focusKvoName=" + options.focus_name;
    lines += "\nremoteKvoHwsIp=" + options.remote.to_string();
    lines += "\nscreenOnFocus=" + options.screen_on_focus + '\n';
    const auto add = [&lines](const char *key, std::uint32_t value) { lines += key + std::to_string(value) + '\n'; };
    add("remoteSession=", options.session);
    add("mcpFlag=", options.mcp_flag ? 1 : 0);
    add("kvoIndex=", options.kvo_index);
    add("channelOnFocus=", options.channel_on_focus);
    add("suspendLock=", options.suspend_lock);
    add("suspendPrio=", options.suspend_prio);
    add("startupActive=", options.startup_active);
    add("startupPrio=", options.startup_prio);
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
    if (!options.focus) {
        /* The library finds a station by its name only in this variable, which has 260 bytes. */
        gFocusName[options.focus_name.copy(gFocusName, sizeof gFocusName - 1)] = '\0';
    }
    const int result = KVO_HWS_startupEmbHwsClient(parameters.c_str(), &state.instance, state.callback);
    if (result == KVO_HWS_FAILED) {
        KVO_HWS_cleanupEmbHwsClient(gEmbKvoInst); /* without a thread; otherwise no other agent can start */
    }
    return result;
}

inline Result<std::shared_ptr<AgentState>> start_agent(const AgentOptions &options, std::shared_ptr<AgentState> state)
{
    constexpr const char *function = "KVO_HWS_startupEmbHwsClient";
    const Error running(function, KVO_HWS_ALREADY_RUNNING, Errc::already_running,
                        "the process has an agent already, and can have only one: close the other one first");
    if (state->empty) {
        return Error(function, KVO_HWS_NULL_POINTER, Errc::null_pointer, "the handler is empty: pass a function");
    }
    if (const std::optional<Error> error = error_in(options)) {
        return *error;
    }
    const std::string parameters = agent_parameters(options); /* before the claim: it may throw */
    Registry<AgentState> &registry = agent_registry();
    state->registry = &registry;
    state->callback = agent_callback;
    if (!registry.claim(state)) {
        return running;
    }
    const int result = start_library_agent(options, parameters, *state);
    if (result != KVO_HWS_OK) {
        state->handling.close();
        registry.release(state);
        return result == KVO_HWS_ALREADY_RUNNING ? running : Error(function, result);
    }
    return state;
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
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    const timespec pause{0, 1'000'000};
    while (__atomic_load_n(&gEmbKvoInst->running, __ATOMIC_SEQ_CST) != 0 && std::chrono::steady_clock::now() < deadline) {
        nanosleep(&pause, nullptr);
    }
    return __atomic_load_n(&gEmbKvoInst->running, __ATOMIC_SEQ_CST) == 0;
}

inline Result<void> close_agent(const std::shared_ptr<AgentState> &state)
{
    const bool in_handler = state->handling.is_called_here();
    state->handling.close();
    /* Without this callback, the program has already cleaned up this agent with the function of C. */
    const bool is_ours = __atomic_load_n(&gCmdCallback, __ATOMIC_SEQ_CST) == state->callback;
    const int result = is_ours ? KVO_HWS_cleanupEmbHwsClient(state->instance) : KVO_HWS_OK;
    state->registry->release(state);
    state->handling.await_calls();
    /* In the handler the agent ends after the call. */
    if (result == KVO_HWS_OK || in_handler || (result == KVO_HWS_FAILED && await_agent_end())) {
        return {};
    }
    return Error("KVO_HWS_cleanupEmbHwsClient", result);
}

}  // namespace kvo::detail
/** @endcond */

#endif
