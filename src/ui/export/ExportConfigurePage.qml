import QtQuick
import Ostrel.Model
import Ostrel.Ui

CardPage {
    id: root

    required property ExportForm footageExport
    required property ArchiveForm archive

    NoteText {
        width: parent.width
        text: qsTr("Restores decrypted recordings to a folder, organized by day and display, with a manifest for tooling.")
    }

    Row {
        width: parent.width
        spacing: Theme.step * 2

        DayField {
            width: (parent.width - parent.spacing) / 2
            title: qsTr("From")
            day: root.footageExport.archiveExportFrom
            onDayPicked: day => root.footageExport.archiveExportFrom = day
        }
        DayField {
            width: (parent.width - parent.spacing) / 2
            title: qsTr("To")
            day: root.footageExport.archiveExportTo
            onDayPicked: day => root.footageExport.archiveExportTo = day
        }
    }

    FieldGroup {
        width: parent.width
        title: qsTr("Into")

        Flow {
            width: parent.width
            spacing: Theme.step * 2

            NoteText {
                width: Theme.besides(parent.width, choose.width, parent.spacing)
                height: width < parent.width ? choose.height : implicitHeight
                verticalAlignment: Text.AlignVCenter
                text: root.footageExport.archiveExportDestination
                color: Theme.ink
                elide: Text.ElideMiddle
                wrapMode: Text.NoWrap
            }
            ChooseButtonStyle {
                id: choose

                text: qsTr("Choose…")
                onClicked: root.footageExport.chooseArchiveExportDestination()
            }
        }
    }

    NoteText {
        width: parent.width
        text: root.footageExport.estimateText
        color: root.footageExport.estimateFailed ? Theme.error : Theme.ink2
    }
    MessageLine {
        width: parent.width
        text: root.archive.archiveMessage
        isError: root.archive.archiveMessageIsError
    }

    trailing: [
        PillButtonStyle {
            quiet: true
            text: qsTr("Cancel")
            onClicked: root.footageExport.closeArchiveExportCard()
        },
        PillButtonStyle {
            focus: true
            text: qsTr("Export")
            onClicked: root.footageExport.startArchiveExport()
        }
    ]
}
