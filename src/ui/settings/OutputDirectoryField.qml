import QtQuick
import Ostrel.Model
import Ostrel.Ui

FieldGroup {
    id: root

    required property SettingsForm form

    title: qsTr("Output directory")

    Flow {
        width: parent.width
        spacing: Theme.step * 2

        CompactTextFieldStyle {
            width: Theme.besides(parent.width, choose.width, parent.spacing)
            text: root.form.outputDirectory
            onTextEdited: root.form.outputDirectory = text
            Accessible.name: root.title
        }
        ChooseButtonStyle {
            id: choose

            text: qsTr("Choose…")
            onClicked: root.form.chooseOutputDirectory()
        }
    }
}
