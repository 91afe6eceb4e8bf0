// What links the widgets expects their application, Qt's test keys among it.
#ifdef QT_WIDGETS_LIB
#include <QApplication>
using Application = QApplication;
#else
#include <QGuiApplication>
using Application = QGuiApplication;
#endif
#include <QTemporaryDir>

#include <gmock/gmock.h>

/// As the other suites' main, with windows that no desktop is needed for, drawn by the processor alone.
int main(int argc, char **argv)
{
    const QTemporaryDir home;
    qputenv("HOME", home.path().toLocal8Bit());
    for (const char *variable : {"XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_CACHE_HOME", "XDG_STATE_HOME"})
        qunsetenv(variable);
    qputenv("QT_QPA_PLATFORM", "offscreen");
    qputenv("QT_QUICK_BACKEND", "software");
    qputenv("LC_ALL", "C.UTF-8");
    // The same fonts, drawn alike, and the same hours on every machine.
    qputenv("FONTCONFIG_FILE", OSTREL_TEST_FONTS);
    qputenv("TZ", "UTC");
    const Application application(argc, argv);
    testing::InitGoogleMock(&argc, argv);
    return RUN_ALL_TESTS();
}
