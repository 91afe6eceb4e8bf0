import QtQuick
import Ostrel.Model
import Ostrel.Ui

// Where pictures are analysed.
FieldGroup {
    id: root

    required property SettingsForm form

    title: qsTr("BYOK inference")
    remark: form.byokInferenceStatusText

    NoteText {
        width: parent.width
        text: root.form.byokInferenceDetailText
        wrapMode: Text.WrapAtWordBoundaryOrAnywhere
    }

    Flow {
        width: parent.width
        spacing: Theme.step * 2

        ChooseButtonStyle {
            text: qsTr("Add key")
            onClicked: root.form.addByokInferenceKey()
        }
        ChooseButtonStyle {
            visible: root.form.usesByokInference
            text: qsTr("Use Ostrel")
            onClicked: root.form.useOstrelInference()
        }
    }
}
