import QtQuick
import Ostrel.Ui

// The red dot. While recording it is a rounded square, which is what one presses to stop.
Item {
    id: root

    required property bool recording
    // Something is being started or stopped.
    required property bool waiting

    readonly property int dotSize: 44
    readonly property int squareSize: 36

    implicitWidth: dotSize
    implicitHeight: dotSize
    Accessible.ignored: true

    Rectangle {
        anchors.centerIn: parent
        width: root.recording ? root.squareSize : root.dotSize
        height: width
        radius: root.recording ? 9 : width / 2
        color: Theme.record
        antialiasing: true

        Behavior on width {
            NumberAnimation {
                duration: Theme.screenDuration
                easing.type: Easing.OutCubic
            }
        }
        Behavior on radius {
            NumberAnimation {
                duration: Theme.screenDuration
                easing.type: Easing.OutCubic
            }
        }
    }

    // Without motion it is paler instead.
    opacity: waiting && Theme.reducedMotion ? 0.5 : 1

    SequentialAnimation on scale {
        running: root.waiting && !Theme.reducedMotion && root.visible
        loops: Animation.Infinite
        alwaysRunToEnd: true

        NumberAnimation {
            to: 0.78
            duration: Theme.breathDuration / 2
            easing.type: Easing.InOutSine
        }
        NumberAnimation {
            to: 1
            duration: Theme.breathDuration / 2
            easing.type: Easing.InOutSine
        }
    }
}
