#include "SheetFixture.h"

using namespace ostrel;

namespace {

const DialogAlert apiKey{.message = QStringLiteral("Vertex AI API key"),
                         .informativeText = QStringLiteral("API keys are best for quick setup."),
                         .buttons = {QStringLiteral("Save Key"), QStringLiteral("Cancel")},
                         .fields = {{.label = QStringLiteral("API key"),
                                     .placeholder = QStringLiteral("Google Cloud API key"),
                                     .text = {},
                                     .secure = true},
                                    {.label = QStringLiteral("Project"),
                                     .placeholder = QStringLiteral("Project ID (optional for express mode)"),
                                     .text = {},
                                     .secure = false}}};

class AlertSheet : public SheetFixture
{
protected:
    /// What can be read in the field that has the keyboard.
    QStringList seenInField() const
    {
        m_view->grabWindow();
        QStringList seen;
        for (const QQuickItem *part : partsOf(*m_view->activeFocusItem())) {
            if (part->inherits("QQuickText") && part->isVisible())
                seen.append(part->property("text").toString());
        }
        return seen;
    }
};

TEST_F(AlertSheet, emptyField_showsItsPlaceholderUntilSomethingIsTyped)
{
    open();
    ask(apiKey);
    EXPECT_EQ(seenInField(), QStringList(QStringLiteral("Google Cloud API key")));
    key(Qt::Key_Tab);
    EXPECT_EQ(seenInField(), QStringList(QStringLiteral("Project ID (optional for express mode)")));
    QTest::keyClick(m_view.get(), 'p');
    EXPECT_EQ(seenInField(), QStringList());
}

TEST_F(AlertSheet, return_answersTheFirstButtonWithWhatWasTyped)
{
    open();
    ask(apiKey);
    QTest::keyClick(m_view.get(), 'k');
    key(Qt::Key_Tab);
    QTest::keyClick(m_view.get(), 'p');
    key(Qt::Key_Return);
    ASSERT_TRUE(m_answer);
    EXPECT_EQ(m_answer->response, DialogResponse::firstButton);
    EXPECT_EQ(m_answer->fields, (QStringList{QStringLiteral("k"), QStringLiteral("p")}));
}

TEST_F(AlertSheet, tab_staysOnTheAlertAndEscapeAnswersItsLastButton)
{
    open();
    ask(apiKey);
    QStringList visited;
    for (int i = 0; i < 4; ++i) {
        key(Qt::Key_Tab);
        visited.append(screen().focused());
    }
    EXPECT_EQ(visited[0], QStringLiteral("Project"));
    EXPECT_EQ(visited[1], QStringLiteral("Save Key"));
    EXPECT_EQ(visited[2], QStringLiteral("Cancel"));
    key(Qt::Key_Escape);
    ASSERT_TRUE(m_answer);
    EXPECT_EQ(m_answer->response, DialogResponse::firstButton + 1);
    EXPECT_EQ(screen().focused(), QStringLiteral("Start recording")) << "the keyboard goes back where it was";
}

} // namespace
