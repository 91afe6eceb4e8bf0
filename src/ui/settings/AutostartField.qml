import QtQuick
import Ostrel.Model
import Ostrel.Ui

// The one setting that needs no saving: the desktop keeps it.
FieldGroup {
    id: root

    required property AutostartForm form

    title: qsTr("Start at login")

    Component.onCompleted: form.refresh()

    CheckLine {
        width: parent.width
        text: qsTr("Open Tamsk Ostrel when you log in")
        checked: root.form.isOn
        onToggled: {
            root.form.turn(checked)
            // It may have been refused, and a toggle undoes the binding.
            checked = Qt.binding(() => root.form.isOn)
        }
    }
    MessageLine {
        width: parent.width
        text: root.form.error
        isError: true
    }
}
