import QtQuick
import QtQuick.Templates as T

// The name of a control that shows none, beside the pointer or the focus.
T.ToolTip {
    id: root

    x: parent ? Math.round(Math.max(-parent.x, Math.min((parent.width - width) / 2, 0))) : 0
    y: parent ? parent.height + 2 : 0
    implicitWidth: label.implicitWidth + leftPadding + rightPadding
    implicitHeight: label.implicitHeight + topPadding + bottomPadding
    margins: 6
    horizontalPadding: 8
    verticalPadding: 4
    delay: 600
    timeout: 5000
    closePolicy: T.Popup.CloseOnEscape | T.Popup.CloseOnPressOutsideParent | T.Popup.CloseOnReleaseOutsideParent

    contentItem: Text {
        id: label

        text: root.text
        textFormat: Text.PlainText
        color: Theme.paper
        font.family: Theme.sans
        font.pixelSize: Theme.noteSize
    }
    background: Rectangle {
        radius: 5
        color: Theme.ink
    }
}
