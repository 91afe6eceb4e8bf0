import QtQuick
import Ostrel.Model
import Ostrel.Ui

// One line of the list, whatever it is.
Loader {
    id: root

    required property int kind
    required property string dateKey
    required property string dayName
    required property string dayDate
    required property bool collapsed
    required property string time
    required property string workspace
    required property string text
    // Whether the keyboard stands on it.
    property bool current: false

    signal toggled(string dateKey)

    sourceComponent: kind === JournalListModel.Day ? day : kind === JournalListModel.Session ? session : entry

    Component {
        id: day

        JournalDayHeader {
            focus: true
            dayName: root.dayName
            dayDate: root.dayDate
            collapsed: root.collapsed
            current: root.current
            onClicked: root.toggled(root.dateKey)
        }
    }
    Component {
        id: session

        JournalSessionLine {
            focus: true
            time: root.time
            current: root.current
        }
    }
    Component {
        id: entry

        JournalEntryRow {
            focus: true
            time: root.time
            workspace: root.workspace
            text: root.text
            current: root.current
        }
    }
}
