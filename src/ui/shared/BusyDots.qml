import QtQuick

// Three dots that say that something is being waited for.
Row {
    id: root

    spacing: Theme.step
    height: Theme.controlHeight
    Accessible.role: Accessible.ProgressBar
    Accessible.name: qsTr("Working")

    Repeater {
        model: 3

        Rectangle {
            id: dot

            required property int index

            anchors.verticalCenter: parent.verticalCenter
            width: 5
            height: 5
            radius: 2.5
            color: Theme.ink2

            SequentialAnimation on opacity {
                running: root.visible && !Theme.reducedMotion
                loops: Animation.Infinite

                PauseAnimation {
                    duration: dot.index * 160
                }
                NumberAnimation {
                    from: 1
                    to: 0.25
                    duration: 350
                }
                NumberAnimation {
                    to: 1
                    duration: 350
                }
                PauseAnimation {
                    duration: (2 - dot.index) * 160
                }
            }
        }
    }
}
