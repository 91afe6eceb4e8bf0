import QtQuick
import QtQuick.Templates as T
import Ostrel.Model
import Ostrel.Ui

FieldGroup {
    id: root

    required property SettingsForm form

    readonly property int visibleLines: 5

    title: qsTr("Custom instructions")
    action: form.instructionsAreDefault ? "" : qsTr("Restore default")
    onActionTriggered: form.restoreDefaultInstructions()

    Rectangle {
        width: parent.width
        height: root.visibleLines * Theme.bodyLine + 2 * area.topPadding
        radius: Theme.fieldRadius
        color: Theme.card
        border.width: area.activeFocus ? Theme.focusWidth : 1
        border.color: area.activeFocus ? Theme.accent : Theme.line

        Flickable {
            id: flickable

            anchors.fill: parent
            anchors.margins: 2
            contentWidth: width
            contentHeight: area.implicitHeight
            boundsBehavior: Flickable.StopAtBounds
            clip: true
            T.ScrollBar.vertical: ThinScrollBar {}

            function reveal(cursor: rect) {
                if (cursor.y < contentY)
                    contentY = cursor.y
                else if (cursor.y + cursor.height > contentY + height)
                    contentY = cursor.y + cursor.height - height
            }

            T.TextArea {
                id: area

                width: flickable.width
                height: Math.max(implicitHeight, flickable.height)
                implicitHeight: contentHeight + topPadding + bottomPadding
                topPadding: 6
                bottomPadding: 6
                leftPadding: 8
                rightPadding: 10
                text: root.form.instructions
                onTextChanged: if (text !== root.form.instructions) root.form.instructions = text
                onCursorRectangleChanged: if (activeFocus) flickable.reveal(cursorRectangle)
                textFormat: TextEdit.PlainText
                wrapMode: TextEdit.Wrap
                selectByMouse: true
                color: Theme.ink
                selectionColor: Theme.accent
                selectedTextColor: Theme.accentInk
                font.family: Theme.sans
                font.pixelSize: Theme.labelSize
                // Tab leads on to the next control; nobody indents a wish.
                KeyNavigation.priority: KeyNavigation.BeforeItem
                KeyNavigation.tab: nextItemInFocusChain(true)
                KeyNavigation.backtab: nextItemInFocusChain(false)
                Accessible.role: Accessible.EditableText
                Accessible.name: root.title
                Accessible.multiLine: true
            }
        }
    }
}
