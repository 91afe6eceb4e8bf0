#include "app/popover/DialogSheet.h"

#include "base/TaskScope.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace ostrel {
namespace {

DialogAlert question(const QString &message)
{
    return {.message = message,
            .informativeText = QStringLiteral("You have unsaved settings changes."),
            .buttons = {QStringLiteral("Save"), QStringLiteral("Discard"), QStringLiteral("Cancel")},
            .fields = {{.label = QStringLiteral("API key"),
                        .placeholder = QStringLiteral("Google Cloud API key"),
                        .text = QStringLiteral("before"),
                        .secure = true}}};
}

class DialogSheetTest : public testing::Test
{
protected:
    void ask(const QString &message)
    {
        m_tasks.spawn([this, message](std::stop_token stop) { return note(message, std::move(stop)); });
    }
    Task<> note(QString message, std::stop_token stop)
    {
        const auto answer = co_await m_sheet.show(question(message), stop);
        m_answers.append(QStringLiteral("%1: %2 %3").arg(message).arg(answer.response).arg(answer.fields.join(u'|')));
    }

    DialogSheet m_sheet;
    QStringList m_answers;
    TaskScope m_tasks;
};

TEST_F(DialogSheetTest, alert_isShownUntilAButtonAnswersIt)
{
    EXPECT_FALSE(m_sheet.isShown());
    ask(QStringLiteral("one"));
    EXPECT_TRUE(m_sheet.isShown());
    EXPECT_EQ(m_sheet.message(), QStringLiteral("one"));
    EXPECT_EQ(m_sheet.informativeText(), QStringLiteral("You have unsaved settings changes."));
    EXPECT_EQ(m_sheet.buttons().size(), 3);
    const QVariantMap field = m_sheet.fields().constFirst().toMap();
    EXPECT_EQ(field[QStringLiteral("label")], QStringLiteral("API key"));
    EXPECT_EQ(field[QStringLiteral("placeholder")], QStringLiteral("Google Cloud API key"));
    EXPECT_EQ(field[QStringLiteral("text")], QStringLiteral("before"));
    EXPECT_EQ(field[QStringLiteral("secure")], true);

    int changes = 0;
    QObject::connect(&m_sheet, &DialogSheet::changed, [&changes] { ++changes; });
    m_sheet.answer(1, {QStringLiteral("typed")});
    EXPECT_EQ(m_answers, QStringList(QStringLiteral("one: 1001 typed")));
    EXPECT_FALSE(m_sheet.isShown());
    EXPECT_EQ(m_sheet.message(), QString());
    EXPECT_EQ(changes, 1);
}

TEST_F(DialogSheetTest, escape_answersTheLastButton)
{
    ask(QStringLiteral("one"));
    m_sheet.leave({});
    EXPECT_EQ(m_answers, QStringList(QStringLiteral("one: 1002 ")));
}

TEST_F(DialogSheetTest, secondAlert_waitsForTheFirst)
{
    ask(QStringLiteral("one"));
    ask(QStringLiteral("two"));
    EXPECT_EQ(m_sheet.message(), QStringLiteral("one"));
    m_sheet.answer(0, {});
    EXPECT_EQ(m_sheet.message(), QStringLiteral("two"));
    m_sheet.answer(0, {});
    EXPECT_EQ(m_answers, QStringList({QStringLiteral("one: 1000 "), QStringLiteral("two: 1000 ")}));
}

TEST_F(DialogSheetTest, stopped_isTakenAwayAndAnswersCancel)
{
    ask(QStringLiteral("one"));
    m_tasks.cancelAll();
    EXPECT_FALSE(m_sheet.isShown());
    EXPECT_EQ(m_answers, QStringList(QStringLiteral("one: 0 ")));
    m_sheet.answer(0, {});
    EXPECT_EQ(m_answers.size(), 1) << "nobody waits any more";
}

TEST_F(DialogSheetTest, buttonThatIsNotThere_answersNothing)
{
    m_sheet.answer(0, {});
    ask(QStringLiteral("one"));
    m_sheet.answer(3, {});
    m_sheet.answer(-1, {});
    EXPECT_TRUE(m_sheet.isShown());
    m_sheet.answer(0, {});
    m_sheet.answer(0, {});
    EXPECT_EQ(m_answers.size(), 1);
}

} // namespace
} // namespace ostrel
