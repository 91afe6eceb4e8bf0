import QtQuick

// Half of a change of screens: one of the two, from or to its place.
Transition {
    id: root

    property real from: 0
    property real to: 0
    required property real fadeTo

    ParallelAnimation {
        NumberAnimation {
            property: "x"
            from: root.from
            to: root.to
            duration: Theme.screenDuration
            easing.type: Easing.OutCubic
        }
        NumberAnimation {
            property: "opacity"
            from: 1 - root.fadeTo
            to: root.fadeTo
            duration: Theme.screenDuration
            easing.type: Easing.OutCubic
        }
    }
}
