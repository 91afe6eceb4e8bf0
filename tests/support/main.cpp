#include <QCoreApplication>
#include <QTemporaryDir>

#include <gmock/gmock.h>

/// Every test program runs in a home folder of its own, so that no test ever sees the user's files or leaves any.
int main(int argc, char **argv)
{
    const QTemporaryDir home;
    qputenv("HOME", home.path().toLocal8Bit());
    for (const char *variable : {"XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_CACHE_HOME", "XDG_STATE_HOME"})
        qunsetenv(variable);
    QCoreApplication application(argc, argv);
    testing::InitGoogleMock(&argc, argv);
    return RUN_ALL_TESTS();
}
