// A small panel program without its window and its event loop: what it knows, what it asks the service, and what it shows as text.
// poll.cpp, glib.cpp, libuv.cpp and qt.cpp add a loop. Everything here runs in the thread of the loop, and nothing here waits.
#ifndef PANEL_HPP
#define PANEL_HPP

#include <kvo_hws/kvo_hws.hpp>

#include <algorithm>
#include <chrono>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

class Panel {
public:
    static constexpr std::chrono::milliseconds frame{100};        // the loop calls draw_next() this often
    static constexpr std::chrono::milliseconds time_limit{1000};  // for each request

    struct Device {
        std::string station, ident, name;
    };

    Panel(kvo::Requests &requests, const kvo::Station &station) : requests_(requests), station_(station) { activate_usb(); }
    // The worker may still call a function that uses this object, so wait for it.
    ~Panel() { requests_.close(); }
    Panel(const Panel &) = delete;
    Panel &operator=(const Panel &) = delete;

    // The next picture: asks the service every second, unless it has not answered yet.
    void draw_next()
    {
        ++drawings_;
        if (unanswered_ == 0 && std::chrono::steady_clock::now() - asked_ >= std::chrono::seconds(1)) {
            refresh();
        }
    }

    // Sets the backlight. While one request is on its way, only the last level is kept. So moving a slider does not fill the queue.
    void set_backlight(int level)
    {
        wanted_ = std::clamp(level, 0, 100);
        if (setting_) {
            return;
        }
        const auto sent = static_cast<std::uint32_t>(*wanted_);
        setting_ = ask([station = station_, sent] { return station.set_backlight_brightness(sent); },
                       [this, sent](const kvo::Result<void> &done) {
                           setting_ = false;
                           if (!done) {
                               wanted_.reset();
                               return;
                           }
                           backlight_ = sent;
                           if (*wanted_ != static_cast<int>(sent)) {
                               set_backlight(*wanted_);
                           }
                       });
    }
    void change_backlight(int difference) { set_backlight(backlight() + difference); }

    const kvo::Station &station() const { return station_; }
    const std::vector<kvo::StationDescription> &stations() const { return stations_; }
    const std::vector<Device> &devices() const { return devices_; }
    const std::string &usb() const { return usb_; }
    const std::string &failure() const { return failure_; }  // empty if the service answers
    std::chrono::milliseconds waiting() const                // since when a request has not been answered; 0 if all are
    {
        using namespace std::chrono;
        return unanswered_ == 0 ? milliseconds(0) : duration_cast<milliseconds>(steady_clock::now() - asked_);
    }
    bool has_backlight() const { return backlight_.has_value(); }
    int backlight() const { return setting_ ? *wanted_ : static_cast<int>(backlight_.value_or(0)); }
    unsigned long drawings() const { return drawings_; }
    std::string name() const
    {
        for (const auto &station : stations_) {
            if (station.address == station_.address()) {
                return station.name;
            }
        }
        return "";
    }

private:
    // Asks without waiting. Returns whether show() will be called: with the answer, or after the time limit with an error.
    template <class Request, class Show>
    bool ask(Request request, Show show)
    {
        if (unanswered_++ == 0) {
            asked_ = std::chrono::steady_clock::now();
        }
        const auto submitted = requests_.submit(
            std::move(request),
            [this, show = std::move(show)](auto answer) {
                if (!answer) {
                    new_failure_ = answer.error().reason();
                }
                show(answer);
                end_of_request();
            },
            time_limit);
        if (!submitted) {
            new_failure_ = submitted.error().reason();
            end_of_request();
        }
        return submitted.has_value();
    }

    // The failure is shown until all requests have been answered again.
    void end_of_request()
    {
        if (--unanswered_ == 0) {
            failure_ = std::exchange(new_failure_, "");
        }
    }

    void refresh()
    {
        ask([] { return kvo::Service().description_list(); },
            [this](kvo::Result<std::vector<kvo::StationDescription>> &list) {
                if (list) {
                    stations_ = std::move(*list);
                }
            });
        ask([station = station_] { return station.backlight_brightness_v2(0); },
            [this](const kvo::Result<std::optional<std::uint32_t>> &level) {
                if (level) {
                    backlight_ = *level;
                }
            });
    }

    // This can take some seconds, so it is a request too. The handler is called where the loop calls dispatch(). If no service is running,
    // the events begin when one does.
    void activate_usb()
    {
        const auto submitted = requests_.submit(
            [this] { return kvo::UsbEvents::activate(requests_, [this](const kvo::UsbEvent &event) { return note(event); }); },
            [this](kvo::Result<kvo::UsbEvents> events) {
                if (events) {
                    usb_events_ = std::move(*events);
                } else {
                    usb_ = events.error().reason();
                }
            },
            std::chrono::seconds(20));
        if (!submitted) {
            usb_ = submitted.error().reason();
        }
    }

    bool note(const kvo::UsbEvent &event)
    {
        if (const auto *status = std::get_if<kvo::UsbStatus>(&event)) {
            note(*status);
        } else if (const auto *device = std::get_if<kvo::UsbNewDevice>(&event)) {
            devices_.push_back({device->ip_address, device->ident2, device->text7});
        } else if (const auto *gone = std::get_if<kvo::UsbDeviceRemoved>(&event)) {
            const auto is_gone = [gone](const Device &known) {
                return known.station == gone->ip_address && known.ident == gone->ident2;
            };
            devices_.erase(std::remove_if(devices_.begin(), devices_.end(), is_gone), devices_.end());
        }
        return true;
    }

    void note(kvo::UsbStatus status)
    {
        if (status == kvo::UsbStatus::activated) {
            usb_.clear();
        } else if (is_final(status)) {
            devices_.clear();
            usb_ = status == kvo::UsbStatus::deactivated ? "another program receives the events" : "no events";
        }
    }

    kvo::Requests &requests_;
    kvo::Station station_;
    std::optional<kvo::UsbEvents> usb_events_;
    std::vector<kvo::StationDescription> stations_;
    std::vector<Device> devices_;
    std::string usb_ = "waiting for the service", failure_, new_failure_;
    std::optional<std::uint32_t> backlight_;
    std::optional<int> wanted_;
    bool setting_ = false;
    int unanswered_ = 0;
    std::chrono::steady_clock::time_point asked_;
    unsigned long drawings_ = 0;
};

#endif
