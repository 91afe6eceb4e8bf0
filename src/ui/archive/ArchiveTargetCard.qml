import QtQuick
import Ostrel.Model
import Ostrel.Ui

// Where the archive is to lie.
OverlayCard {
    id: root

    required property ArchiveTargetForm target
    required property ArchiveForm archive

    title: qsTr("Where the archive lies")
    onDismissed: target.closeArchiveTargetCard()

    CardPage {
        width: parent.width

        Flow {
            id: kinds

            readonly property real third: (width - 2 * spacing) / 3
            // Where one is wider than that, each takes what it needs.
            readonly property bool areEqual: Math.max(folderPill.implicitWidth, bucketPill.implicitWidth, rclonePill.implicitWidth) <= third

            width: parent.width
            spacing: Theme.step * 2
            enabled: !root.target.busy

            ChoicePill {
                id: folderPill

                width: kinds.areEqual ? kinds.third : implicitWidth
                focus: true
                text: qsTr("Folder")
                checked: root.target.kind === ArchiveTargetForm.Folder
                onClicked: root.target.kind = ArchiveTargetForm.Folder
            }
            ChoicePill {
                id: bucketPill

                width: kinds.areEqual ? kinds.third : implicitWidth
                text: qsTr("S3 bucket")
                checked: root.target.kind === ArchiveTargetForm.S3
                onClicked: root.target.kind = ArchiveTargetForm.S3
            }
            ChoicePill {
                id: rclonePill

                width: kinds.areEqual ? kinds.third : implicitWidth
                text: qsTr("rclone")
                checked: root.target.kind === ArchiveTargetForm.Rclone
                onClicked: root.target.kind = ArchiveTargetForm.Rclone
            }
        }

        Column {
            width: parent.width
            spacing: Theme.step * 2
            enabled: !root.target.busy

            Loader {
                width: parent.width
                sourceComponent: root.target.kind === ArchiveTargetForm.S3 ? bucket
                    : root.target.kind === ArchiveTargetForm.Rclone ? rclone : folder
            }
            CheckLine {
                width: parent.width
                text: qsTr("Keep pictures bit for bit, which takes more room")
                checked: root.target.lossless
                onToggled: root.target.lossless = checked
            }
        }

        MessageLine {
            width: parent.width
            text: root.archive.archiveMessage
            isError: root.archive.archiveMessageIsError
        }

        trailing: [
            BusyDots {
                visible: root.target.busy
                height: Theme.controlHeight + Theme.step
            },
            PillButtonStyle {
                quiet: true
                text: qsTr("Cancel")
                onClicked: root.target.closeArchiveTargetCard()
            },
            PillButtonStyle {
                enabled: !root.target.busy
                text: qsTr("Use this place")
                onClicked: root.target.saveArchiveTarget()
            }
        ]
    }

    Component {
        id: folder

        FolderTargetFields {
            target: root.target
            onAccepted: root.target.saveArchiveTarget()
        }
    }
    Component {
        id: bucket

        BucketTargetFields {
            target: root.target
            onAccepted: root.target.saveArchiveTarget()
        }
    }
    Component {
        id: rclone

        RcloneTargetFields {
            target: root.target
            onAccepted: root.target.saveArchiveTarget()
        }
    }
}
