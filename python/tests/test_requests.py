"""Every request to the simulated service: what it reads, what it sets, and how it fails."""

from __future__ import annotations

import inspect
import re
import threading
import time
from ipaddress import AddressValueError, IPv4Address
from typing import Callable, Dict, List, Tuple, Type, cast

import pytest
from cases import CASES, MILL_IP, Case
from conftest import wait_for
from test_catalogue import CATALOGUE, takes_only_a_station

from kvo_hws import (
    Ambiguous,
    Calibration,
    InputDevices,
    InvalidHost,
    KvoError,
    Metric,
    NotActive,
    NotAvailable,
    NotConnected,
    OutOfRange,
    Panel,
    Refused,
    Service,
    ServiceBusy,
    ServiceError,
    Simulator,
    Timeout,
    UnknownReply,
    Unsupported,
    _sized,
    debugging,
    library_version,
)
from kvo_hws._prototypes import PROTOTYPES

EVENTS_AND_AGENT = re.compile("USBEvents|EmbKvoEvents|EmbHws")
ONE_OF_EACH = list({(type(case.target), case.method, len(case.arguments)): case for case in CASES}.values())


@pytest.mark.parametrize("case", CASES, ids=str)
def test_a_request_returns_the_result_and_changes_the_station(case: Case, simulator: Simulator, calls: List[str]) -> None:
    if case.before:
        simulator.set_station(MILL_IP, **case.before)
    calls.clear()
    assert case.call() == case.result
    called = set(calls)
    station = simulator.station(MILL_IP) if case.after else {}
    assert {key: station[key] for key in case.after} == case.after
    documented = set(re.findall(r"KVO_HWS_\w+", inspect.getdoc(getattr(case.target, case.method)) or ""))
    assert called and called <= documented


def test_the_cases_cover_all_requests(simulator: Simulator, calls: List[str]) -> None:
    for case in ONE_OF_EACH:
        try:
            case.call()
        except KvoError:
            pass
    tested_elsewhere = {"KVO_HWS_killDaemon", "KVO_HWS_setUsbLock", "KVO_HWS_getDLLVersion"}
    tested_elsewhere |= {"KVO_HWS_activateDebugDLL", "KVO_HWS_deactivateDebugDLL"}
    tested_elsewhere |= {name for name in PROTOTYPES if EVENTS_AND_AGENT.search(name)}
    tested_elsewhere |= {"kvo_hws_CreateThread", "kvo_hws_detach_thread"}
    tested_elsewhere |= {request["function"] for request in CATALOGUE if takes_only_a_station(request)}
    assert set(PROTOTYPES) - tested_elsewhere <= set(calls)


# The results for the reply "failed", which these functions treat like any other reply.
RESULTS_FOR_FAILED: Dict[str, object] = {
    "get_input_devices": InputDevices(None, None, None),
    "count_input_devices": InputDevices(None, None, 0),
    "count_input_devices_v2": InputDevices(None, None, 0),
    "get_calibration": Calibration(0, 0),
    "get_version": "failed",
}


@pytest.mark.parametrize("case", ONE_OF_EACH, ids=str)
def test_a_refusal_is_a_service_error(case: Case, simulator: Simulator) -> None:
    simulator.add_fault("failed")
    if case.method in RESULTS_FOR_FAILED:
        assert case.call() == RESULTS_FOR_FAILED[case.method]
        return
    with pytest.raises(ServiceError) as raised:
        case.call()
    assert raised.value.code in (-1, -4)


@pytest.mark.parametrize("case", ONE_OF_EACH, ids=str)
def test_a_closed_connection_is_a_service_error(case: Case, simulator: Simulator) -> None:
    simulator.add_fault("close")
    with pytest.raises(ServiceError) as raised:
        case.call()
    assert raised.value.code == -1


SERVICE_ERROR_WITHOUT_SERVICE = {"lock_registry", "unlock_registry", "is_usb_events_activated"}


@pytest.mark.parametrize("case", ONE_OF_EACH, ids=str)
def test_a_request_without_a_service_is_not_connected(case: Case, no_plant: None) -> None:
    kind: Type[KvoError] = ServiceError if case.method in SERVICE_ERROR_WITHOUT_SERVICE else NotConnected
    with pytest.raises(kind) as raised:
        case.call()
    assert type(raised.value) is kind
    assert raised.value.code == (-1 if kind is ServiceError else -2)
    assert raised.value.function in PROTOTYPES and raised.value.function in str(raised.value)


def test_each_failure_has_its_own_exception(simulator: Simulator) -> None:
    panel, service = Panel(MILL_IP), Service()
    simulator.set_station(MILL_IP, mcp_address=50, usb_scanning=1, dpi="none", backlight=1, backlight_modes=1)
    simulator.set_station("10.0.0.6", mcp_address=50)
    expected: List[Tuple[Type[KvoError], int, Callable[[], object]]] = [
        (Ambiguous, -3, lambda: service.find_by_mcp_address(50)),
        (ServiceBusy, -9, panel.get_usb_connectors),
        (ServiceBusy, -9, service.get_usb_connectors),
        (NotAvailable, -4, lambda: panel.get_metric(Metric.DPI)),
        (OutOfRange, -9, lambda: panel.get_metric(cast(Metric, 99))),
        (OutOfRange, -3, lambda: panel.set_backlight_brightness(101)),
        (OutOfRange, -3, lambda: panel.set_backlight_brightness(101, 0)),
        (OutOfRange, -4, lambda: panel.set_backlight_brightness(10, 2)),
        (OutOfRange, -4, lambda: panel.get_backlight_brightness(2)),
        (Unsupported, -5, lambda: panel.set_backlight_brightness(10, 1)),
        (OutOfRange, -3, lambda: panel.set_handheld_mode(2)),  # type: ignore[arg-type]
        (OutOfRange, -3, lambda: panel.set_cks_index(256)),
        (OutOfRange, -3, lambda: panel.set_channel_info("x" * 231)),
        (OutOfRange, -3, lambda: panel.set_calibration(Calibration(-2, 0))),
        (Refused, -4, Panel("10.9.9.9").is_marovanti),
        (ServiceError, -1, lambda: panel.set_sw_caps_lock(2)),
        (ServiceError, -1, Panel("10.9.9.9").get_mcp_address),
        (InvalidHost, -10, lambda: service.set_usb_lock(1, 0, ["127.0.0.1"])),
    ]
    for kind, code, request in expected:
        with pytest.raises(kind) as raised:
            request()
        assert (type(raised.value), raised.value.code) == (kind, code)
    simulator.set_station(MILL_IP, backlight=0, backlight_modes=2)
    with pytest.raises(NotActive):
        panel.set_backlight_brightness(10, 1)
    simulator.set_station(MILL_IP, hardware_caps=1)
    simulator.add_fault("garbage", "getHardwareCaps")
    with pytest.raises(UnknownReply):
        panel.get_metric(Metric.HARDWARE_CAPS)


def test_registry_lists_wait_for_the_registry_lock(simulator: Simulator) -> None:
    assert Service().lock_registry()
    started = time.monotonic()
    with pytest.raises(Timeout, match="the registry stayed locked"):
        Service().get_current_stations(timeout=0)
    assert time.monotonic() - started < 5
    Service().unlock_registry()
    assert Service().get_current_stations(timeout=0)


def test_texts_larger_than_the_first_buffer_are_read_completely(simulator: Simulator, monkeypatch: pytest.MonkeyPatch) -> None:
    with_growing_buffer = _sized.with_growing_buffer
    monkeypatch.setattr(_sized, "with_growing_buffer", lambda body, capacity: with_growing_buffer(body, 1))
    simulator.set_station(MILL_IP, channel_info="x" * 230, usb_connectors="X60:keyboard", usb_scanning=0)
    assert Panel(MILL_IP).get_channel_info() == "x" * 230
    assert Panel(MILL_IP).get_usb_connectors() == "X60:keyboard"
    assert Service().get_usb_connectors() == "10.0.0.5 X60:keyboard"
    assert len(Service().get_stations()) == 2
    assert len(Service().get_clients()) == 1


@pytest.mark.parametrize(
    "request_of",
    [
        lambda panel: panel.set_mcp_address(2**32),
        lambda panel: panel.set_mcp_address(-1),
        lambda panel: panel.set_sw_caps_lock(2**31),
        lambda panel: panel.set_statusline("two\nlines"),
        lambda panel: panel.set_statusline("nul\0"),
        lambda panel: panel.set_channel_info('a "quote"'),
        lambda panel: Service().find_station(name="two\nlines"),
        lambda panel: Service().set_usb_lock(1, 2, []),
        lambda panel: Panel("10.0.0.256"),
        lambda panel: Panel(-1),
    ],
)
def test_arguments_that_c_cannot_take_are_rejected_before_anything_is_sent(
    request_of: Callable[[Panel], object], simulator: Simulator
) -> None:
    before = simulator.status()["exchanges"]
    with pytest.raises(ValueError):
        request_of(Panel(MILL_IP))
    assert simulator.status()["exchanges"] == before


def test_an_argument_of_the_wrong_type_is_a_type_error() -> None:
    for wrong in (1.5, "5", None):
        with pytest.raises(TypeError):
            Panel(MILL_IP).set_mcp_address(wrong)  # type: ignore[arg-type]
    with pytest.raises(TypeError):
        Panel(MILL_IP).set_statusline(b"bytes")  # type: ignore[arg-type]
    with pytest.raises(TypeError):
        Service().find_station()


def test_a_panel_accepts_every_form_of_address() -> None:
    panels = {Panel("10.0.0.5"), Panel(0x0A000005), Panel(IPv4Address("10.0.0.5"))}
    assert len(panels) == 1 and repr(panels.pop()) == "Panel('10.0.0.5')"
    assert Panel("10.0.0.5") != Panel("10.0.0.6")


def test_a_panel_can_be_found_by_its_name(simulator: Simulator) -> None:
    assert Panel.named("Fräszentrum 1") == Panel(MILL_IP)
    with pytest.raises(AddressValueError, match=r"'Lathe 1' is not an IPv4 address; Panel\.named finds a station by"):
        Panel("Lathe 1")
    with pytest.raises(LookupError, match="Nobody"):
        Panel.named("Nobody")


def test_bytes_that_are_not_utf8_stay_unchanged(simulator: Simulator) -> None:
    not_utf8 = b"M\xfcller".decode("utf-8", "surrogateescape")
    assert Service().find_station(name=not_utf8) is None
    assert _sized.decode(b"M\xfcller") == not_utf8


def test_the_usb_lock_is_set_with_a_datagram(simulator: Simulator) -> None:
    panel, other = Panel(MILL_IP), Panel("10.0.0.6")
    panel.set_usb_lock(1, 7)
    wait_for(lambda: panel.get_usb_lock().second == 7)
    assert panel.get_usb_lock().first == 1 and other.get_usb_lock().second != 7
    Service().set_usb_lock(0, 9)
    wait_for(lambda: panel.get_usb_lock().second == other.get_usb_lock().second == 9)


def test_other_threads_run_during_a_slow_request(simulator: Simulator) -> None:
    simulator.add_fault("delay", "getVersion", delay_ms=1500)
    thread = threading.Thread(target=Service().get_version)
    thread.start()
    iterations = 0
    while thread.is_alive():
        iterations += 1
        time.sleep(0.01)
    assert iterations > 3


def test_the_library_returns_its_version_and_logs_on_request(simulator: Simulator, calls: List[str]) -> None:
    assert library_version() == "V%#.%#.#%.#%"
    with pytest.raises(ZeroDivisionError), debugging():
        raise ZeroDivisionError
    assert calls == ["KVO_HWS_getDLLVersion", "KVO_HWS_activateDebugDLL", "KVO_HWS_deactivateDebugDLL"]
