// The screen and the keys of the panel programs without a window.
#ifndef TERMINAL_HPP
#define TERMINAL_HPP

#include "panel.hpp"

#include <cstdio>
#include <string>
#include <termios.h>
#include <unistd.h>

class Terminal {
public:
    Terminal()
    {
        if (is_terminal_ && tcgetattr(STDIN_FILENO, &before_) == 0) {
            termios keys = before_;
            keys.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO | ISIG);  // each key at once, and Ctrl-C as a key
            tcsetattr(STDIN_FILENO, TCSANOW, &keys);
            std::fputs("\033[?25l\033[2J", stdout);  // without cursor, empty
        }
    }
    ~Terminal()
    {
        if (is_terminal_) {
            std::fputs("\033[?25h", stdout);
            tcsetattr(STDIN_FILENO, TCSANOW, &before_);
        }
    }
    Terminal(const Terminal &) = delete;
    Terminal &operator=(const Terminal &) = delete;

    // Draws the screen over the last one. In a file or a pipe, the screens follow each other.
    void draw(const Panel &panel) const
    {
        std::fputs(is_terminal_ ? "\033[H" : "", stdout);
        for (const std::string &line : screen(panel)) {
            std::printf("%s%s\n", line.c_str(), is_terminal_ ? "\033[K" : "");
        }
        std::fputs(is_terminal_ ? "\033[J" : "\n", stdout);
        std::fflush(stdout);
    }

    // Handles the keys that were pressed. Returns false if the program should end.
    static bool handle_keys(Panel &panel, const char *keys, ssize_t count)
    {
        for (ssize_t at = 0; at < count; ++at) {
            switch (keys[at]) {
            case '+': panel.change_backlight(10); break;
            case '-': panel.change_backlight(-10); break;
            case 'q':
            case '\x03': return false;
            default: break;
            }
        }
        return count > 0;  // not at the end of the input
    }
    static bool read_keys(Panel &panel)
    {
        char keys[64];
        return handle_keys(panel, keys, read(STDIN_FILENO, keys, sizeof keys));
    }

private:
    static constexpr std::size_t columns = 80;
    static constexpr std::size_t rows = 8;  // stations

    static std::vector<std::string> screen(const Panel &panel)
    {
        std::vector<std::string> lines;
        const auto add = [&lines](const std::string &line) { lines.push_back(cut(line, columns)); };
        std::string title = cut(panel.station().address().to_string() + "  " + panel.name(), columns - 20);
        title.resize(title.size() + columns - 16 - width(title), ' ');
        add(title + "drawing " + std::to_string(panel.drawings()));
        add(std::string(columns, '-'));
        add("stations   " + std::to_string(panel.stations().size()));
        for (std::size_t at = 0; at < std::min(rows, panel.stations().size()); ++at) {
            const auto &station = panel.stations()[at];
            std::string address = station.address.to_string();
            address.resize(17, ' ');
            add("           " + address + station.name);
        }
        if (panel.stations().size() > rows) {
            add("           ... and " + std::to_string(panel.stations().size() - rows) + " more");
        }
        add("");
        add("backlight  " + (panel.has_backlight() ? bar(panel.backlight()) : "unknown"));
        std::string label = "USB        ";
        for (const auto &device : panel.devices()) {
            add(label + device.station + "  " + device.name + " (" + device.ident + ")");
            label.assign(label.size(), ' ');
        }
        if (panel.devices().empty()) {
            add(label + (panel.usb().empty() ? "no device" : panel.usb()));
        }
        add("service    " + (panel.failure().empty() ? "answers" : panel.failure()));
        add("waiting    " + std::to_string(panel.waiting().count()) + " ms");
        add("");
        add("+ brighter   - darker   q end");
        return lines;
    }

    static std::string bar(int percent)
    {
        const auto filled = static_cast<std::size_t>(percent) / 5;
        return "[" + std::string(filled, '#') + std::string(20 - filled, '.') + "] " + std::to_string(percent) + " %";
    }

    // The number of characters of a text in UTF-8, and its beginning.
    static bool begins_character(char byte) { return (static_cast<unsigned char>(byte) & 0xC0U) != 0x80U; }
    static std::size_t width(const std::string &text)
    {
        return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), begins_character));
    }
    static std::string cut(const std::string &text, std::size_t length)
    {
        std::size_t characters = 0;
        for (std::size_t at = 0; at < text.size(); ++at) {
            if (begins_character(text[at]) && characters++ == length) {
                return text.substr(0, at);
            }
        }
        return text;
    }

    bool is_terminal_ = isatty(STDIN_FILENO) == 1 && isatty(STDOUT_FILENO) == 1;
    termios before_{};
};

#endif
