#pragma once

#include <QObject>

#include <functional>

namespace ostrel {

/// The requests to end the program that come through the toolkit: a session manager's at a logout, and our own. The
/// toolkit would grant each at once, with whatever is not yet delivered. Needs a QGuiApplication; main thread.
class QuitRequests final : public QObject
{
public:
    /// @param grant called for each; whether the program ends now
    explicit QuitRequests(std::function<bool()> grant);

    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    const std::function<bool()> m_grant;
};

} // namespace ostrel
