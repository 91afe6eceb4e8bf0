import QtQuick
import Ostrel.Ui

// The name of a day, in the hand of whoever keeps a journal. A click folds and opens the day.
BareButton {
    id: root

    required property string dayName
    required property string dayDate
    required property bool collapsed
    // Whether the keyboard stands on it.
    required property bool current

    implicitHeight: name.implicitHeight + topPadding + bottomPadding + (datesOwnLine ? date.implicitHeight : 0)
    topPadding: Theme.step * 4
    bottomPadding: Theme.step * 2
    focusPolicy: Qt.NoFocus

    Accessible.name: (dayName + " " + dayDate).trim()
    Accessible.description: collapsed ? qsTr("folded") : qsTr("open")

    // In large letters there isn't always room for both in one line.
    readonly property bool datesOwnLine: name.implicitWidth + date.implicitWidth + fold.width + Theme.step * 3 > availableWidth

    contentItem: Item {
        Text {
            id: name

            anchors.left: parent.left
            anchors.top: parent.top
            text: root.dayName
            textFormat: Text.PlainText
            color: Theme.ink
            font.family: Theme.serif
            font.pixelSize: Theme.daySize
            font.weight: Font.DemiBold
            Accessible.ignored: true
        }
        Text {
            id: date

            anchors.left: root.datesOwnLine ? parent.left : name.right
            anchors.leftMargin: root.datesOwnLine ? 0 : Theme.step * 2
            anchors.right: fold.left
            anchors.rightMargin: Theme.step
            y: root.datesOwnLine ? name.height : name.baselineOffset - baselineOffset
            text: root.dayDate
            textFormat: Text.PlainText
            color: Theme.ink2
            elide: Text.ElideRight
            horizontalAlignment: Text.AlignLeft
            font.family: Theme.sans
            font.pixelSize: Theme.labelSize
            Accessible.ignored: true
        }
        Symbol {
            id: fold

            anchors.right: parent.right
            anchors.verticalCenter: name.verticalCenter
            symbol: root.collapsed ? "chevron.right" : "chevron.down"
            mirror: root.collapsed && root.mirrored
            size: 10
            color: root.hovered ? Theme.ink : Theme.ink3
        }
    }

    RowFocus {
        visible: root.current
        anchors.topMargin: Theme.step * 2
    }
}
