import QtQuick
import Ostrel.Ui

// A text of the archive's place, behind its name.
Flow {
    id: root

    // In large letters the name gets a line of its own.
    readonly property bool stacked: Theme.textScale > 1.25

    required property string title
    property alias text: field.text
    property alias placeholder: field.placeholderText
    property bool secret: false

    signal edited(text: string)
    signal accepted

    spacing: Theme.step * 2

    NoteText {
        id: name

        width: root.stacked ? root.width : Math.round(root.width * 0.32)
        height: root.stacked ? implicitHeight : Math.max(implicitHeight, field.implicitHeight)
        verticalAlignment: Text.AlignVCenter
        text: root.title
        // The field is read out by it, unless it is secret: Qt tells nothing of such a field but that.
        Accessible.ignored: !root.secret
    }
    CompactTextFieldStyle {
        id: field

        width: root.stacked ? root.width : root.width - name.width - root.spacing
        echoMode: root.secret ? TextInput.Password : TextInput.Normal
        inputMethodHints: Qt.ImhNoAutoUppercase | Qt.ImhNoPredictiveText | (root.secret ? Qt.ImhSensitiveData : Qt.ImhNone)
        Accessible.name: root.title
        Accessible.passwordEdit: root.secret
        onTextEdited: root.edited(text)
        onAccepted: root.accepted()
    }
}
