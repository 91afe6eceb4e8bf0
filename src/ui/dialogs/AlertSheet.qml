import QtQuick
import Ostrel.Model
import Ostrel.Ui

// An alert on the panel: what it asks, its form where it has one, and its buttons in their order.
OverlayCard {
    id: root

    required property DialogSheet sheet

    title: sheet.message
    onDismissed: sheet.leave(typedTexts())
    Component.onCompleted: {
        if (fields.count > 0)
            (fields.itemAt(0) as AlertField).takeFocus()
        else
            buttons.itemAt(0).forceActiveFocus()
    }

    function typedTexts(): var {
        const texts = []
        for (let i = 0; i < fields.count; ++i)
            texts.push((fields.itemAt(i) as AlertField).typedText)
        return texts
    }

    NoteText {
        width: parent.width
        visible: text !== ""
        text: root.sheet.informativeText
    }

    Repeater {
        id: fields

        model: root.sheet.fields

        AlertField {
            required property var modelData

            width: parent.width
            label: modelData.label
            placeholder: modelData.placeholder
            initialText: modelData.text
            secure: modelData.secure
            formName: root.title
            onAccepted: root.sheet.answer(0, root.typedTexts())
        }
    }

    Column {
        id: column

        width: parent.width
        spacing: Theme.step * 2

        Repeater {
            id: buttons

            model: root.sheet.buttons

            PillButtonStyle {
                required property string modelData
                required property int index

                width: column.width
                text: modelData
                quiet: index > 0
                onClicked: root.sheet.answer(index, root.typedTexts())
            }
        }
    }
}
