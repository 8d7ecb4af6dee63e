"""The remote agent: what it answers, what the host's callback is asked, and how it ends."""

from __future__ import annotations

import sys
import threading
import time
from typing import Any, List, Optional

import pytest
from cases import HERE
from conftest import wait_for

from kvo_hws import (
    Agent,
    AgentCommand,
    AgentOptions,
    AlreadyRunning,
    NotNegotiated,
    NullPointer,
    Service,
    Simulator,
)

SESSION = 3


def test_the_remote_side_asks_and_the_host_answers(simulator: Simulator) -> None:
    came: List[AgentCommand] = []
    answers = {"stop-viewer": True, "stop-viewer-preempt": False, "activate-me": False, "set-darken": True}

    def on_command(command: AgentCommand) -> Optional[bool]:
        came.append(command)
        assert Service().is_ready()
        return answers.get(command.name)

    options = AgentOptions(
        kvo_index=7, channel_on_focus=2, screen_on_focus="Maschine", suspend_lock=1, suspend_prio=9, startup_active=2,
        startup_prio=44, mcp=True,
    )  # fmt: skip
    simulator.set_station(HERE, mcp_address=17)
    with Agent(HERE, "127.0.0.1", SESSION, on_command, options=options) as agent:
        simulator.wait_for_agent(SESSION)
        with pytest.raises(NotNegotiated):
            agent.push("too early")
        expected = {
            "get-kvoindex": "kvoindex=7",
            "get-channel-on-focus": "channel-on-focus=2",
            "get-screen-on-focus": "screen-on-focus=Maschine",
            "get-kvo-priority": "Priority=1:9",
            "get-kvo-startup-active": "startup-active=2",
            "get-kvo-startup-prio": "startup-prio=44",
            "get-mcpaddr": "mcpaddr=17",
            "show-panel-size": "width=1024 height=768 depth=16",
            "stop-viewer": "ok",
            "stop-viewer-preempt": "not running",
            "stop-viewer-noclean": "failed",
            "activate-me": "busy",
            "set-darken=1": "ok",
            "set-statusline=1,2,Fräsen=gut": "failed",
        }
        assert {request: simulator.ask_agent(SESSION, request) for request in expected} == expected
        assert agent.running and agent.negotiated
        agent.push("Bild gewechselt")
        agent.push("again")
        with pytest.raises(ValueError):
            agent.push("two\nlines")
        wait_for(lambda: len(simulator.indications(SESSION)) == 2)
        assert [text.partition(":")[2] for text in simulator.indications(SESSION)] == ["Bild gewechselt", "again"]
        simulator.close_agent(SESSION, reset=True)
        wait_for(lambda: simulator.command("remote", "list")["sessions"][0]["agent"] is None)
    assert (agent.running, agent.negotiated) == (False, False)
    assert came[0] == AgentCommand("stop-viewer")
    assert came[-1] == AgentCommand("set-statusline", "1,2,Fräsen=gut")
    with pytest.raises(NullPointer):
        agent.push("too late")


def test_what_the_callback_raises_fails_the_command_and_is_raised(
    simulator: Simulator, monkeypatch: pytest.MonkeyPatch
) -> None:
    reported: List[Any] = []
    monkeypatch.setattr(sys, "unraisablehook", lambda told: reported.append(told.exc_type))

    def on_command(command: AgentCommand) -> bool:
        entered.set()
        time.sleep(0.2 if command.name == "set-darken" else 0)
        raise LookupError(command.name)

    entered = threading.Event()
    with pytest.raises(LookupError, match="stop-viewer"), Agent(HERE, session=SESSION, on_command=on_command) as agent:
        simulator.wait_for_agent(SESSION)
        assert simulator.ask_agent(SESSION, "activate-me") == "failed"
        with pytest.raises(LookupError, match="activate-me"):
            agent.push("first")
        assert simulator.ask_agent(SESSION, "stop-viewer") == "failed"
        # The clean-up waits for a callback that runs, and lets it run.
        entered.clear()
        asker = threading.Thread(target=simulator.ask_agent, args=(SESSION, "set-darken=1"))
        asker.start()
        assert entered.wait(5)
    asker.join()
    assert reported == [LookupError]


def test_the_focus_may_be_given_by_its_name_and_the_callback_may_close(simulator: Simulator) -> None:
    def on_command(command: AgentCommand) -> bool:
        agent.close()
        return True

    agent = Agent(focus_name="Lathe 1", session=SESSION, on_command=on_command)
    agent.start()
    simulator.wait_for_agent(SESSION)
    assert simulator.ask_agent(SESSION, "show-panel-size") == "width=640 height=480 depth=8"
    assert simulator.ask_agent(SESSION, "stop-viewer") == "ok"
    agent.close()
    assert not agent.running


def test_an_agent_that_finds_no_station_ends_by_itself(simulator: Simulator) -> None:
    with Agent("10.9.9.9", session=SESSION) as agent:
        wait_for(lambda: not agent.running)
        with pytest.raises(AlreadyRunning):
            Agent(HERE).start()


def test_parameters_that_the_agent_could_not_take_are_refused() -> None:
    with pytest.raises(TypeError):
        Agent()
    with pytest.raises(TypeError):
        Agent(HERE, focus_name="Lathe 1")
    with pytest.raises(ValueError):
        Agent(HERE, session=10)
    with pytest.raises(ValueError):
        Agent(HERE, remote="nowhere")
    with pytest.raises(ValueError, match="screen_on_focus"):
        AgentOptions(screen_on_focus="x" * 128)
    for name, beyond in (("kvo_index", 256), ("channel_on_focus", 0), ("suspend_prio", -4), ("startup_active", 3)):
        with pytest.raises(ValueError, match=f"{name} is {beyond}; it is "):
            AgentOptions(**{name: beyond})  # type: ignore[arg-type]
    with pytest.raises(ValueError):
        Agent(focus_name="two\nkvoIndex=9")
