import QtQuick
import Ostrel.Ui

// The version at the foot of the settings; a press looks for a newer one.
BareButton {
    id: root

    implicitWidth: label.implicitWidth + leftPadding + rightPadding
    implicitHeight: label.implicitHeight + topPadding + bottomPadding
    horizontalPadding: Theme.step * 2
    verticalPadding: Theme.step

    contentItem: Text {
        id: label

        text: root.text
        textFormat: Text.PlainText
        color: root.hovered ? Theme.ink : Theme.ink2
        font.family: Theme.sans
        font.pixelSize: Theme.noteSize
        font.underline: root.hovered
    }

    FocusRing {
        control: root
    }
}
