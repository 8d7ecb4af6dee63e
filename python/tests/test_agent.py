"""The remote agent: its replies, the commands to the host's callback, and its end."""

from __future__ import annotations

import sys
import threading
import time
from typing import Any, List, Optional

import pytest
from cases import MILL_IP
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


def test_the_agent_answers_requests_and_pushes_events(simulator: Simulator) -> None:
    received: List[AgentCommand] = []
    answers = {"stop-viewer": True, "stop-viewer-preempt": False, "activate-me": False, "set-darken": True}

    def on_command(command: AgentCommand) -> Optional[bool]:
        received.append(command)
        assert Service().is_ready()
        return answers.get(command.name)

    options = AgentOptions(
        kvo_index=7, channel_on_focus=2, screen_on_focus="Maschine", suspend_lock=1, suspend_prio=9, startup_active=2,
        startup_prio=44, mcp=True,
    )  # fmt: skip
    simulator.set_station(MILL_IP, mcp_address=17)
    with Agent(MILL_IP, "127.0.0.1", SESSION, on_command, options=options) as agent:
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
    assert received[0] == AgentCommand("stop-viewer")
    assert received[-1] == AgentCommand("set-statusline", "1,2,Fräsen=gut")
    with pytest.raises(NullPointer):
        agent.push("too late")


def test_an_exception_in_the_callback_fails_the_command_and_is_raised_later(
    simulator: Simulator, monkeypatch: pytest.MonkeyPatch
) -> None:
    reported: List[Any] = []
    monkeypatch.setattr(sys, "unraisablehook", lambda unraisable: reported.append(unraisable.exc_type))

    def on_command(command: AgentCommand) -> bool:
        entered.set()
        time.sleep(0.2 if command.name == "set-darken" else 0)
        raise LookupError(command.name)

    entered = threading.Event()
    with pytest.raises(LookupError, match="stop-viewer"), Agent(MILL_IP, session=SESSION, on_command=on_command) as agent:
        simulator.wait_for_agent(SESSION)
        assert simulator.ask_agent(SESSION, "activate-me") == "failed"
        with pytest.raises(LookupError, match="activate-me"):
            agent.push("first")
        assert simulator.ask_agent(SESSION, "stop-viewer") == "failed"
        # The clean-up waits for a running callback, and does not block it.
        entered.clear()
        requester = threading.Thread(target=simulator.ask_agent, args=(SESSION, "set-darken=1"))
        requester.start()
        assert entered.wait(5)
    requester.join()
    assert reported == [LookupError]


def test_the_focus_can_be_a_name_and_the_callback_can_close_the_agent(simulator: Simulator) -> None:
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


def test_an_agent_with_an_unknown_station_ends(simulator: Simulator) -> None:
    with Agent("10.9.9.9", session=SESSION) as agent:
        wait_for(lambda: not agent.running)
        with pytest.raises(AlreadyRunning):
            Agent(MILL_IP).start()


def test_invalid_parameters_are_rejected() -> None:
    with pytest.raises(TypeError):
        Agent()
    with pytest.raises(TypeError):
        Agent(MILL_IP, focus_name="Lathe 1")
    with pytest.raises(ValueError):
        Agent(MILL_IP, session=10)
    with pytest.raises(ValueError):
        Agent(MILL_IP, remote="nowhere")
    with pytest.raises(ValueError, match="screen_on_focus"):
        AgentOptions(screen_on_focus="x" * 128)
    for name, beyond in (("kvo_index", 256), ("channel_on_focus", 0), ("suspend_prio", -4), ("startup_active", 3)):
        with pytest.raises(ValueError, match=f"{name} is {beyond}; it must be "):
            AgentOptions(**{name: beyond})  # type: ignore[arg-type]
    with pytest.raises(ValueError):
        Agent(focus_name="two\nkvoIndex=9")
