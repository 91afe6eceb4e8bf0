#pragma once

#include <QApplication>

#include <chrono>

/// The application of the tray program, with a watch on its main thread. It is compiled into src/panel.cpp in place of
/// QApplication, so that what is measured is the program itself, and says on standard error, in milliseconds:
///
///     bench icon 214.0          from the program's start until the icon was drawn in the tray
///     bench first-frame 31.2    from a click on the icon until the panel's first frame was on the screen
///     bench frame 6.1           how long the main thread was busy for a frame: events, animation, layout, rendering
///
/// The start is BENCH_STARTED_NS in the environment, nanoseconds of the monotonic clock.
class MeasuredApplication : public QApplication
{
public:
    MeasuredApplication(int &argc, char **argv) : QApplication(argc, argv) {}

    bool notify(QObject *receiver, QEvent *event) override;

private:
    using Time = std::chrono::steady_clock::time_point;

    void lookAt(QObject *receiver, const QEvent &event);
    void onFrame();

    int m_depth = 0;
    std::chrono::steady_clock::duration m_busy{};
    bool m_hasDrawnFrame = false;
    bool m_hasDrawnIcon = false;
    Time m_clicked;
    bool m_awaitsFirstFrame = false;
    QObject *m_panel = nullptr;
};

#define QApplication MeasuredApplication
