#pragma once

#include "support/TestProcess.h"

#include <QByteArray>
#include <QProcessEnvironment>
#include <QString>
#include <QTemporaryDir>

#include <memory>
#include <optional>

namespace ostrel {

/// A real keyring on a session bus of the test's own, whose home folder holds its collections. Main thread.
class TestKeyring
{
public:
    enum class Collection {
        Unlocked, ///< a default collection, as after a login; made when there is none
        Missing,  ///< none yet, as when nobody has ever set it up
    };

    /// @param environment of the session that it belongs to
    explicit TestKeyring(QProcessEnvironment environment, Collection collection = Collection::Unlocked);

    void lock();
    /// Ends it and starts it anew with the password.
    void unlock();

    /// What another program reads of an item.
    std::optional<QByteArray> item(const QString &service) const;
    /// Keeps an item as another program would, which knows nothing of our schema.
    void store(const QString &service, const QString &printfFormat, const QStringList &moreAttributes = {});
    /// All that is told about an item but its secret.
    QByteArray description(const QString &service) const;

    TestProcess &daemon() { return *m_daemon; }

private:
    struct Output {
        int status = -1;
        QByteArray text;
    };

    void start(Collection collection);
    TestProcess::Command command(const QString &program, const QStringList &arguments) const;
    Output run(const TestProcess::Command &command) const;
    bool isOnTheBus() const;

    QTemporaryDir m_logs;
    const QProcessEnvironment m_environment;
    std::unique_ptr<TestProcess> m_daemon;
};

} // namespace ostrel
