#include "app/tray/QuitRequests.h"

#include <QCoreApplication>
#include <QEvent>
#include <QEventLoop>
#include <QTimer>

#include <gtest/gtest.h>

using namespace ostrel;
using namespace std::chrono_literals;

namespace {

/// Whether the event loop ends of a request, as that of a session manager.
bool endsOfARequest()
{
    bool isAsked = false;
    QTimer::singleShot(0, [&isAsked] {
        QEvent quit(QEvent::Quit);
        QCoreApplication::sendEvent(QCoreApplication::instance(), &quit);
        isAsked = true;
        // Behind whatever the request has brought about.
        QTimer::singleShot(0, [] { QCoreApplication::exit(7); });
    });
    const int status = QCoreApplication::exec();
    EXPECT_TRUE(isAsked);
    return status == 0;
}

TEST(QuitRequests, nobodyInBetween_endTheProgram)
{
    EXPECT_TRUE(endsOfARequest());
}

TEST(QuitRequests, thatAreGranted_endTheProgram)
{
    const QuitRequests requests([] { return true; });
    EXPECT_TRUE(endsOfARequest());
}

TEST(QuitRequests, thatAreNotGranted_areToldAndLeaveItRunning)
{
    int told = 0;
    const QuitRequests requests([&told] {
        ++told;
        return false;
    });
    EXPECT_FALSE(endsOfARequest());
    EXPECT_FALSE(endsOfARequest());
    EXPECT_EQ(told, 2);
}

TEST(QuitRequests, otherEvents_areNobodysBusiness)
{
    const QuitRequests requests([] {
        ADD_FAILURE() << "is no request";
        return false;
    });
    QEvent other(QEvent::ApplicationActivate);
    QCoreApplication::sendEvent(QCoreApplication::instance(), &other);
    QObject object;
    QEvent quit(QEvent::Quit);
    QCoreApplication::sendEvent(&object, &quit);
}

} // namespace
