import QtQuick
import QtQuick.Templates as T

T.ScrollBar {
    id: root

    implicitWidth: 8
    padding: 2
    minimumSize: 0.08
    visible: size < 1

    contentItem: Rectangle {
        implicitWidth: 4
        radius: 2
        color: Theme.ink3
        opacity: root.pressed ? 0.9 : root.active ? 0.6 : 0

        Behavior on opacity {
            NumberAnimation {
                duration: Theme.overlayDuration
            }
        }
    }
}
