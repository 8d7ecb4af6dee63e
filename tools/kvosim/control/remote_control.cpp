// Requests for the remote side. A request that waits for an agent gets its reply when the agent has replied.
#include "kvosim/control/remote_control.h"

#include "kvosim/base/arguments.h"
#include "kvosim/control/control_request.h"

#include <algorithm>

namespace kvosim {

namespace {

constexpr uint32_t kLongestTimeout = 600'000;  // ms

struct RemoteCall {
    RemoteSide &remote;
    const tools::Json &request;
    const LineServer::Caller &caller;

    [[nodiscard]] std::string text(const char *key) const { return request.at(key).get<std::string>(); }
    [[nodiscard]] RemoteSession &session() const { return remote.session(countOf(request, "session")); }
    [[nodiscard]] std::chrono::milliseconds milliseconds(const char *key) const
    {
        const uint32_t time = countOf(request, key);
        if (time > kLongestTimeout) {
            throw tools::Refused(std::string(key) + ": is out of range; write 0 to " + std::to_string(kLongestTimeout));
        }
        return std::chrono::milliseconds(time);
    }
};

Reply listSessions(const RemoteCall &call)
{
    tools::Json list = tools::Json::array();
    for (const RemoteSession &session : call.remote.sessions()) {
        tools::Json row{{"session", session.number()}, {"address", call.remote.address()}, {"port", session.port()}};
        row["away"] = session.portClosed();
        row["agent"] = session.peer() ? tools::Json(*session.peer()) : tools::Json(nullptr);
        list.push_back(std::move(row));
    }
    return lineOf({{"sessions", std::move(list)}, {"last", call.remote.lastRecord()}});
}

Reply ask(const RemoteCall &call)
{
    std::string request = call.text("request");
    auto tagging = call.request.value("untagged", false) ? RemoteSession::Tagging::none : RemoteSession::Tagging::automatic;
    if (call.request.contains("tag")) {
        const std::string tag = call.text("tag") + ':';
        if (tagOf(tag).size() != tag.size()) {
            throw tools::Refused("tag: \"" + call.text("tag") + "\" is not a tag; write three digits, such as 042");
        }
        request.insert(0, tag);
    }
    call.session().ask(request, tagging, call.milliseconds("patience_ms"), [caller = call.caller](const auto &answer) {
        caller.reply(lineOf(answer.reply ? tools::Json{{"reply", *answer.reply}} : tools::Json{{"could_not", answer.failure}}));
    });
    return Reply::Mode::later;
}

Reply send(const RemoteCall &call)
{
    call.session().send(call.text("request"));
    return lineOf(tools::Json::object());
}

/// Bytes come as hexadecimal digits because a JSON string cannot contain all bytes.
Reply sendRaw(const RemoteCall &call)
{
    const std::string digits = call.text("bytes");
    std::string bytes;
    for (std::size_t i = 0; i < digits.size(); i += 2) {
        const auto byte = number<uint8_t>(std::string_view(digits).substr(i, 2), 16);
        if (!byte || digits.size() % 2 != 0 || bytes.size() == kLongestRaw) {
            throw tools::Refused("bytes: write at most " + std::to_string(kLongestRaw) +
                                 " bytes of two hexadecimal digits each");
        }
        bytes += static_cast<char>(*byte);
    }
    call.session().sendRaw(bytes);
    return lineOf(tools::Json::object());
}

Reply close(const RemoteCall &call)
{
    const auto mode = call.request.value("reset", false) ? RemoteSession::CloseMode::reset : RemoteSession::CloseMode::orderly;
    if (call.request.contains("away_ms")) {
        call.session().closePort(mode, call.milliseconds("away_ms"));
    } else {
        call.session().close(mode);
    }
    return lineOf(tools::Json::object());
}

tools::Json jsonOf(const RemoteRecord &record)
{
    const auto time = std::chrono::duration_cast<std::chrono::milliseconds>(record.time.time_since_epoch());
    return {{"number", record.number},     {"time_ms", time.count()}, {"session", record.session},
            {"kind", nameOf(record.kind)}, {"text", record.text},     {"note", record.note}};
}

tools::Json jsonOf(const RemoteSide::LogPage &page)
{
    tools::Json records = tools::Json::array();
    for (const RemoteRecord &record : page.records) {
        records.push_back(jsonOf(record));
    }
    return {{"records", std::move(records)}, {"next", page.next}, {"lost", page.lost}};
}

Reply readLog(const RemoteCall &call)
{
    RemoteSide::LogQuery query{.after = call.request.value("after", uint64_t{0}), .wait = call.milliseconds("wait_ms")};
    if (call.request.contains("session")) {
        query.session = call.session().number();
    }
    const RemoteSide::LogPage page = call.remote.readLog(query);
    if (!page.records.empty() || query.wait.count() == 0) {
        return lineOf(jsonOf(page));
    }
    call.remote.awaitLog(query,
                         [caller = call.caller](const RemoteSide::LogPage &later) { caller.reply(lineOf(jsonOf(later))); });
    return Reply::Mode::later;
}

struct RemoteAction {
    std::string_view name;
    Reply (*carryOut)(const RemoteCall &call);
};

constexpr RemoteAction kRemoteActionRows[] = {
    {"remote.list", listSessions}, {"remote.ask", ask},     {"remote.send", send},
    {"remote.raw", sendRaw},       {"remote.close", close}, {"remote.log", readLog},
};

}  // namespace

const std::string_view kRemoteActions = "remote.list, remote.ask, remote.send, remote.raw, remote.close, remote.log";

std::optional<Reply> answerRemoteControl(RemoteSide &remote, const tools::Json &request, const LineServer::Caller &caller)
{
    const std::string wanted = request.at("do").get<std::string>();
    const auto *const action = std::find_if(std::begin(kRemoteActionRows), std::end(kRemoteActionRows),
                                            [&](const RemoteAction &candidate) { return candidate.name == wanted; });
    if (action == std::end(kRemoteActionRows)) {
        return std::nullopt;
    }
    return action->carryOut({remote, request, caller});
}

}  // namespace kvosim
