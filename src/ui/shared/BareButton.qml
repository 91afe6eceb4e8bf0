import QtQuick
import QtQuick.Templates as T

// What all buttons have in common, and nothing to be seen: Return presses them as Space does, and so does an assistive
// technology, by the button's text.
T.AbstractButton {
    id: root

    function activate() {
        if (enabled)
            clicked()
    }

    hoverEnabled: true
    focusPolicy: Qt.StrongFocus

    Accessible.role: Accessible.Button
    Accessible.name: text
    Accessible.onPressAction: activate()
    Keys.onReturnPressed: activate()
    Keys.onEnterPressed: activate()
}
