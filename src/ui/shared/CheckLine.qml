import QtQuick
import QtQuick.Templates as T

T.CheckBox {
    id: root

    implicitHeight: Math.max(box.height, label.implicitHeight) + topPadding + bottomPadding
    verticalPadding: Theme.step
    spacing: Theme.step * 2
    hoverEnabled: true
    focusPolicy: Qt.StrongFocus

    Accessible.role: Accessible.CheckBox
    Accessible.name: text
    Accessible.checkable: true
    Accessible.checked: checked
    Accessible.onPressAction: flip()
    Accessible.onToggleAction: flip()
    Keys.onReturnPressed: flip()
    Keys.onEnterPressed: flip()

    function flip() {
        toggle()
        toggled()
    }

    indicator: Rectangle {
        id: box

        x: root.mirrored ? root.width - width : 0
        y: (root.height - height) / 2
        width: 18
        height: 18
        radius: 5
        color: root.checked ? Theme.accent : root.hovered ? Theme.cardHover : Theme.card
        border.width: 1
        border.color: root.checked ? Theme.accent : Theme.ink3

        Symbol {
            anchors.centerIn: parent
            visible: root.checked
            symbol: "checkmark"
            size: 12
            color: Theme.accentInk
        }
    }
    contentItem: BodyText {
        id: label

        leftPadding: root.mirrored ? 0 : box.width + root.spacing
        rightPadding: root.mirrored ? box.width + root.spacing : 0
        text: root.text
        Accessible.ignored: true
    }

    FocusRing {
        control: root
    }
}
