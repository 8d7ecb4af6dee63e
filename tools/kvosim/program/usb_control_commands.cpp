// "kvosim usb": its arguments, requests and output.
#include "kvosim/program/control_commands.h"

#include "kvosim/plant/usb_device.h"
#include "kvosim/program/completion_candidates.h"

#include <cstdio>
#include <iostream>
#include <map>
#include <string>
#include <variant>

namespace kvosim {

namespace {

constexpr const char *kUsbExamples =
    R"(The simulator sends USB events only while a program has activated them. Devices can be plugged in at any time; they
appear in the connector lists. DEVICE is an ident2, an ident3, or "IDENT2*IDENT3". Exit status 0 means that the change was
made at the station. The printed line says whether a program received the event.

Examples:
  kvosim usb plug 10.0.0.5
  kvosim usb plug "Lathe 1" --ident2 stick --text7 "Memory stick" --id1 0x0951 --bytes 0A1B
  kvosim usb state 10.0.0.5 stick 2
  kvosim usb unplug 10.0.0.5 stick
  kvosim usb refuse 10.0.0.5 --text8 "too much current"
  kvosim usb list
  kvosim usb storm --count 1000 --rate 50
)";

constexpr const char *kStormExamples =
    R"(The simulator plugs in a device, removes it, plugs in the next one, and so on. Each of these changes is an event. With
an odd count, the last device stays. Events are sent one at a time, so a slow receiver reduces the rate. If a USB lock is
set, every event is a refused device. The storm ends early if the events are deactivated or this command is ended.

Examples:
  kvosim usb storm --count 1000
  kvosim usb storm --count 600 --rate 10 --station 10.0.0.5
)";

struct UsbOptions {
    std::string station;
    std::string device;
    std::string state;
    std::map<std::string, std::string> texts;  ///< fields as typed
    std::map<std::string, bool> switches;
    uint32_t count = 0;
    uint32_t rate = 0;
};

// An event may wait for earlier ones, and each may take seconds.
constexpr tools::Timeout kNoTimeout = std::nullopt;

std::string textOf(const tools::Json &reply, const char *key) { return reply.at(key).get<std::string>(); }

std::string describeEvent(const tools::Json &reply)
{
    std::string event = textOf(reply, "event");
    if (event == "plugged") {
        return "plugged in";
    }
    if (event == "state") {
        return "in state " + reply.at("state").dump();
    }
    if (reply.contains("usb_lock")) {
        return "refused, because the station's USB lock is " + textOf(reply, "usb_lock");
    }
    return event;
}

std::string describeDelivery(const std::string &delivery)
{
    if (delivery == "delivered") {
        return "the event was delivered";
    }
    if (delivery == "not activated") {
        return "USB events are not activated, so no event was sent";
    }
    return "the event was not delivered: " + delivery;
}

void printNotification(const tools::Json &reply)
{
    std::cout << textOf(reply, "station") << ": \"" << textOf(reply, "ident2") << '*' << textOf(reply, "ident3") << "\" "
              << describeEvent(reply) << "; " << describeDelivery(textOf(reply, "delivery")) << '\n';
}

void printDevices(const tools::Json &reply)
{
    if (reply["devices"].empty()) {
        std::cout << "no USB devices\n";
    }
    for (const tools::Json &device : reply["devices"]) {
        std::cout << textOf(device, "station") << ": \"" << textOf(device, "ident2") << '*' << textOf(device, "ident3")
                  << "\" state " << device.at("state") << ", " << textOf(device, "text4") << ", " << textOf(device, "text6")
                  << ", " << textOf(device, "text7") << '\n';
    }
}

void printStorm(const tools::Json &reply)
{
    std::printf("sent %u, delivered %u, failed %u, %.3f s, %.1f events per second\n", reply["sent"].get<unsigned>(),
                reply["delivered"].get<unsigned>(), reply["failed"].get<unsigned>(), reply["seconds"].get<double>(),
                reply["events_per_second"].get<double>());
    if (const std::string end = textOf(reply, "end"); end != "count") {
        std::printf("ended early: %s\n", end.c_str());
    }
    std::fflush(stdout);
}

std::string optionOf(const UsbKey &key)
{
    std::string name(key.name);
    for (char &c : name) {
        c = c == '_' ? '-' : c;
    }
    return "--" + name;
}

bool isSwitch(const UsbKey &key)
{
    const auto *number = std::get_if<UsbNumberKey>(&key.kind);
    return number != nullptr && number->highest == 1;
}

void addFields(CLI::App &command, UsbOptions &options)
{
    for (const UsbKey &key : usbKeys()) {
        const std::string name(key.name);
        if (isSwitch(key)) {
            command.add_flag(optionOf(key), options.switches[name], std::string(key.description));
        } else {
            command.add_option_function<std::string>(
                optionOf(key), [&options, name](const std::string &text) { options.texts[name] = text; },
                std::string(key.description));
        }
    }
}

tools::Json fieldsOf(const UsbOptions &options)
{
    tools::Json device = tools::Json::object();
    for (const auto &[key, text] : options.texts) {
        device[key] = text;
    }
    for (const auto &[key, on] : options.switches) {
        if (on) {
            device[key] = 1;
        }
    }
    return device;
}

CLI::App *addStation(CLI::App *command, UsbOptions &options)
{
    completeStations(command->add_option("STATION", options.station, "Address or name of the station")->required());
    return command;
}

/// Adds "plug" or "refuse".
void addArrival(ControlCommands &commands, CLI::App &usb, const std::shared_ptr<UsbOptions> &options, const char *name,
                const char *description)
{
    const auto act = [&commands, options, name] {
        commands.ask({{"do", std::string("usb.") + name}, {"station", options->station}, {"device", fieldsOf(*options)}},
                     printNotification, kNoTimeout);
    };
    CLI::App *command = addStation(commands.add(usb, name, description, act), *options);
    addFields(*command, *options);
    command->footer(kUsbExamples);
}

void addChanges(ControlCommands &commands, CLI::App &usb, const std::shared_ptr<UsbOptions> &options)
{
    CLI::App *unplugging = addStation(
        commands.add(usb, "unplug", "Remove a device from a station",
                     [&commands, options] {
                         commands.ask({{"do", "usb.unplug"}, {"station", options->station}, {"device", options->device}},
                                      printNotification, kNoTimeout);
                     }),
        *options);
    completeDevices(unplugging->add_option("DEVICE", options->device, "ident2 or ident3 of the device")->required());
    CLI::App *changing = addStation(commands.add(usb, "state", "Change the state of a device",
                                                 [&commands, options] {
                                                     commands.ask({{"do", "usb.state"},
                                                                   {"station", options->station},
                                                                   {"device", options->device},
                                                                   {"state", options->state}},
                                                                  printNotification, kNoTimeout);
                                                 }),
                                    *options);
    completeDevices(changing->add_option("DEVICE", options->device, "ident2 or ident3 of the device")->required());
    changing->add_option("VALUE", options->state, "0 to 0xFFFFFFFF")->required();
}

void addList(ControlCommands &commands, CLI::App &usb, const std::shared_ptr<UsbOptions> &options)
{
    CLI::App *list = commands.add(usb, "list", "List the devices that are plugged in", [&commands, options] {
        tools::Json request{{"do", "usb.list"}};
        if (!options->station.empty()) {
            request["station"] = options->station;
        }
        commands.ask(request, printDevices);
    });
    completeStations(list->add_option("STATION", options->station, "Address or name of the station (default: all stations)"));
}

void addStorm(ControlCommands &commands, CLI::App &usb, const std::shared_ptr<UsbOptions> &options)
{
    CLI::App *storm = commands.add(usb, "storm", "Send many USB events", [&commands, options] {
        tools::Json request{{"do", "usb.storm"}, {"count", options->count}, {"rate", options->rate}};
        if (!options->station.empty()) {
            request["station"] = options->station;
        }
        commands.ask(request, printStorm, kNoTimeout);
    });
    storm->add_option("--count", options->count, "Number of events")->required();
    storm->add_option("--rate", options->rate, "Events per second (default: 0, as fast as the receiver accepts them)");
    completeStations(
        storm->add_option("--station", options->station, "Address or name of the station (default: all stations in turn)"));
    storm->footer(kStormExamples);
}

}  // namespace

void addUsbCommands(ControlCommands &commands, CLI::App &app)
{
    const auto options = std::make_shared<UsbOptions>();
    CLI::App *usb = app.add_subcommand("usb", "Plug in and remove USB devices at stations of the running simulator");
    usb->require_subcommand(1);
    usb->footer(kUsbExamples);
    addArrival(commands, *usb, options, "plug", "Plug a device in");
    addArrival(commands, *usb, options, "refuse", "Report a device that the service refuses");
    addChanges(commands, *usb, options);
    addList(commands, *usb, options);
    addStorm(commands, *usb, options);
}

}  // namespace kvosim
