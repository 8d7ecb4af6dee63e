// The window of the panel program with Qt.
#ifndef WINDOW_HPP
#define WINDOW_HPP

#include "panel.hpp"

#include <QFrame>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QPainter>
#include <QPainterPath>
#include <QShortcut>
#include <QSignalBlocker>
#include <QSlider>
#include <QStyle>
#include <QTreeWidget>
#include <QVBoxLayout>
#include <QWidget>

#include <cstdio>
#include <deque>

// How long requests have waited for their answer, for the last seconds. The line moves with each drawing.
class WaitingTime : public QWidget {
public:
    WaitingTime() { setMinimumHeight(96); }

    void add(std::chrono::milliseconds waiting)
    {
        times_.push_back(std::min(waiting, Panel::time_limit));
        if (times_.size() > samples) {
            times_.pop_front();
        }
        update();
    }
    std::chrono::milliseconds last() const { return times_.back(); }
    unsigned long drawings() const { return drawings_; }

protected:
    void paintEvent(QPaintEvent *) override
    {
        ++drawings_;
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        const double right = width() - 1, bottom = height() - 2;
        painter.setPen(QColor("#39424e"));
        for (const double part : {0.0, 0.5, 1.0}) {
            painter.drawLine(QPointF(0, 1 + part * (bottom - 1)), QPointF(right, 1 + part * (bottom - 1)));
        }
        QPolygonF line;
        double x = right - right * static_cast<double>(times_.size() - 1) / (samples - 1);
        for (const auto time : times_) {
            line << QPointF(x, bottom - (bottom - 2) * static_cast<double>(time.count()) /
                                            static_cast<double>(Panel::time_limit.count()));
            x += right / (samples - 1);
        }
        QPainterPath area;
        area.addPolygon(line);
        area.lineTo(right, bottom);
        area.lineTo(line.first().x(), bottom);
        painter.fillPath(area, QColor(240, 170, 60, 60));
        painter.setPen(QPen(QColor("#f0aa3c"), 2));
        painter.drawPolyline(line);
    }

private:
    static constexpr std::size_t samples = 120;
    std::deque<std::chrono::milliseconds> times_{std::chrono::milliseconds(0)};
    unsigned long drawings_ = 0;
};

class Window : public QWidget {
public:
    explicit Window(Panel &panel) : panel_(panel)
    {
        setWindowTitle("Panel");
        setObjectName("window");
        setAttribute(Qt::WA_StyledBackground);
        setStyleSheet(style);
        resize(960, 600);
        connect(new QShortcut(QKeySequence::Quit, this), &QShortcut::activated, this, &QWidget::close);

        auto *left = card("Stations", stations_count_);
        left->addWidget(&stations_);
        prepare(stations_);

        auto *backlight = card("Backlight", level_);
        slider_.setOrientation(Qt::Horizontal);
        slider_.setRange(0, 100);
        slider_.setPageStep(10);
        slider_.setEnabled(false);
        backlight->addWidget(&slider_);
        connect(&slider_, &QSlider::valueChanged, [this](int level) { panel_.set_backlight(level); });

        auto *usb = card("USB devices", devices_count_);
        usb->addWidget(&devices_);
        prepare(devices_);

        auto *service = card("Service", state_);
        failure_.setWordWrap(true);
        failure_.setObjectName("note");
        service->addWidget(&chart_);
        service->addWidget(&failure_);

        auto *right = new QVBoxLayout;
        right->setSpacing(14);
        right->addWidget(backlight->parentWidget());
        right->addWidget(usb->parentWidget(), 1);
        right->addWidget(service->parentWidget());

        name_.setObjectName("name");
        address_.setObjectName("note");
        auto *title = new QHBoxLayout;
        title->addWidget(&name_);
        title->addStretch();
        title->addWidget(&address_);

        auto *columns = new QHBoxLayout;
        columns->setSpacing(14);
        columns->addWidget(left->parentWidget(), 1);
        columns->addLayout(right, 1);
        auto *all = new QVBoxLayout(this);
        all->setContentsMargins(20, 14, 20, 20);
        all->setSpacing(12);
        all->addLayout(title);
        all->addLayout(columns, 1);
    }

    void draw()
    {
        name_.setText(QString::fromStdString(panel_.name()));
        address_.setText("station " + QString::fromStdString(panel_.station().address().to_string()));
        draw_stations();
        draw_backlight();
        draw_devices();
        const bool answers = panel_.failure().empty();
        state_.setText(answers ? "answers" : "does not answer");
        mark(state_, answers ? "good" : "bad");
        failure_.setText(answers ? "time that a request waits for its answer, 0 to 1 s"
                                 : QString::fromStdString(panel_.failure()));
        chart_.add(panel_.waiting());
    }

    void print() const
    {
        std::printf("drawing %lu\n%s\nStations %s\n", chart_.drawings(), name_.text().toUtf8().constData(),
                    stations_count_.text().toUtf8().constData());
        print(stations_);
        std::printf("Backlight %s\nUSB devices %s\n", level_.text().toUtf8().constData(),
                    devices_count_.text().toUtf8().constData());
        print(devices_);
        std::printf("Service %s, waiting %ld ms\n%s\n", state_.text().toUtf8().constData(),
                    static_cast<long>(chart_.last().count()), failure_.text().toUtf8().constData());
        std::puts("");
        std::fflush(stdout);
    }

private:
    static constexpr const char *style = R"(
        #window { background: #171b20; }
        * { color: #e6eaf0; font-family: "DejaVu Sans"; font-size: 15px; }
        #card { background: #22282f; border-radius: 10px; }
        #heading { color: #9aa5b4; font-size: 13px; font-weight: bold; }
        #name { font-size: 26px; font-weight: bold; }
        #note { color: #9aa5b4; font-size: 13px; }
        #value[mark="good"] { color: #5fd38d; }
        #value[mark="bad"] { color: #f0aa3c; }
        QTreeWidget { background: transparent; border: none; }
        QTreeWidget::item { height: 37px; }
        QScrollBar:vertical { background: transparent; width: 8px; }
        QScrollBar::handle:vertical { background: #3d4753; border-radius: 4px; min-height: 30px; }
        QScrollBar::add-line, QScrollBar::sub-line { height: 0; }
        QSlider { min-height: 34px; }
        QSlider::groove:horizontal { background: #39424e; height: 8px; border-radius: 4px; }
        QSlider::sub-page:horizontal { background: #4aa8e0; height: 8px; border-radius: 4px; }
        QSlider::handle:horizontal { background: #e6eaf0; width: 26px; margin: -9px 0; border-radius: 13px; }
    )";

    static void print(const QTreeWidget &list)
    {
        for (int row = 0; row < list.topLevelItemCount(); ++row) {
            const auto *item = list.topLevelItem(row);
            std::printf("%s  %s\n", item->text(0).toUtf8().constData(), item->text(1).toUtf8().constData());
        }
    }

    // A box with a heading on the left and a value on the right.
    QVBoxLayout *card(const QString &heading, QLabel &value)
    {
        auto *box = new QFrame(this);
        box->setObjectName("card");
        auto *layout = new QVBoxLayout(box);
        layout->setContentsMargins(16, 12, 16, 14);
        auto *top = new QHBoxLayout;
        auto *label = new QLabel(heading);
        label->setObjectName("heading");
        value.setObjectName("value");
        top->addWidget(label);
        top->addStretch();
        top->addWidget(&value);
        layout->addLayout(top);
        return layout;
    }

    static void mark(QLabel &label, const char *name)
    {
        if (label.property("mark").toString() != name) {
            label.setProperty("mark", name);
            label.style()->polish(&label);
        }
    }

    // Lists have two columns: a station's address, and a text.
    static void prepare(QTreeWidget &list)
    {
        list.setHeaderHidden(true);
        list.setColumnCount(2);
        list.setColumnWidth(0, 130);
        list.setRootIsDecorated(false);
        list.setFocusPolicy(Qt::NoFocus);
        list.setSelectionMode(QAbstractItemView::NoSelection);
    }

    // Changes only what is different, so that the list stays where the user has scrolled it.
    static void fill(QTreeWidget &list, const std::vector<std::pair<std::string, std::string>> &rows)
    {
        const int count = static_cast<int>(rows.size());
        while (list.topLevelItemCount() > count) {
            delete list.takeTopLevelItem(list.topLevelItemCount() - 1);
        }
        for (int row = 0; row < count; ++row) {
            auto *item = row < list.topLevelItemCount() ? list.topLevelItem(row) : new QTreeWidgetItem(&list);
            const auto &[address, text] = rows[static_cast<std::size_t>(row)];
            item->setText(0, QString::fromStdString(address));
            item->setForeground(0, QColor("#9aa5b4"));
            item->setText(1, QString::fromStdString(text));
        }
    }

    void draw_stations()
    {
        std::vector<std::pair<std::string, std::string>> rows;
        for (const auto &station : panel_.stations()) {
            rows.emplace_back(station.address.to_string(), station.name);
        }
        fill(stations_, rows);
        stations_count_.setText(QString::number(rows.size()));
    }

    void draw_devices()
    {
        std::vector<std::pair<std::string, std::string>> rows;
        for (const auto &device : panel_.devices()) {
            rows.emplace_back(device.station, device.name + " (" + device.ident + ")");
        }
        fill(devices_, rows);
        devices_count_.setText(rows.empty() && !panel_.usb().empty() ? QString::fromStdString(panel_.usb())
                                                                     : QString::number(rows.size()));
    }

    void draw_backlight()
    {
        level_.setText(panel_.has_backlight() ? QString::number(panel_.backlight()) + " %" : "unknown");
        slider_.setEnabled(panel_.has_backlight());
        if (!slider_.isSliderDown()) {
            const QSignalBlocker not_the_user(slider_);
            slider_.setValue(panel_.backlight());
        }
    }

    Panel &panel_;
    QLabel name_, address_, stations_count_, level_, devices_count_, state_, failure_;
    QTreeWidget stations_, devices_;
    QSlider slider_;
    WaitingTime chart_;
};

#endif
