import QtQuick
import Ostrel.Ui

// Around the line of the journal that the keyboard stands on.
Rectangle {
    anchors.fill: parent
    anchors.leftMargin: -Theme.step * 2
    anchors.rightMargin: -Theme.step * 2
    radius: Theme.fieldRadius
    color: "transparent"
    border.width: Theme.focusWidth
    border.color: Theme.accent
}
