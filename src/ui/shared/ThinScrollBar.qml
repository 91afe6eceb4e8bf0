import QtQuick
import QtQuick.Templates as T

T.ScrollBar {
    id: root

    // Seen also while nothing moves, where nothing else tells that there is more.
    property bool steady: false

    implicitWidth: 8
    padding: 2
    minimumSize: 0.08
    visible: size < 1

    contentItem: Rectangle {
        implicitWidth: 4
        radius: 2
        color: Theme.ink3
        opacity: root.pressed ? 0.9 : root.active ? 0.6 : root.steady ? 0.35 : 0

        Behavior on opacity {
            NumberAnimation {
                duration: Theme.overlayDuration
            }
        }
    }
}
