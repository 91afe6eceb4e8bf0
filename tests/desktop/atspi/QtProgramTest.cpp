#include "platform/atspi/AtspiAccess.h"
#include "platform/atspi/AtspiTree.h"

#include "context/AccessibilityContextReader.h"
#include "support/Printers.h"
#include "support/VirtualDesktop.h"

#include <gtest/gtest.h>

namespace ostrel {
namespace {

using namespace std::chrono_literals;

QString text(const char *utf8)
{
    return QString::fromUtf8(utf8);
}

/// A real program of Qt's, which tells of itself when accessibility was switched on before it started.
class AtspiTreeOfAQtProgram : public testing::Test
{
protected:
    AtspiTreeOfAQtProgram()
    {
        m_desktop.startAccessibility();
        m_desktop.enter();
    }

    void launch()
    {
        m_program = &m_desktop.start(text(OSTREL_BUILD_DIR "/tests/atspi_widgets_program"));
        m_window = m_desktop.waitForWindow(m_title);
        m_desktop.activate(m_window);
    }
    ActiveApplicationContextDetails sample()
    {
        m_tree.beginSample(QDeadlineTimer(400ms));
        return AccessibilityContextReader(m_tree).read(qint32(m_program->pid()), {});
    }
    void awaitFocus(const char *control)
    {
        waitUntil(text("the focus on a ") + text(control), 10s,
                  [&] { return sample().focusedElement == text(control); });
    }

    const QString m_title = text("Print \u2013 letter.odt");
    VirtualDesktop m_desktop{{.windowManager = true}};
    AtspiAccess m_access;
    AtspiTree m_tree;
    TestProcess *m_program = nullptr;
    VirtualDesktop::Window m_window = 0;
};

TEST_F(AtspiTreeOfAQtProgram, tabThroughItsControls_tellsTheWindowAndEachOfThem)
{
    ASSERT_TRUE(m_access.request());
    launch();
    // Qt calls a button with a menu a button. The last control, a tree, has no name among the roles.
    for (const char *control :
         {"text field", "text field", "text area", "combo box", "Both sides checkbox", "Colour radio button", "slider",
          "Print button", "More button", "Page tab group", "table"}) {
        awaitFocus(control);
        m_desktop.key(text("Tab"));
    }
    waitUntil(text("a control without a name"), 10s, [&] { return !sample().focusedElement; });
    const auto details = sample();
    EXPECT_EQ(details.windowTitle, m_title);
    EXPECT_EQ(details.website, std::nullopt);
    EXPECT_EQ(details.pageTitle, std::nullopt);
}

TEST_F(AtspiTreeOfAQtProgram, programThatHangs_isAbsentUntilItGoesOn)
{
    ASSERT_TRUE(m_access.request());
    launch();
    awaitFocus("text field");
    m_program->freeze();
    EXPECT_EQ(sample().focusedElement, std::nullopt);
    m_program->thaw();
    awaitFocus("text field");
}

} // namespace
} // namespace ostrel
