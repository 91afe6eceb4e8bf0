/// A program of Qt Widgets with one control of each kind, in the order in which Tab goes through them.

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QLineEdit>
#include <QMainWindow>
#include <QMenu>
#include <QPushButton>
#include <QRadioButton>
#include <QSlider>
#include <QTabBar>
#include <QTableWidget>
#include <QTextEdit>
#include <QToolButton>
#include <QTreeWidget>
#include <QVBoxLayout>

namespace {

using Factory = QWidget *(*)();

QWidget *textOfSeveralLines()
{
    auto *edit = new QTextEdit;
    edit->setTabChangesFocus(true);
    return edit;
}

QWidget *password()
{
    auto *edit = new QLineEdit;
    edit->setEchoMode(QLineEdit::Password);
    return edit;
}

QWidget *choice()
{
    auto *box = new QComboBox;
    box->addItems({QStringLiteral("A4"), QStringLiteral("A5")});
    return box;
}

QWidget *buttonWithMenu()
{
    auto *button = new QPushButton;
    button->setText(QStringLiteral("More"));
    auto *menu = new QMenu(button);
    menu->addAction(QStringLiteral("Rotate"));
    button->setMenu(menu);
    return button;
}

QWidget *tabs()
{
    auto *bar = new QTabBar;
    bar->addTab(QStringLiteral("Page"));
    bar->addTab(QStringLiteral("Margins"));
    return bar;
}

QWidget *emptyTable()
{
    auto *table = new QTableWidget(0, 2);
    table->setTabKeyNavigation(false);
    return table;
}

} // namespace

int main(int argc, char *argv[])
{
    QApplication application(argc, argv);
    QMainWindow window;
    window.setWindowTitle(QStringLiteral("Print \u2013 letter.odt"));
    auto *page = new QWidget;
    auto *column = new QVBoxLayout(page);
    const Factory factories[] = {
        [] { return static_cast<QWidget *>(new QLineEdit); },
        password,
        textOfSeveralLines,
        choice,
        [] { return static_cast<QWidget *>(new QCheckBox(QStringLiteral("Both sides"))); },
        [] { return static_cast<QWidget *>(new QRadioButton(QStringLiteral("Colour"))); },
        [] { return static_cast<QWidget *>(new QSlider(Qt::Horizontal)); },
        [] { return static_cast<QWidget *>(new QPushButton(QStringLiteral("Print"))); },
        buttonWithMenu,
        tabs,
        emptyTable,
        [] { return static_cast<QWidget *>(new QTreeWidget); },
    };
    for (const Factory make : factories)
        column->addWidget(make());
    window.setCentralWidget(page);
    window.show();
    column->itemAt(0)->widget()->setFocus();
    return QApplication::exec();
}
