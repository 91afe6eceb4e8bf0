import QtQuick
import Ostrel.Model
import Ostrel.Ui

CardPage {
    id: root

    required property ExportForm footageExport

    BodyText {
        width: parent.width
        visible: text !== ""
        text: root.footageExport.resultText
        color: root.footageExport.hasFailed ? Theme.error : Theme.ink2
    }

    trailing: [
        PillButtonStyle {
            visible: root.footageExport.isDone
            quiet: true
            text: qsTr("Reveal in Finder")
            onClicked: root.footageExport.revealArchiveExportDestination()
        },
        PillButtonStyle {
            focus: true
            text: qsTr("Done")
            onClicked: root.footageExport.closeArchiveExportCard()
        }
    ]
}
