import QtQuick
import Ostrel.Model
import Ostrel.Ui

// What the window under the tray's icon shows: the sheet of paper and, where the desktop lets windows be seen through,
// its shadow.
FocusScope {
    id: root

    required property PopoverModel model
    property DialogSheet sheet: null
    // The room on every side that only the shadow needs; 0 for none.
    property int shadow: 0
    readonly property real radius: Theme.panelRadius

    implicitWidth: popover.implicitWidth + 2 * shadow
    implicitHeight: popover.implicitHeight + 2 * shadow
    focus: true

    // A window that is cut out can't be seen through: what smooths the sheet's corners needs something behind it.
    Rectangle {
        anchors.fill: parent
        visible: root.shadow === 0
        color: Theme.line
    }
    BorderImage {
        readonly property int edge: root.shadow + root.radius

        anchors.fill: parent
        visible: root.shadow > 0
        cache: false
        source: visible ? "image://shadow/" + root.shadow + "/" + root.radius : ""
        border.left: edge
        border.top: edge
        border.right: edge
        border.bottom: edge
        Accessible.ignored: true
    }
    PopoverView {
        id: popover

        anchors.fill: parent
        anchors.margins: root.shadow
        // Screens slide beyond the paper's edge, where the window's used to be.
        clip: root.shadow > 0
        focus: true
        model: root.model
        sheet: root.sheet
    }
}
