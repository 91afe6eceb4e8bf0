import QtQuick
import QtQuick.Templates as T

// One of several things of which exactly one is chosen.
T.RadioButton {
    id: root

    function choose() {
        if (enabled && !checked)
            clicked()
    }

    implicitHeight: Theme.controlHeight
    implicitWidth: label.implicitWidth + leftPadding + rightPadding
    horizontalPadding: Theme.step * 2
    hoverEnabled: true
    focusPolicy: Qt.StrongFocus
    autoExclusive: true

    Accessible.role: Accessible.RadioButton
    Accessible.name: text
    Accessible.checkable: true
    Accessible.checked: checked
    Accessible.onPressAction: choose()
    Accessible.onToggleAction: choose()
    Keys.onReturnPressed: choose()
    Keys.onEnterPressed: choose()

    contentItem: Text {
        id: label

        text: root.text
        textFormat: Text.PlainText
        color: root.checked ? Theme.accentInk : Theme.ink
        elide: Text.ElideRight
        fontSizeMode: Text.HorizontalFit
        minimumPixelSize: 12
        horizontalAlignment: Text.AlignHCenter
        verticalAlignment: Text.AlignVCenter
        font.family: Theme.sans
        font.pixelSize: Theme.labelSize
        Accessible.ignored: true
    }
    background: Rectangle {
        radius: Theme.fieldRadius
        color: root.checked ? Theme.accent : root.hovered ? Theme.cardHover : Theme.card
        border.width: 1
        border.color: root.checked ? Theme.accent : Theme.line
    }

    FocusRing {
        control: root
    }
}
