// The panel program with Qt 5. Usage: example_panel_qt [--print] [STATION]
//   --print  also print the texts of the window at each drawing
#include "window.hpp"

#include <QApplication>
#include <QSocketNotifier>
#include <QTimer>

int main(int argc, char **argv)
{
    QApplication application(argc, argv);
    QStringList arguments = application.arguments().mid(1);
    const bool print = arguments.removeAll("--print") > 0;

    auto requests = kvo::Requests::create();
    const auto address = kvo::Address::parse(arguments.value(0, "10.0.0.5").toStdString());
    if (!requests || !address) {
        qCritical("%s", (requests ? address.error() : requests.error()).message().c_str());
        return 1;
    }
    Panel panel(*requests, kvo::Station(*address));
    Window window(panel);

    QSocketNotifier replies(requests->descriptor(), QSocketNotifier::Read);
    QObject::connect(&replies, &QSocketNotifier::activated, [&] { requests->dispatch(); });

    QTimer clock;
    QObject::connect(&clock, &QTimer::timeout, [&] {
        panel.draw_next();
        window.draw();
        if (print) {
            window.print();
        }
    });
    clock.start(Panel::frame);

    window.show();
    return QApplication::exec();
}
