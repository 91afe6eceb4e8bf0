#include "support/TestLogind.h"

namespace ostrel {

namespace {

const MockService::Object manager{.service = "org.freedesktop.login1",
                                  .path = "/org/freedesktop/login1",
                                  .interface = "org.freedesktop.login1.Manager"};

QByteArray text(bool value)
{
    return value ? "true" : "false";
}

} // namespace

TestLogind::TestLogind(SystemBus &bus) : m_service(bus, manager, QStringLiteral("logind"))
{
    addSession();
}

QByteArray TestLogind::inhibitors() const
{
    return m_service.call(manager, "ListInhibitors");
}

void TestLogind::requestLock(bool isLock)
{
    m_service.call(session(), isLock ? "Lock" : "Unlock");
}

void TestLogind::setLockedHint(bool isLocked)
{
    m_service.call(session(), "SetLockedHint", '(' + text(isLocked) + ",)");
}

MockService::Object TestLogind::session() const
{
    return {.service = manager.service,
            .path = manager.path + "/session/" + sessionId,
            .interface = "org.freedesktop.login1.Session"};
}

void TestLogind::restart()
{
    m_service.restart();
    addSession();
}

void TestLogind::emitFlag(const char *signal, bool value)
{
    m_service.emitSignal(signal, "b", "[<" + text(value) + ">]");
}

void TestLogind::addSession()
{
    m_service.call({.service = manager.service, .path = manager.path, .interface = "org.freedesktop.DBus.Mock"},
                   "AddSession", QByteArray("('") + sessionId + "','seat0',uint32 1000,'user',true)");
}

} // namespace ostrel
