import QtQuick
import Ostrel.Ui

// One row of an alert's form.
Column {
    id: root

    required property string label
    required property string placeholder
    required property string initialText
    required property bool secure
    // What the field is called where it has no label.
    required property string formName

    property alias typedText: field.text

    signal accepted

    spacing: Theme.step

    function takeFocus() {
        field.forceActiveFocus()
    }

    NoteText {
        width: root.width
        visible: text !== ""
        text: root.label
    }
    CompactTextFieldStyle {
        id: field

        width: root.width
        placeholderText: root.placeholder
        echoMode: root.secure ? TextInput.Password : TextInput.Normal
        inputMethodHints: root.secure ? Qt.ImhSensitiveData | Qt.ImhNoPredictiveText : Qt.ImhNone
        Accessible.name: root.label !== "" ? root.label : root.formName
        Accessible.passwordEdit: root.secure
        Component.onCompleted: text = root.initialText
        onAccepted: root.accepted()
    }
}
