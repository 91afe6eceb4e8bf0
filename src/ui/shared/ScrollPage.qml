import QtQuick
import QtQuick.Templates as T

// A page that may be higher than its place. What the keyboard comes to is brought into view, with the field of the page
// that says what it is for. A press of the mouse never moves the page below the pointer.
Flickable {
    id: root

    boundsBehavior: Flickable.StopAtBounds
    clip: contentHeight > height
    T.ScrollBar.vertical: ThinScrollBar {
        steady: true
    }

    Keys.onReleased: event => {
        if (event.key === Qt.Key_Tab || event.key === Qt.Key_Backtab)
            reveal(root.Window.activeFocusItem)
    }

    function reveal(control: Item) {
        const shown = shownWith(control)
        if (!shown)
            return
        const top = shown.mapToItem(contentItem, 0, 0).y
        const above = top + shown.height - height + Theme.step
        const below = top - Theme.step
        const end = Math.max(0, contentHeight - height)
        contentY = Math.max(0, Math.min(Math.max(contentY, above), below, end))
    }

    // Null for what is not on the page.
    function shownWith(control: Item): Item {
        let field = null
        for (let item = control; item; item = item.parent) {
            if (item === contentItem)
                return field && field.height <= height ? field : control
            if (item instanceof FieldGroup)
                field = item
        }
        return null
    }
}
