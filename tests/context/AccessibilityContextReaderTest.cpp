#include "context/AccessibilityContextReader.h"
#include "support/FakeAccessibilityTree.h"
#include "support/Printers.h"

#include <gtest/gtest.h>

namespace ostrel {
namespace {

using Children = QList<AccessibilityElementPtr>;

QString text(const char *utf8)
{
    return QString::fromUtf8(utf8);
}

class AccessibilityReading : public testing::Test
{
protected:
    AccessibilityReading() { m_tree.beginSample(QDeadlineTimer(QDeadlineTimer::Forever)); }

    AccessibilityElementPtr control(const char *role, const char *title)
    {
        return m_tree.add({{text("AXRole"), text(role)}, {text("AXTitle"), text(title)}});
    }
    std::optional<QString> describe(const char *role, const QString &title)
    {
        return m_reader.describeFocusedElement(m_tree.add({{text("AXRole"), text(role)}, {text("AXTitle"), title}}));
    }
    AccessibilityElementPtr webArea(const char *title)
    {
        return m_tree.add({{text("AXRole"), text("AXWebArea")},
                           {text("AXTitle"), text(title)},
                           {text("AXURL"), QUrl(text("https://example.com/"))}});
    }
    AccessibilityElementPtr parentOf(const Children &children)
    {
        return m_tree.add({{text("AXRole"), text("AXGroup")}, {text("AXChildren"), children}});
    }
    /// An element whose only way down to the other is `levels` long.
    AccessibilityElementPtr ancestorOf(AccessibilityElementPtr element, int levels)
    {
        for (int i = 0; i < levels; ++i)
            element = parentOf({element});
        return element;
    }
    /// Every element that is looked at is asked for its role, once.
    int examinedElements() const { return m_tree.readCount(text("AXRole")); }

    FakeAccessibilityTree m_tree;
    AccessibilityContextReader m_reader{m_tree};
    const AccessibilityContextReader::WebContext m_examplePage{.url = text("https://example.com/"),
                                                               .title = text("Page")};
};

TEST_F(AccessibilityReading, roleName_isThatOfTheTable)
{
    const QList<std::pair<const char *, const char *>> table = {{"AXButton", "button"},
                                                                {"AXCheckBox", "checkbox"},
                                                                {"AXComboBox", "combo box"},
                                                                {"AXLink", "link"},
                                                                {"AXMenuButton", "menu button"},
                                                                {"AXPopUpButton", "popup button"},
                                                                {"AXRadioButton", "radio button"},
                                                                {"AXSearchField", "search field"},
                                                                {"AXSlider", "slider"},
                                                                {"AXStaticText", "text"},
                                                                {"AXTabGroup", "tab group"},
                                                                {"AXTable", "table"},
                                                                {"AXTextArea", "text area"},
                                                                {"AXTextField", "text field"},
                                                                {"AXWebArea", "web page"}};
    for (const auto &[role, name] : table)
        EXPECT_EQ(AccessibilityContextReader::humanRoleName(text(role)), text(name));
}

TEST_F(AccessibilityReading, roleNameOfAnyOtherRole_isNone)
{
    for (const char *role : {"", "AXGroup", "axbutton", "AXButton ", "AXWindow"})
        EXPECT_EQ(AccessibilityContextReader::humanRoleName(text(role)), std::nullopt) << role;
    EXPECT_EQ(AccessibilityContextReader::humanRoleName(std::nullopt), std::nullopt);
}

TEST_F(AccessibilityReading, stringValueOfTexts_isNormalised)
{
    EXPECT_EQ(AccessibilityContextReader::stringValue(text(" a \n b ")), text("a b"));
    EXPECT_EQ(AccessibilityContextReader::stringValue(AttributedText{.plainText = text("\tc")}), text("c"));
    EXPECT_EQ(AccessibilityContextReader::stringValue(QUrl(text("https://example.com/a b"))),
              text("https://example.com/a%20b"));
}

TEST_F(AccessibilityReading, stringValueOfAnythingElse_isNone)
{
    const AccessibilityElementPtr element = control("AXButton", "OK");
    for (const AccessibilityValue &value :
         {AccessibilityValue(), AccessibilityValue(text(" ")), AccessibilityValue(QUrl()),
          AccessibilityValue(QPointF(1, 2)), AccessibilityValue(QSizeF(1, 2)), AccessibilityValue(element),
          AccessibilityValue(Children{element})})
        EXPECT_EQ(AccessibilityContextReader::stringValue(value), std::nullopt) << value.index();
}

TEST_F(AccessibilityReading, attributeOfAnotherType_isNone)
{
    const AccessibilityElementPtr child = control("AXButton", "OK");
    const auto name = text("AXPosition");
    const auto window = m_tree.add({{name, child}});
    EXPECT_EQ(m_reader.elementAttribute(window, name), child);
    EXPECT_EQ(m_reader.pointAttribute(window, name), std::nullopt);
    EXPECT_EQ(m_reader.sizeAttribute(window, name), std::nullopt);
    m_tree.set(window, name, QPointF(1, 2));
    EXPECT_EQ(m_reader.elementAttribute(window, name), nullptr);
    EXPECT_EQ(m_reader.pointAttribute(window, name), QPointF(1, 2));
    EXPECT_EQ(m_reader.sizeAttribute(window, name), std::nullopt);
    m_tree.set(window, name, QSizeF(3, 4));
    EXPECT_EQ(m_reader.pointAttribute(window, name), std::nullopt);
    EXPECT_EQ(m_reader.sizeAttribute(window, name), QSizeF(3, 4));
    m_tree.set(window, name, Children{child});
    EXPECT_EQ(m_reader.elementAttribute(window, name), nullptr);
}

TEST_F(AccessibilityReading, noFocusedElement_isNone)
{
    EXPECT_EQ(m_reader.describeFocusedElement(nullptr), std::nullopt);
}

TEST_F(AccessibilityReading, focusedButton_isItsTitleAndRole)
{
    EXPECT_EQ(describe("AXButton", text("OK")), text("OK button"));
    EXPECT_EQ(describe("AXLink", text(" Read\nmore ")), text("Read more link"));
}

TEST_F(AccessibilityReading, titleThatNamesTheRoleInAnyCase_standsAlone)
{
    EXPECT_EQ(describe("AXButton", text("The red BUTTON")), text("The red BUTTON"));
    EXPECT_EQ(describe("AXRadioButton", text("Radio Button 3")), text("Radio Button 3"));
}

TEST_F(AccessibilityReading, titleOfEightyCharacters_isKept)
{
    EXPECT_EQ(describe("AXButton", QString(80, u'a')), QString(80, u'a') + text(" button"));
}

TEST_F(AccessibilityReading, titleOfEightyOneCharacters_isDropped)
{
    EXPECT_EQ(describe("AXButton", QString(81, u'a')), text("button"));
    EXPECT_EQ(describe("AXGroup", QString(81, u'a')), std::nullopt);
}

TEST_F(AccessibilityReading, titleOfCharactersMadeOfSeveralCodePoints_isCountedAsItIsRead)
{
    const QString accented = text("e\u0301");
    const QString flag = text("\U0001F1F3\U0001F1F4");
    EXPECT_EQ(describe("AXButton", accented.repeated(80)), accented.repeated(80) + text(" button"));
    EXPECT_EQ(describe("AXButton", flag.repeated(80)), flag.repeated(80) + text(" button"));
    EXPECT_EQ(describe("AXButton", flag.repeated(81)), text("button"));
}

TEST_F(AccessibilityReading, noTitle_descriptionIsTheLabel)
{
    const auto button = m_tree.add(
        {{text("AXRole"), text("AXButton")}, {text("AXTitle"), text(" ")}, {text("AXDescription"), text("Close")}});
    EXPECT_EQ(m_reader.describeFocusedElement(button), text("Close button"));
}

TEST_F(AccessibilityReading, titleThatIsTooLong_isNotReplacedByTheDescription)
{
    const auto button = m_tree.add({{text("AXRole"), text("AXButton")},
                                    {text("AXTitle"), QString(81, u'a')},
                                    {text("AXDescription"), text("Close")}});
    EXPECT_EQ(m_reader.describeFocusedElement(button), text("button"));
}

TEST_F(AccessibilityReading, textInputNamedSearchInAnyCase_isASearchField)
{
    EXPECT_EQ(describe("AXTextField", text("SEARCH the web")), text("search field"));
    EXPECT_EQ(describe("AXTextArea", text("Research notes")), text("search field"));
}

TEST_F(AccessibilityReading, labelOfATextInput_isNeverShown)
{
    EXPECT_EQ(describe("AXTextField", text("Message to Ann")), text("text field"));
    EXPECT_EQ(describe("AXTextArea", text("Message to Ann")), text("text area"));
    EXPECT_EQ(describe("AXTextField", QString(81, u'a') + text("search")), text("text field"));
    EXPECT_EQ(describe("AXTextArea", {}), text("text area"));
}

TEST_F(AccessibilityReading, comboBox_isNamedWithoutItsLabel)
{
    EXPECT_EQ(describe("AXComboBox", text("Country")), text("combo box"));
}

TEST_F(AccessibilityReading, searchFieldOfItsOwnRole_keepsItsLabel)
{
    EXPECT_EQ(describe("AXSearchField", text("Find")), text("Find search field"));
    EXPECT_EQ(describe("AXSearchField", text("Mail Search Field")), text("Mail Search Field"));
}

TEST_F(AccessibilityReading, unknownRole_isTheLabelAlone)
{
    EXPECT_EQ(describe("AXGroup", text("Toolbar")), text("Toolbar"));
    EXPECT_EQ(m_reader.describeFocusedElement(m_tree.add({})), std::nullopt);
}

TEST_F(AccessibilityReading, unlabelledControl_isItsRole)
{
    EXPECT_EQ(describe("AXSlider", {}), text("slider"));
}

TEST_F(AccessibilityReading, webAreaWithAddress_isFoundAndEndsTheSearch)
{
    const auto root = parentOf({parentOf({}), webArea("Page"), parentOf({})});
    EXPECT_EQ(m_reader.findWebContext(root), m_examplePage);
    EXPECT_EQ(examinedElements(), 3);
}

TEST_F(AccessibilityReading, addressAndTitle_mayComeFromDifferentElements)
{
    const auto bar = m_tree.add({{text("AXDocument"), text("https://bar.example/")}});
    const auto page = m_tree.add({{text("AXRole"), text("AXWebArea")}, {text("AXTitle"), text("Page")}});
    const AccessibilityContextReader::WebContext expected{.url = text("https://bar.example/"), .title = text("Page")};
    EXPECT_EQ(m_reader.findWebContext(parentOf({bar, page})), expected);
}

TEST_F(AccessibilityReading, firstInBreadth_wins)
{
    const auto root = parentOf({parentOf({webArea("Deep")}), webArea("Page")});
    EXPECT_EQ(m_reader.findWebContext(root), m_examplePage);
}

TEST_F(AccessibilityReading, addressOfTheElement_winsOverItsDocument)
{
    const auto page = m_tree.add({{text("AXURL"), QUrl(text("https://a.example"))}, {text("AXDocument"), text("b")}});
    EXPECT_EQ(m_reader.findWebContext(page).url, text("https://a.example"));
    m_tree.set(page, text("AXURL"), text(" "));
    EXPECT_EQ(m_reader.findWebContext(page).url, text("b"));
}

TEST_F(AccessibilityReading, titleOfAnythingButAWebArea_isNoPageTitle)
{
    const auto root = m_tree.add({{text("AXRole"), text("AXWindow")}, {text("AXTitle"), text("Window")}});
    EXPECT_EQ(m_reader.findWebContext(root), AccessibilityContextReader::WebContext());
}

TEST_F(AccessibilityReading, webAreaWithoutTitle_leavesItToTheNext)
{
    EXPECT_EQ(m_reader.findWebContext(parentOf({webArea(" "), webArea("Page")})), m_examplePage);
}

TEST_F(AccessibilityReading, webAreaAtDepthFive_isFound)
{
    EXPECT_EQ(m_reader.findWebContext(ancestorOf(webArea("Page"), 5)), m_examplePage);
}

TEST_F(AccessibilityReading, webAreaAtDepthSix_isNotReached)
{
    EXPECT_EQ(m_reader.findWebContext(ancestorOf(webArea("Page"), 6)), AccessibilityContextReader::WebContext());
    EXPECT_EQ(examinedElements(), 6);
    EXPECT_EQ(m_tree.readCount(text("AXChildren")), 5);
}

TEST_F(AccessibilityReading, elementOneHundredAndSixty_isTheLastExamined)
{
    Children children(158, m_tree.add({}));
    children.append(webArea("Page"));
    EXPECT_EQ(m_reader.findWebContext(parentOf(children)), m_examplePage);
    EXPECT_EQ(examinedElements(), 160);
}

TEST_F(AccessibilityReading, elementOneHundredAndSixtyOne_isNotExamined)
{
    Children children(159, m_tree.add({}));
    children.append(webArea("Page"));
    EXPECT_EQ(m_reader.findWebContext(parentOf(children)), AccessibilityContextReader::WebContext());
    EXPECT_EQ(examinedElements(), 160);
}

TEST_F(AccessibilityReading, treeThatContainsItself_endsWithTheBudget)
{
    const auto root = parentOf({});
    m_tree.set(root, text("AXChildren"), Children{root, root});
    EXPECT_EQ(m_reader.findWebContext(root), AccessibilityContextReader::WebContext());
    // One, two, four, ... at depths 0 to 5.
    EXPECT_EQ(examinedElements(), 63);
    m_tree.set(root, text("AXChildren"), Children(50, root));
    m_reader.findWebContext(root);
    EXPECT_EQ(examinedElements(), 63 + 160);
}

TEST_F(AccessibilityReading, aMillionChildren_areNotHeldBeyondTheBudget)
{
    const AccessibilityElementPtr child = m_tree.add({});
    constexpr int children = 1'000'000;
    const auto root = parentOf(Children(children, child));
    long held = 0;
    const long before = child.use_count();
    m_tree.onRead = [&](const auto &, const QString &) { held = std::max(held, child.use_count() - before); };
    m_reader.findWebContext(root);
    EXPECT_EQ(examinedElements(), 160);
    EXPECT_GT(held, 0);
    EXPECT_LE(held, 160);
}

TEST_F(AccessibilityReading, childrenOfTheWrongKind_areNone)
{
    const auto root = m_tree.add({{text("AXChildren"), text("button")}});
    m_reader.findWebContext(root);
    m_tree.set(root, text("AXChildren"), webArea("Page"));
    EXPECT_EQ(m_reader.findWebContext(root), AccessibilityContextReader::WebContext());
    m_tree.set(root, text("AXChildren"), Children{nullptr, webArea("Page"), nullptr});
    EXPECT_EQ(m_reader.findWebContext(root), m_examplePage);
}

TEST_F(AccessibilityReading, focusedWindow_isSearchedAndDescribed)
{
    const auto focused = control("AXButton", "OK");
    const auto window = m_tree.add({{text("AXTitle"), text(" A window ")},
                                    {text("AXPosition"), QPointF(10, 20)},
                                    {text("AXSize"), QSizeF(300, 200)},
                                    {text("AXChildren"), Children{webArea("Page")}}});
    const auto application =
        m_tree.add({{text("AXFocusedWindow"), window}, {text("AXFocusedUIElement"), AccessibilityElementPtr(focused)}});
    m_tree.onApplication = [&](qint32 pid) { return pid == 42 ? application : nullptr; };

    const auto details = m_reader.read(42, {.appName = text("App"),
                                            .website = text("stale"),
                                            .pageTitle = {},
                                            .windowTitle = {},
                                            .focusedElement = {},
                                            .windowFrame = {}});
    EXPECT_EQ(details.appName, text("App"));
    EXPECT_EQ(details.website, text("example.com"));
    EXPECT_EQ(details.pageTitle, text("Page"));
    EXPECT_EQ(details.windowTitle, text("A window"));
    EXPECT_EQ(details.focusedElement, text("OK button"));
    EXPECT_EQ(details.windowFrame, QRectF(10, 20, 300, 200));
}

TEST_F(AccessibilityReading, noFocusedWindow_applicationIsSearched)
{
    const auto application = m_tree.add({{text("AXTitle"), text("An application")},
                                         {text("AXPosition"), QPointF(10, 20)},
                                         {text("AXSize"), QSizeF(300, 200)},
                                         {text("AXFocusedUIElement"), control("AXButton", "OK")},
                                         {text("AXChildren"), Children{webArea("Page")}}});
    m_tree.onApplication = [&](qint32) { return application; };
    const auto details = m_reader.read(42, {});
    EXPECT_EQ(details.website, text("example.com"));
    EXPECT_EQ(details.pageTitle, text("Page"));
    EXPECT_EQ(details.windowTitle, std::nullopt);
    EXPECT_EQ(details.windowFrame, std::nullopt);
}

TEST_F(AccessibilityReading, applicationThatNamesNoFocus_hasThatOfTheWholeSystem)
{
    m_tree.onApplication = [&](qint32) { return m_tree.add({}); };
    m_tree.onSystemWide = [&] { return m_tree.add({{text("AXFocusedUIElement"), control("AXLink", "Help")}}); };
    EXPECT_EQ(m_reader.read(42, {}).focusedElement, text("Help link"));
}

TEST_F(AccessibilityReading, noTreeAtAll_hasNoFacts)
{
    m_tree.onApplication = [](qint32) { return nullptr; };
    m_tree.onSystemWide = [] { return nullptr; };
    const auto details = m_reader.read(42, {});
    EXPECT_EQ(ActiveApplicationContext::promptText(details), std::nullopt);
    EXPECT_EQ(details.windowFrame, std::nullopt);
}

TEST_F(AccessibilityReading, windowWithHalfAFrame_hasNone)
{
    const auto window = m_tree.add({{text("AXPosition"), QPointF(1, 2)}, {text("AXSize"), QPointF(3, 4)}});
    const auto focused = control("AXButton", "OK");
    m_tree.onApplication = [&](qint32) {
        return m_tree.add({{text("AXFocusedWindow"), window}, {text("AXFocusedUIElement"), focused}});
    };
    EXPECT_EQ(m_reader.read(42, {}).windowFrame, std::nullopt);
    m_tree.set(window, text("AXPosition"), {});
    m_tree.set(window, text("AXSize"), QSizeF(3, 4));
    EXPECT_EQ(m_reader.read(42, {}).windowFrame, std::nullopt);
}

TEST_F(AccessibilityReading, addressThatCannotBeParsed_costsTheWebsiteAlone)
{
    const auto window = m_tree.add({{text("AXRole"), text("AXWebArea")},
                                    {text("AXTitle"), text("Page")},
                                    {text("AXURL"), text("https://exa mple.com:port/")}});
    const auto focused = control("AXButton", "OK");
    m_tree.onApplication = [&](qint32) {
        return m_tree.add({{text("AXFocusedWindow"), window}, {text("AXFocusedUIElement"), focused}});
    };
    const auto details = m_reader.read(42, {});
    EXPECT_EQ(details.website, std::nullopt);
    EXPECT_EQ(details.pageTitle, text("Page"));
    EXPECT_EQ(details.focusedElement, text("OK button"));
}

TEST_F(AccessibilityReading, applicationThatSearchesByItself_isNotWalked)
{
    const auto window = parentOf({control("AXButton", "Send")});
    m_tree.onFind = [&](const AccessibilityElementPtr &root, const QString &role) {
        EXPECT_EQ(root, window);
        EXPECT_EQ(role, text("AXWebArea"));
        return std::optional(Children{webArea("Page")});
    };
    EXPECT_EQ(m_reader.findWebContext(window), m_examplePage);
    EXPECT_EQ(m_tree.readCount(text("AXChildren")), 0);
    m_tree.onFind = [](const auto &, const QString &) { return std::optional(Children()); };
    EXPECT_EQ(m_reader.findWebContext(window), AccessibilityContextReader::WebContext());
    EXPECT_EQ(m_tree.readCount(text("AXChildren")), 0);
}

TEST_F(AccessibilityReading, severalWebAreasFound_addressAndTitleAreOfOne)
{
    const auto empty = m_tree.add({{text("AXRole"), text("AXWebArea")}});
    const auto untitled =
        m_tree.add({{text("AXRole"), text("AXWebArea")}, {text("AXDocument"), text("https://example.org/")}});
    m_tree.onFind = [&](const auto &, const QString &) {
        return std::optional(Children{empty, untitled, webArea("Advertisement")});
    };
    EXPECT_EQ(m_reader.findWebContext(parentOf({})),
              (AccessibilityContextReader::WebContext{.url = text("https://example.org/"), .title = std::nullopt}));
}

} // namespace
} // namespace ostrel
