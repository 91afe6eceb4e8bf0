import QtQuick
import QtQuick.Templates as T
import Ostrel.Ui

// A day, which a calendar opens for. The arrow keys go on by a day.
FieldGroup {
    id: root

    // As "yyyy-MM-dd".
    required property string day

    signal dayPicked(string day)

    function dateOf(text: string): date {
        const parts = text.split("-").map(Number)
        return new Date(parts[0], parts[1] - 1, parts[2])
    }

    function pick(date: date) {
        const two = number => String(number).padStart(2, "0")
        dayPicked([date.getFullYear(), two(date.getMonth() + 1), two(date.getDate())].join("-"))
    }

    function step(days: int) {
        const next = dateOf(day)
        next.setDate(next.getDate() + days)
        pick(next)
    }

    ChooseButtonStyle {
        id: button

        width: parent.width
        text: root.dateOf(root.day).toLocaleDateString(Qt.locale(), "d MMM yyyy")
        Accessible.name: root.title + ", " + text
        Keys.onUpPressed: root.step(1)
        Keys.onDownPressed: root.step(-1)
        onClicked: calendar.open()
    }

    T.Popup {
        id: calendar

        parent: root
        y: root.height + Theme.step
        margins: Theme.margin
        padding: Theme.step * 2
        modal: true
        focus: true
        implicitWidth: month.implicitWidth + 2 * padding
        implicitHeight: month.implicitHeight + 2 * padding

        contentItem: MonthCalendar {
            id: month

            focus: true
            // A popup is no part of what it stands in.
            LayoutMirroring.enabled: root.LayoutMirroring.enabled
            LayoutMirroring.childrenInherit: true
            chosen: root.dateOf(root.day)
            onPicked: date => {
                root.pick(date)
                calendar.close()
            }
        }
        background: Rectangle {
            radius: Theme.cardRadius
            color: Theme.card
            border.width: 1
            border.color: Theme.line
        }
        onAboutToShow: month.shown = root.dateOf(root.day)
        onOpened: month.forceActiveFocus()
        onClosed: button.forceActiveFocus(Qt.PopupFocusReason)
    }
}
