import QtQuick

// A sheet of paper: ruled lines that fade out below the header, a thin edge, round corners.
Rectangle {
    id: root

    readonly property int ruledLines: 8
    readonly property int ruleDistance: 26

    radius: Theme.panelRadius
    color: Theme.paper
    border.width: 1
    border.color: Theme.line
    Accessible.ignored: true

    Repeater {
        model: root.ruledLines

        DividerLine {
            required property int index

            x: 1
            y: Theme.headerHeight + index * root.ruleDistance
            width: root.width - 2
            opacity: 0.4 * (1 - index / root.ruledLines)
        }
    }
}
