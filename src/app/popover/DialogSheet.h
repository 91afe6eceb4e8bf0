#pragma once

#include "base/AsyncLock.h"
#include "base/Task.h"
#include "model/DialogHost.h"

#include <QObject>
#include <QVariantList>
#include <QtQmlIntegration>
#include <functional>
#include <optional>
#include <stop_token>

namespace ostrel {

/// The alert that stands on the panel. One at a time; the next waits until it is answered. Main thread.
class DialogSheet : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("made by the program")

    Q_PROPERTY(bool isShown READ isShown NOTIFY changed)
    Q_PROPERTY(QString message READ message NOTIFY changed)
    Q_PROPERTY(QString informativeText READ informativeText NOTIFY changed)
    Q_PROPERTY(QStringList buttons READ buttons NOTIFY changed)
    /// Each with label, placeholder, text, and whether it is secure.
    Q_PROPERTY(QVariantList fields READ fields NOTIFY changed)

public:
    /// @return DialogResponse::cancel when stopped; the sheet is gone then
    Task<DialogAlertAnswer> show(DialogAlert alert, std::stop_token stop);

    bool isShown() const { return m_alert.has_value(); }
    QString message() const { return m_alert ? m_alert->message : QString(); }
    QString informativeText() const { return m_alert ? m_alert->informativeText : QString(); }
    QStringList buttons() const { return m_alert ? m_alert->buttons : QStringList(); }
    QVariantList fields() const;

    /// A button was pressed.
    /// @param button the first is 0
    /// @param texts  what stands in the fields
    Q_INVOKABLE void answer(int button, const QStringList &texts);
    /// Escape: the last button, which is the one that changes nothing.
    Q_INVOKABLE void leave(const QStringList &texts);

Q_SIGNALS:
    void changed();

private:
    AsyncLock m_turn;
    std::optional<DialogAlert> m_alert;
    std::function<void(DialogAlertAnswer)> m_resolve;
};

} // namespace ostrel
