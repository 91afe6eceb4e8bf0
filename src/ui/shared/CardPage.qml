import QtQuick

// What stands on a card below its title: texts, and the buttons in a line at the foot. Where those are too wide for one
// line they take several, the leading ones first.
FocusScope {
    id: root

    default property alias content: column.data
    property alias leading: leadingFlow.data
    property alias trailing: trailingFlow.data

    readonly property int leadingWidth: widthOf(leadingFlow)
    readonly property int trailingWidth: widthOf(trailingFlow)
    readonly property bool takesOneLine: leadingWidth + trailingWidth + leadingFlow.spacing <= width

    function widthOf(flow: Flow): int {
        let width = 0
        for (let i = 0; i < flow.children.length; ++i) {
            const item = flow.children[i]
            if (item.visible)
                width += Math.ceil(item.width) + (width > 0 ? flow.spacing : 0)
        }
        return width
    }

    focus: true
    implicitHeight: column.implicitHeight + Theme.margin + foot.height

    Column {
        id: column

        width: parent.width
        spacing: Theme.step * 3
    }

    Item {
        id: foot

        anchors.left: parent.left
        anchors.right: parent.right
        anchors.bottom: parent.bottom
        height: Math.max(Theme.controlHeight + Theme.step, trailingFlow.y + trailingFlow.height,
                         leadingFlow.height)

        Flow {
            id: leadingFlow

            anchors.left: parent.left
            y: root.takesOneLine ? (foot.height - height) / 2 : 0
            width: Math.min(root.leadingWidth, root.width)
            spacing: Theme.step * 2
        }
        Flow {
            id: trailingFlow

            anchors.right: parent.right
            y: root.takesOneLine || root.leadingWidth === 0 ? 0 : leadingFlow.height + spacing
            width: Math.min(root.trailingWidth, root.width)
            spacing: Theme.step * 2
        }
    }
}
