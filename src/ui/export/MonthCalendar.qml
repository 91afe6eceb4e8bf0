import QtQuick
import Ostrel.Ui

// A month of days. The arrow keys go by a day or a week, Page Up and Down by a month, Return picks; the name of the
// month leads back to the day that is chosen.
FocusScope {
    id: root

    required property date chosen

    signal picked(date date)

    property date shown: chosen
    readonly property int cell: 30
    readonly property int firstColumn: {
        const first = new Date(shown.getFullYear(), shown.getMonth(), 1)
        return (first.getDay() - Qt.locale().firstDayOfWeek + 7) % 7
    }

    implicitWidth: 7 * cell
    implicitHeight: head.height + weekdays.height + grid.implicitHeight

    function dayAt(index: int): date {
        return new Date(shown.getFullYear(), shown.getMonth(), 1 - firstColumn + index)
    }

    function move(days: int, months: int) {
        const day = new Date(shown.getFullYear(), shown.getMonth() + months, 1)
        const length = new Date(day.getFullYear(), day.getMonth() + 1, 0).getDate()
        day.setDate(Math.min(shown.getDate(), length) + days)
        shown = day
    }

    Keys.onUpPressed: move(-7, 0)
    Keys.onDownPressed: move(7, 0)
    Keys.onLeftPressed: move(LayoutMirroring.enabled ? 1 : -1, 0)
    Keys.onRightPressed: move(LayoutMirroring.enabled ? -1 : 1, 0)
    Keys.onReturnPressed: picked(shown)
    Keys.onEnterPressed: picked(shown)
    Keys.onSpacePressed: picked(shown)
    Keys.onPressed: event => {
        if (event.key === Qt.Key_PageUp)
            move(0, -1)
        else if (event.key === Qt.Key_PageDown)
            move(0, 1)
        else
            return
        event.accepted = true
    }

    Item {
        id: head

        width: parent.width
        height: 32

        HeaderIconButton {
            anchors.left: parent.left
            focusPolicy: Qt.NoFocus
            symbol: "chevron.left"
            mirrorSymbol: true
            text: qsTr("Previous month")
            onClicked: root.move(0, -1)
        }
        TextHeaderButtonStyle {
            anchors.centerIn: parent
            width: Math.min(implicitWidth, parent.width - 2 * parent.height)
            focusPolicy: Qt.NoFocus
            text: root.shown.toLocaleDateString(Qt.locale(), "MMMM yyyy")
            onClicked: root.shown = root.chosen
        }
        HeaderIconButton {
            anchors.right: parent.right
            focusPolicy: Qt.NoFocus
            symbol: "chevron.right"
            mirrorSymbol: true
            text: qsTr("Next month")
            onClicked: root.move(0, 1)
        }
    }

    Row {
        id: weekdays

        anchors.top: head.bottom
        height: 22

        Repeater {
            model: 7

            NoteText {
                required property int index

                width: root.cell
                horizontalAlignment: Text.AlignHCenter
                text: Qt.locale().dayName((index + Qt.locale().firstDayOfWeek) % 7, Locale.ShortFormat)
                Accessible.ignored: true
            }
        }
    }

    Grid {
        id: grid

        anchors.bottom: parent.bottom
        columns: 7

        Repeater {
            model: 42

            CalendarDay {
                required property int index

                readonly property date day: root.dayAt(index)

                width: root.cell
                height: root.cell - Theme.step
                date: day
                inMonth: day.getMonth() === root.shown.getMonth()
                isShown: inMonth && day.getDate() === root.shown.getDate()
                onClicked: root.picked(day)
            }
        }
    }
}
