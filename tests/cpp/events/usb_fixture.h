// What the tests of kvo::UsbEvents share: texts of the daemon, and a handler that records its calls.
#pragma once

#include <kvo_hws/kvo_hws.hpp>

#include "cpp/events/signal.h"
#include "support/eventually.h"
#include "support/scripted_service.h"
#include "support/usb_events.h"
#include "usbevents/activation_fixture.h"

#include <condition_variable>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <mutex>
#include <string>
#include <vector>

namespace cpp_events_test {

inline const std::string kNew = "newUSBdevice*10.0.0.5*usb1*1-1.4*four*five*six*seven*00000001*00000002*80000003*0001*0002*" +
                                [] {
                                    std::string bytes;
                                    for (int i = 0; i < 64; ++i) {
                                        bytes += "00 ";
                                    }
                                    return bytes;
                                }() +
                                "*\n";
inline const std::string kRefused = "ignoreUSBdevice*10.0.0.5*usb1*1-1.4*four*five*eight*00000001*00000002*0103*\n";
inline const std::string kChanged = "changeStateUSBdevice*10.0.0.5*usb1*1-1.4*00000007*\n";
inline const std::string kRemoved = "removeUSBdevice*10.0.0.5*usb1*1-1.4*\n";

/// All members of an event in one line.
struct Text {
    static std::string device(const char *kind, const kvo::UsbDeviceEvent &event)
    {
        return std::string(kind) + (event.late ? " late " : " ") + event.ip_address + ' ' + event.ident2 + ' ' + event.ident3;
    }
    static std::string join(std::string text, std::initializer_list<std::string> more)
    {
        for (const std::string &one : more) {
            text += ' ' + one;
        }
        return text;
    }

    std::string operator()(kvo::UsbStatus status) const
    {
        switch (status) {
        case kvo::UsbStatus::activated: return "activated";
        case kvo::UsbStatus::deactivated: return "deactivated";
        case kvo::UsbStatus::begin: return "begin";
        case kvo::UsbStatus::server_failed: return "server failed";
        case kvo::UsbStatus::refused: return "refused";
        case kvo::UsbStatus::no_service: return "no service";
        }
        return "unknown status";
    }
    std::string operator()(const kvo::UsbNewDevice &event) const
    {
        return join(device("new", event),
                    {event.text4, event.text5, event.text6, event.text7, std::to_string(event.number1),
                     std::to_string(event.number2), std::to_string(event.flag_word), std::to_string(event.flag_bits)});
    }
    std::string operator()(const kvo::UsbDeviceRefused &event) const
    {
        return join(device("refused device", event), {event.text4, event.text5, event.text8, std::to_string(event.number1),
                                                      std::to_string(event.number2), std::to_string(event.number3)});
    }
    std::string operator()(const kvo::UsbStateChanged &event) const
    {
        return join(device("changed", event), {std::to_string(event.state)});
    }
    std::string operator()(const kvo::UsbDeviceRemoved &event) const { return device("removed", event); }
};

inline std::string textOf(const kvo::UsbEvent &event) { return std::visit(Text{}, event); }

/// Records the events of a handler. Copies share the record.
class Recorder {
public:
    bool operator()(const kvo::UsbEvent &event) const
    {
        const std::lock_guard lock(record_->lock);
        record_->texts.push_back(textOf(event));
        record_->changed.notify_all();
        return true;
    }

    [[nodiscard]] std::vector<std::string> texts() const
    {
        const std::lock_guard lock(record_->lock);
        return record_->texts;
    }

    [[nodiscard]] bool waitFor(const std::string &text) const
    {
        std::unique_lock lock(record_->lock);
        return record_->changed.wait_for(lock, std::chrono::seconds(10), [&] {
            return std::find(record_->texts.begin(), record_->texts.end(), text) != record_->texts.end();
        });
    }

private:
    struct Record {
        std::mutex lock;
        std::condition_variable changed;
        std::vector<std::string> texts;
    };
    std::shared_ptr<Record> record_ = std::make_shared<Record>();
};

inline bool isDevice(const kvo::UsbEvent &event) { return !std::holds_alternative<kvo::UsbStatus>(event); }

inline bool isStatus(const kvo::UsbEvent &event, kvo::UsbStatus status)
{
    const auto *const reported = std::get_if<kvo::UsbStatus>(&event);
    return reported != nullptr && *reported == status;
}

/// The library's callback while an object is active, as a thread of the library would still have it after a close.
inline SendUsbEventV2 callbackSet() { return __atomic_load_n(&sendUSBEvent2, __ATOMIC_SEQ_CST); }

using CppUsbEvents = usbevents_test::Activation;

}  // namespace cpp_events_test
