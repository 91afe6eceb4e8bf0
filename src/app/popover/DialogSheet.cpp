#include "app/popover/DialogSheet.h"

#include "base/Op.h"

#include <QVariantMap>
#include <utility>

namespace ostrel {

Task<DialogAlertAnswer> DialogSheet::show(DialogAlert alert, std::stop_token stop)
{
    const auto turn = co_await m_turn.acquire(stop);
    if (!turn)
        co_return DialogAlertAnswer{};
    m_alert = std::move(alert);
    Q_EMIT changed();
    auto answer = co_await Op<DialogAlertAnswer>(stop, [this](const Op<DialogAlertAnswer>::Resolve &resolve) {
        m_resolve = resolve;
        return [] {};
    });
    m_resolve = nullptr;
    m_alert.reset();
    Q_EMIT changed();
    co_return answer.value_or(DialogAlertAnswer{});
}

QVariantList DialogSheet::fields() const
{
    QVariantList fields;
    if (!m_alert)
        return fields;
    for (const DialogField &field : m_alert->fields)
        fields.append(QVariantMap{{QStringLiteral("label"), field.label},
                                  {QStringLiteral("placeholder"), field.placeholder},
                                  {QStringLiteral("text"), field.text},
                                  {QStringLiteral("secure"), field.secure}});
    return fields;
}

void DialogSheet::answer(int button, const QStringList &texts)
{
    if (m_resolve && button >= 0 && button < m_alert->buttons.size())
        std::exchange(m_resolve, nullptr)({.response = DialogResponse::firstButton + button, .fields = texts});
}

void DialogSheet::leave(const QStringList &texts)
{
    answer(int(buttons().size()) - 1, texts);
}

} // namespace ostrel
